// Event processing: reads, the walk, forms, the sequence rule, unknown types, missing handlers,
// hooked mode, one-message mode, the exit rule, debug lines, subtype dispatch and the opaque
// request, all through a real socket of the simulated kernel.
#include <errno.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>

#include "async_support.h"

namespace tlktest {
namespace {

using EventTest = AsyncTest;

// ---- Through each kind of context ------------------------------------------------------------

class KindTest : public EventTest, public ::testing::WithParamInterface<Kind> {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    if (GetParam() == Kind::Shared) {
      ASSERT_EQ(tlk_ev_create(&shared), 0);
    }
    ASSERT_EQ(make_async(c, GetParam(), shared), 0);
  }
};

TEST_P(KindTest, ThreeMessagesWithAnUnregisteredMiddleOneAndAGap) {
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  ASSERT_EQ(tarvik_iflm_async_register(c, &r, Recorder::handler), 0);
  const uint32_t expected = c->seq + 2;
  // The third message comes five ahead of its place: delivered, and the counter resynchronises.
  const Bytes third = raw(6, 12, 7);
  ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 0), raw(13, 4, 1), third})));
  errno = 0;
  EXPECT_EQ(drive(c, GetParam()), 0);
  if (GetParam() == Kind::NoContext) {
    // One read (num_read_msg 0) and no read failure: errno is the middle message's failure.
    EXPECT_EQ(errno, ENOENT);
  }
  EXPECT_EQ(r.types(), (std::vector<uint8_t>{5, 6}));
  ASSERT_EQ(r.heard.size(), 2u);
  EXPECT_EQ(r.heard[1].msglen, 36u);
  EXPECT_EQ(r.heard[1].bytes, third);  // a private copy, byte for byte
  EXPECT_EQ(c->seq, expected + 6);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_ERROR);
  EXPECT_EQ(log.lines[0].text, "tarvik: ERROR received async message with no handler: 13\n");
  EXPECT_EQ(log.lines[1].text, "tarvik: ERROR async message seq mismatch: (" +
                                   std::to_string(expected) +
                                   " != " + std::to_string(expected + 5) + ")\n");
}

// A framed "marker" notification (type 102), encoded by the library's own envelope.
Bytes marker_frame(tarvik_cookie *c, uint32_t value, uint32_t seq = 0) {
  tlk_marker_msg m{};
  m.tlkmk_hdr.tlkh_version = TARVIK_VERSION_TABLE[102];
  m.tlkmk_hdr.tlkh_type = 102;
  m.tlkmk_hdr.tlkh_op = TLK_OP_ADD;
  m.tlkmk_hdr.tlkh_msglen = sizeof m;
  m.tlkmk_hdr.tlkh_fixedlen = sizeof m;
  m.tlkmk_hdr.tlkh_seq = seq;
  m.tlkmk_cookie = value;
  return frame_of(c, &m);
}

struct Markers {
  std::vector<std::pair<uint32_t, uintptr_t>> seen;  // the marker's value and the word
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t word) {
    auto *self = static_cast<Markers *>(arg);
    const auto *m = static_cast<const tlk_marker_msg *>(msg);
    EXPECT_EQ(m->tlkmk_hdr.tlkh_type, 102);
    self->seen.emplace_back(m->tlkmk_cookie, word);
    tarvik_msg_free(cookie, msg);  // the handler owns the decoded message
    return 0;
  }
};

