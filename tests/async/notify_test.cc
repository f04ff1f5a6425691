// The simulated kernel's notification streams seen through the library: a change made by one
// session reaches the sessions listening for it and no other, with per-session sequences, bulk
// packing, filters and subtypes honoured.
#include <errno.h>
#include <string.h>

#include "async_support.h"

namespace tlktest {
namespace {

// Sessions closed at the end, and a context of the caller's for the shared kind, destroyed after
// them.
class StreamTest : public SimTest {
 protected:
  void TearDown() override {
    for (tarvik_cookie *c : sessions) tarvik_close(c);
    if (shared.opaque) {
      EXPECT_EQ(tlk_ev_destroy(shared), 0);
    }
    SimTest::TearDown();
  }
  // A session of the given kind and mode whose notifications start at its own sequence.
  tarvik_cookie *session(Kind kind, uint32_t mode = 0) {
    tarvik_cookie *c = open_session();
    if (c == nullptr) return nullptr;
    sessions.push_back(c);
    if (kind == Kind::Shared && shared.opaque == nullptr) {
      EXPECT_EQ(tlk_ev_create(&shared), 0);
    }
    EXPECT_EQ(make_async(c, kind, shared), 0);
    if (mode) {
      EXPECT_EQ(tarvik_set_async_mode(c, mode), 0);
    }
    kernel.set_async_seq(tarvik_getsockfd(c), c->seq);
    return c;
  }
  tarvik_cookie *listener(uint32_t mode = 0) { return session(Kind::NoContext, mode); }
  std::vector<tarvik_cookie *> sessions;
  evContext shared{};
};

class NotifyTest : public StreamTest, public ::testing::WithParamInterface<Kind> {};

TEST_P(NotifyTest, ChangeByOneSessionReachesTheListenerOnly) {
  const Kind kind = GetParam();
  tarvik_cookie *writer = session(kind), *listener = session(kind), *deaf = session(kind);
  ASSERT_TRUE(writer != nullptr && listener != nullptr && deaf != nullptr);
  Recorder heard, not_heard;
  // The writer listens for what it changes, but is never sent its own changes.
  ASSERT_EQ(tarvik_iflm_async_register(writer, &not_heard, Recorder::handler), 0);
  ASSERT_EQ(tarvik_iflm_async_register(listener, &heard, Recorder::handler), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(deaf, &not_heard, Recorder::handler), 0);  // other bits
  const int wfd = tarvik_getsockfd(writer), lfd = tarvik_getsockfd(listener),
            dfd = tarvik_getsockfd(deaf);
  tarvik_async_set_num_read_msg(listener, 10);  // unpacked: one read each

  // The writer changes a logical interface (type 6) as any client would: one raw write per op.
  // A get is no change: nobody hears it.
  for (uint8_t op : std::initializer_list<uint8_t>{TLK_OP_CHANGE, TLK_OP_ADD, TLK_OP_DELETE,
                                                   TLK_OP_DELETEALL, TLK_OP_GET}) {
    Bytes m = tarsim::raw_message(6, op, 0, Bytes(16, op));
    uint32_t seq = 0;
    ASSERT_EQ(tarvik_seq_get_next(writer, &seq), 0);
    put_u32(m, 12, seq);
    ASSERT_EQ(tarvik_write(writer, m.data(), m.size()), 0);
  }
  EXPECT_EQ(kernel.notifications(lfd), 4u);
  EXPECT_EQ(kernel.notifications(dfd), 0u);
  EXPECT_EQ(kernel.notifications(wfd), 0u);
  EXPECT_EQ(drive(listener, kind), 0);
  errno = 0;
  if (kind == Kind::NoContext) {
    EXPECT_EQ(drive(deaf, kind), -1);  // nothing there
    EXPECT_EQ(errno, EAGAIN);
  } else {
    EXPECT_EQ(drive(deaf, kind), 0);
  }
  ASSERT_EQ(heard.heard.size(), 4u);
  EXPECT_EQ(heard.heard[0].type, 6);
  EXPECT_EQ(heard.heard[0].op, TLK_OP_CHANGE);
  EXPECT_EQ(Bytes(heard.heard[0].bytes.begin() + 24, heard.heard[0].bytes.end()),
            Bytes(16, TLK_OP_CHANGE));
  EXPECT_TRUE(not_heard.heard.empty());
  EXPECT_TRUE(log.lines.empty());  // the kernel stamped the listener's own sequence
}

INSTANTIATE_TEST_SUITE_P(Kinds, NotifyTest,
                         ::testing::Values(Kind::Own, Kind::Shared, Kind::NoContext),
                         [](const auto &param_info) { return kind_name(param_info.param); });

TEST_F(StreamTest, EachSessionHasItsOwnSequence) {
  tarvik_cookie *a = listener(), *b = listener();
  Recorder ra, rb;
  ASSERT_EQ(tarvik_ifdm_async_register(a, &ra, Recorder::handler), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(b, &rb, Recorder::handler), 0);
  const int bfd = tarvik_getsockfd(b);
  kernel.set_async_seq(bfd, 1000);
  b->seq = 1000;
  EXPECT_EQ(kernel.notify(5, raw_note(5)), 2u);
  EXPECT_EQ(kernel.notify(5, raw_note(5)), 2u);
  while (tarvik_async_event_process(a) == 0) {
  }
  while (tarvik_async_event_process(b) == 0) {
  }
  ASSERT_EQ(rb.heard.size(), 2u);
  EXPECT_EQ(rb.heard[0].seq, 1000u);
  EXPECT_EQ(rb.heard[1].seq, 1001u);
  EXPECT_EQ(ra.heard.size(), 2u);
  uint32_t next = 0;
  EXPECT_EQ(tarvik_get_async_seq_num(b, &next), 0);
  EXPECT_EQ(next, 1002u);
  EXPECT_TRUE(log.lines.empty());
  // A gap in a's stream is reported once, and the message after it matches again.
  const uint32_t expected = a->seq;
  kernel.skip_notify_seq(tarvik_getsockfd(a), 4);
  kernel.notify(5, raw_note(5));
  kernel.notify(5, raw_note(5));
  while (tarvik_async_event_process(a) == 0) {
  }
  EXPECT_EQ(ra.heard.size(), 4u);
  ASSERT_EQ(log.count(TLK_LEVEL_ERROR), 1u);
  EXPECT_TRUE(log.contains("async message seq mismatch: (" + std::to_string(expected) +
                           " != " + std::to_string(expected + 4) + ")"));
}

TEST_F(StreamTest, BulkModePacksNotificationsIntoOneRead) {
  tarvik_cookie *bulk = listener(TLK_ASYNC_BULK), *single = listener(0),
                *one = listener(TLK_ASYNC_BULK | TLK_ASYNC_ONE_MSG);
  Recorder rb, rs, ro;
  ASSERT_EQ(tarvik_rtm_async_register(bulk, &rb, Recorder::handler), 0);
  ASSERT_EQ(tarvik_rtm_async_register(single, &rs, Recorder::handler), 0);
  ASSERT_EQ(tarvik_rtm_async_register(one, &ro, Recorder::handler), 0);
  kernel.set_auto_flush(false);
  for (int i = 0; i < 25; ++i) kernel.notify(2, raw_note(2, TLK_OP_ADD, 40));
  kernel.flush();
  // One call of the engine: one read for the packed session takes all 25; ten reads (the limit
  // of a context-less session is one read, so call until empty) for the others.
  EXPECT_EQ(tarvik_async_event_process(bulk), 0);
  EXPECT_EQ(rb.heard.size(), 25u);
  tarvik_async_set_num_read_msg(single, 10);
  EXPECT_EQ(tarvik_async_event_process(single), 0);
  EXPECT_EQ(rs.heard.size(), 10u);
  while (tarvik_async_event_process(one) == 0) {
  }
  EXPECT_EQ(ro.heard.size(), 25u);
  while (tarvik_async_event_process(single) == 0) {
  }
  EXPECT_EQ(rs.heard.size(), 25u);
  EXPECT_TRUE(log.lines.empty());
  // Packing stops at the read cap: 1000-byte notifications, 65 to a 64 KiB read.
  for (int i = 0; i < 100; ++i) kernel.notify(2, raw_note(2, TLK_OP_ADD, 976));
  kernel.flush();
  EXPECT_EQ(tarvik_async_event_process(bulk), 0);
  EXPECT_EQ(rb.heard.size(), 90u);
  EXPECT_EQ(tarvik_async_event_process(bulk), 0);
  EXPECT_EQ(rb.heard.size(), 125u);
}

TEST_F(StreamTest, UnregisterStopsRoutesThroughTheFilterAndRegisterBringsThemBack) {
  tarvik_cookie *a = listener();
  Recorder routes, classes;
  ASSERT_EQ(tarvik_rtm_async_register(a, &routes, Recorder::handler), 0);
  ASSERT_EQ(tarvik_rtclass_async_register(a, &classes, Recorder::handler), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(a, &routes, Recorder::handler), 0);
  EXPECT_EQ(kernel.notify(2, raw_note(2)), 1u);
  EXPECT_EQ(kernel.notify(28, raw_note(28)), 1u);
  ASSERT_EQ(tarvik_rtm_async_unregister(a), 0);
  EXPECT_EQ(kernel.notify(2, raw_note(2)), 0u);
  EXPECT_EQ(kernel.notify(28, raw_note(28)), 0u);  // the shared bit went too
  EXPECT_EQ(kernel.notify(5, raw_note(5)), 1u);
  ASSERT_EQ(tarvik_rtm_async_register(a, &routes, Recorder::handler), 0);
  EXPECT_EQ(kernel.notify(2, raw_note(2)), 1u);
  while (tarvik_async_event_process(a) == 0) {
  }
  EXPECT_EQ(routes.types(), (std::vector<uint8_t>{2, 5, 2}));
  EXPECT_EQ(classes.types(), (std::vector<uint8_t>{28}));
}

TEST_F(StreamTest, OpaqueSubtypesChooseWhatArrivesAndTypesWithoutBitsGoToOneSession) {
  tarvik_cookie *picky = listener(), *all = listener();
  Recorder rp, ra;
  uint8_t mask[16] = {0};
  mask[1] = 0x04;  // subtype 2
  mask[2] = 0x01;  // subtype 8
  ASSERT_EQ(tarvik_async_opaque_register(picky, &rp, Recorder::handler, mask), 0);
  ASSERT_EQ(tarvik_async_opaque_register(all, &ra, Recorder::handler, nullptr), 0);
  for (int sub : {1, 2, 8, 9}) {
    Bytes m = raw_note(79, TLK_OP_ADD, 8);
    m[24] = static_cast<uint8_t>(sub);
    kernel.notify(79, m);
  }
  // Type 22 has no listen bit: it reaches only the session it is sent to.
  ASSERT_EQ(tarvik_dfwstatsm_async_register(picky, &rp, Recorder::handler), 0);
  ASSERT_EQ(tarvik_dfwstatsm_async_register(all, &ra, Recorder::handler), 0);
  EXPECT_EQ(kernel.notify(22, raw_note(22)), 0u);
  EXPECT_EQ(kernel.notify(30, raw_note(30)), 0u);  // no row at all
  EXPECT_TRUE(kernel.notify_session(tarvik_getsockfd(picky), raw_note(22)));
  while (tarvik_async_event_process(picky) == 0) {
  }
  while (tarvik_async_event_process(all) == 0) {
  }
  EXPECT_EQ(rp.types(), (std::vector<uint8_t>{79, 79, 22}));
  EXPECT_EQ(rp.heard[0].bytes[24], 2);
  EXPECT_EQ(rp.heard[1].bytes[24], 8);
  EXPECT_EQ(ra.types(), (std::vector<uint8_t>{79, 79, 79, 79}));
}

}  // namespace
}  // namespace tlktest