TEST_P(KindTest, FramesAreDecodedCountedAndNeverSequenceChecked) {
  Markers markers;
  ASSERT_EQ(tarvik_marker_async_register(c, &markers, Markers::handler), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  const uint32_t seq = c->seq;
  // A frame's own sequence is never compared; each decoded frame still moves the counter by one,
  // so the raw message after two frames is expected at seq + 2.  A frame that fails to decode
  // is dropped without moving it, and the walk goes on.
  Bytes garbled = frame_head(TLK_MAGIC_IDR, 28, 5, 40);
  // A device header with one attachment and no bytes behind it: garbled (-1), not a wild count
  // that would cost an arena failure first.
  put_u32(garbled, 36, 1);
  ASSERT_TRUE(kernel.push(
      fd, cat({marker_frame(c, 0xC0FFEE, 999), marker_frame(c, 7, 3), garbled, raw(5, 8, 2)})));
  EXPECT_EQ(drive(c, GetParam()), 0);
  EXPECT_EQ(markers.seen, (decltype(markers.seen){{0xC0FFEE, 0}, {7, 0}}));
  EXPECT_EQ(r.heard.size(), 1u);
  EXPECT_EQ(c->seq, seq + 3);
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 1u);
  EXPECT_TRUE(log.contains("Failed to decode the msg: error ("));
}

INSTANTIATE_TEST_SUITE_P(Kinds, KindTest,
                         ::testing::Values(Kind::Own, Kind::Shared, Kind::NoContext),
                         [](const auto &param_info) { return kind_name(param_info.param); });

// ---- The rules, with the caller polling --------------------------------------------------------

TEST_F(EventTest, CorruptedLengthDropsTheRestOfTheRead) {
  nocontext();
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  Bytes second = raw(5, 8, 1);
  put_u32(second, 8, 500);
  ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 0), second, raw(5, 8, 2)})));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);  // num_read_msg 0: one read, then the limit
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(r.heard.size(), 1u);
  ASSERT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
  EXPECT_TRUE(log.contains("corrupted msg_len (500) (64 bytes left)"));
  // With a second read allowed it finds the socket empty, and EAGAIN wins.
  tarvik_async_set_num_read_msg(c, 2);
  second = raw(5, 8, 1);
  put_u32(second, 8, 0);  // under 1
  ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 0), second})));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(r.heard.size(), 2u);
  EXPECT_TRUE(log.contains("corrupted msg_len (0) (32 bytes left)"));
}

TEST_F(EventTest, ReadLimitCountsReadsNotMessages) {
  nocontext();
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  for (uint32_t i = 0; i < 3; ++i)
    ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 2 * i), raw(5, 8, 2 * i + 1)})));
  ASSERT_TRUE(kernel.push(fd, raw(5, 8, 6)));
  for (uint32_t limit : {0u, 1u}) {
    tarvik_async_set_num_read_msg(c, limit);
    const size_t before = r.heard.size();
    EXPECT_EQ(tarvik_async_event_process(c), 0);
    EXPECT_EQ(r.heard.size(), before + 2) << "limit " << limit;  // one read of two messages
  }
  // The two reads left, up to the limit; the debug lines name the routine and the program.
  tarvik_async_set_num_read_msg(c, 2);
  tarvik_async_set_io_debug(1);
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 7u);
  EXPECT_TRUE(log.lines.empty());
  std::vector<std::string> lines;
  for (const auto &l : os.syslog) {
    EXPECT_EQ(l.priority, LOG_DEBUG);
    lines.push_back(l.text);
  }
  const std::string head =
      std::string("tarvik_async_event_process, ") + program_invocation_short_name;
  EXPECT_EQ(lines, (std::vector<std::string>{
                       head + " read 64 bytes\n",
                       head + " read and processed 2 msgs\n",
                       head + " read 32 bytes\n",
                       head + " read and processed 1 msgs\n",
                       head + " read 3 msgs with 2 read calls before return to select\n",
                   }));
  os.syslog.clear();
  tarvik_async_set_io_debug(0);
  // One-message mode delivers the first of a two-message read and drops the rest.
  ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_ONE_MSG), 0);
  ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 0), raw(5, 8, 1)})));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 8u);
  ASSERT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
  EXPECT_TRUE(log.contains("Incorrect message length. 32 != 64"));
  // A read of exactly one message says nothing.
  log.lines.clear();
  ASSERT_TRUE(kernel.push(fd, raw(5, 8, 0)));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 9u);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(os.syslog.empty());
}

using SeqCalls = std::vector<std::pair<uint32_t, uint32_t>>;
void note_seq(tarvik_cookie *, void *arg, uint32_t expected, uint32_t got) {
  static_cast<SeqCalls *>(arg)->emplace_back(expected, got);
}

TEST_F(EventTest, StatisticsReplyWithSequenceZeroPassesWithoutMovingSeq) {
  nocontext();
  tarvik_set_used_by_stats(c, 0x101);
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  const uint32_t seq = c->seq;
  const Bytes stats = tarsim::raw_message(5, TLK_OP_GET, 0, Bytes(8, 1));
  ASSERT_TRUE(kernel.push(fd, cat({stats, raw(5, 8, 0)})));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 2u);
  EXPECT_EQ(c->seq, seq + 1);
  EXPECT_TRUE(log.lines.empty());
  // Without the flag (only its low 8 bits are kept) sequence 0 is a gap like any other: the
  // counter resynchronises to 1.
  tarvik_set_used_by_stats(c, 0x100);
  ASSERT_TRUE(kernel.push(fd, stats));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 3u);
  EXPECT_EQ(c->seq, 1u);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: ERROR async message seq mismatch: (" + std::to_string(seq + 1) + " != 0)\n");
  // A sequence callback replaces the diagnostic and is told of the gap only.
  log.lines.clear();
  SeqCalls calls;
  ASSERT_EQ(tarvik_seq_error_register(c, &calls, note_seq), 0);
  c->seq = 10;
  ASSERT_TRUE(kernel.push(fd, cat({tarsim::raw_message(5, 1, 12, Bytes(4, 0)),
                                   tarsim::raw_message(5, 1, 13, Bytes(4, 0))})));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.heard.size(), 5u);
  EXPECT_EQ(calls, (SeqCalls{{10, 12}}));
  EXPECT_EQ(c->seq, 14u);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(EventTest, FailuresBeforeAndWhileReading) {
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);  // no asynchronous record
  EXPECT_EQ(errno, EINVAL);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].text, "tarvik: FATAL ERROR async event callback with invalid cookie!\n");
  nocontext();
  kernel.fail_option(SOL_SOCKET, SO_RCVBUF, EBADF);
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(log.contains(
      std::string("ERROR tarvik_async_event_process: Failed to get SO_RCVBUF ") + strerror(EBADF)));
  kernel.clear_option_failure(SOL_SOCKET, SO_RCVBUF);
  // The size is kept once known; an allocation failure is reported and tried again next time.
  c->rbuf_sz = 4096;
  auto *real = tarvik_malloc;
  tarvik_malloc = [](unsigned, size_t) -> void * { return nullptr; };
  errno = 0;
  const int result = tarvik_async_event_process(c);
  const int err = errno;
  tarvik_malloc = real;
  EXPECT_EQ(result, -1);
  EXPECT_EQ(err, ENOMEM);
  EXPECT_TRUE(log.contains("ERROR tarvik_size_alloc failed!\n"));
  // An empty socket: -1 with EAGAIN, and no diagnostic.
  log.lines.clear();
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(c->rbuf_sz, 4096u);
  ASSERT_TRUE(kernel.push(fd, Bytes(10, 0)));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.contains("FATAL ERROR msg read too small for header: 10\n"));
  // A read error after deliveries stands and is returned.
  tarvik_async_set_num_read_msg(c, 5);
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  ASSERT_TRUE(kernel.push(fd, raw(5, 8, 0)));
  kernel.inject_read_errno(ECONNRESET, 1);
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(r.heard.size(), 1u);
  EXPECT_TRUE(log.contains("FATAL ERROR read failed: (" + std::to_string(ECONNRESET) + ") " +
                           strerror(ECONNRESET)));
}

// ---- Hooked event mode ----------------------------------------------------------------------

struct Hook {
  std::vector<std::pair<tarvik_async_reg_t *, int>> calls;
  std::vector<void *> held;
  int answer = 0;
  static inline Hook *current = nullptr;
  static int dispatch(tarvik_cookie *, tarvik_async_reg_t *slot, void *msg, uintptr_t word,
                      int is_idl) {
    EXPECT_EQ(word, 0u);
    current->calls.emplace_back(slot, is_idl);
    current->held.push_back(msg);
    return current->answer;
  }
  static inline int destroyed = 0;
  static void destroy(tarvik_cookie *cookie) {
    ++destroyed;
    for (void *m : current->held) tarvik_msg_free(cookie, m);
    current->held.clear();
  }
};

TEST_F(EventTest, HookedModeHandsEachMessageToTheHook) {
  nocontext();
  Hook hook;
  Hook::current = &hook;
  Hook::destroyed = 0;
  tarvik_event_hooks_t hooks{Hook::dispatch, Hook::destroy, nullptr, -1};
  ASSERT_EQ(tlk_async_set_event_hooks(c, &hooks), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(c, &r, Recorder::handler), 0);
  // Not hooked yet: a frame without a handler is released with the diagnostic.
  ASSERT_TRUE(kernel.push(fd, marker_frame(c, 1)));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(log.contains("received async message with no handler: 102\n"));
  Markers markers;
  ASSERT_EQ(tarvik_marker_async_register(c, &markers, Markers::handler), 0);
  ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_HOOKED), 0);
  tarvik_async_set_io_debug(1);
  ASSERT_TRUE(kernel.push(fd, cat({raw(5, 8, 0), raw(6, 8, 1)})));  // 6 has no registration
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  // A refused decoded message goes back through the envelope; a refused raw one stays with the
  // hook.  Either refusal is the message's failure.
  hook.answer = EBUSY;
  ASSERT_TRUE(kernel.push(fd, marker_frame(c, 2)));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(errno, EBUSY);
  hook.held.pop_back();  // released by the engine already; the leak check proves it
  ASSERT_TRUE(kernel.push(fd, raw(5, 8, 0)));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_TRUE(r.heard.empty());  // handlers are not called in hooked mode
  EXPECT_TRUE(markers.seen.empty());
  ASSERT_EQ(hook.calls.size(), 3u);
  EXPECT_EQ(hook.calls[0].first->arg, &r) << "the device registration's slot";
  EXPECT_EQ(hook.calls[0].second, 0);
  EXPECT_EQ(hook.calls[1].first->arg, &markers) << "the marker registration's slot";
  EXPECT_EQ(hook.calls[1].second, 1);
  std::vector<std::string> debug;
  for (const auto &l : os.syslog) debug.push_back(l.text);
  for (const char *kind : {"non-idl", "idl"}) {
    const std::string line = "tarvik_async_process_msg, Enqueueing tarlink message - ";
    EXPECT_NE(std::find(debug.begin(), debug.end(), line + kind + "\n\n"), debug.end()) << kind;
  }
  tarvik_close(c);  // the close hook runs and drains
  c = nullptr;
  EXPECT_EQ(Hook::destroyed, 1);
}

// ---- Subtype dispatch and unknown types -------------------------------------------------------

TEST_F(EventTest, SubtypeDispatchAndTypesAbove109) {
  nocontext();
  ASSERT_EQ(tarvik_async_subtype_handler_register(c, 85, 1, 3, 24, 0, 0, 0, &r, Recorder::handler),
            0);
  ASSERT_EQ(tarvik_setup_async_registration(c, 110, 0, 0, &r, Recorder::handler), 0);
  auto with_subtype = [&](uint8_t sub, uint32_t ahead) {
    Bytes m = raw(85, 8, ahead);
    m[24] = sub;
    return m;
  };
  Bytes too_short = raw(85, 0, 3);  // 24 bytes: no byte at offset 24
  ASSERT_TRUE(kernel.push(fd, cat({with_subtype(1, 0), with_subtype(0, 1), with_subtype(3, 2),
                                   too_short, raw(110, 8, 4), raw(200, 8, 5)})));
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(errno, EOPNOTSUPP);  // the last message's failure; the read limit ended the call
  ASSERT_EQ(r.heard.size(), 1u);
  EXPECT_EQ(r.heard[0].bytes[24], 1);
  // Subtype 0 has no handler: dropped without a word.  3 is past the count, and the last is short.
  // Types above 109 are unknown even with a slot at 110.
  std::vector<std::string> lines;
  for (const auto &l : log.lines) lines.push_back(l.text);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "tarvik: ERROR received async message with invalid subtype msg_type = 85 "
                       "subtype offset=24 msglen=32 subtype = 3\n",
                       "tarvik: ERROR received async message with length < needed for subtype "
                       "msg_type = 85 subtype offset=24 msglen=24\n",
                       "tarvik: WARNING received async message of unknown type: 110\n",
                       "tarvik: WARNING received async message of unknown type: 200\n"}));
  close_abandoning(2);  // the subtype table, and the slot at 110 that the teardown never visits
}

// ---- Opaque requests -------------------------------------------------------------------------

TEST_F(EventTest, OpaqueRequestLayoutAndReply) {
  Bytes seen;
  kernel.on_raw(79, 4, [&](tarsim::Kernel &k, const tarsim::Request &req) {
    seen.assign(req.bytes.begin(), req.bytes.end());
    k.reply_with_seq(req.session, tarsim::raw_message(79, 4, 0, Bytes(8, 0x77)), req.seq);
  });
  const char data[] = "hello";
  void *reply = reinterpret_cast<void *>(1);
  const uint32_t seq = c->seq;
  ASSERT_EQ(tarvik_async_opaque_handle(c, 4, data, 5, &reply, 9, 0x3), 0);
  ASSERT_EQ(seen.size(), 40u);  // (5 + 35) with the low two bits cleared
  Bytes want = {0,  0, 0, 0, 'b', 'O', 4, 0, 0, 0, 0, 0, 0,   0,   0,   0,   0,   0, 0, 0,
                32, 0, 0, 0, 9,   0,   3, 0, 0, 0, 0, 0, 'h', 'e', 'l', 'l', 'o', 0, 0, 0};
  put_u32(want, 8, 40);
  put_u32(want, 12, seq + 1);
  put_u32(want, 28, 5);
  EXPECT_EQ(seen, want);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(static_cast<uint8_t *>(reply)[5], 79);
  tarvik_msg_free(c, reply);

  // No reply asked for: none read, and reply_out is null.
  ASSERT_EQ(tarvik_async_opaque_handle(c, 4, data, 5, &reply, 9, 0x2), 0);
  EXPECT_EQ(reply, nullptr);
  // A write failure comes back as it is.
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_async_opaque_handle(c, 4, data, 5, &reply, 9, 0x1), ENOBUFS);
  EXPECT_EQ(reply, nullptr);
  EXPECT_EQ(tarvik_async_opaque_handle(c, 4, data, 5, nullptr, 9, 0), EINVAL);
  // A reply of the wrong sequence goes to the sequence callback, and the call fails with -2.
  kernel.on_raw(79, 1, [&](tarsim::Kernel &k, const tarsim::Request &req) {
    k.reply_with_seq(req.session, tarsim::raw_message(79, 1, 0, Bytes(8, 0)), req.seq + 3);
  });
  SeqCalls calls;
  ASSERT_EQ(tarvik_seq_error_register(c, &calls, note_seq), 0);
  EXPECT_EQ(tarvik_async_opaque_handle(c, 1, nullptr, 0, &reply, 0, 1), -2);
  EXPECT_EQ(reply, nullptr);
  EXPECT_EQ(calls.size(), 1u);
}

}  // namespace
}  // namespace tlktest
