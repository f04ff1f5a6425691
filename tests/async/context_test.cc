// Asynchronous contexts and registration: the three kinds of context, the setup routine, subtype,
// input and opaque registration, mode, subtypes, filters, sequence, unregistering and teardown.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <tuple>

#include "async_support.h"

namespace tlktest {
namespace {

// Runs `call` with an allocator that refuses one memory identifier and counts the rest as usual;
// returns its result and the errno it left.
void *(*g_real_malloc)(unsigned, size_t) = nullptr;
unsigned g_refused_memid = 0;
template <class Call>
std::pair<int, int> refusing(unsigned memid, Call call) {
  g_real_malloc = tarvik_malloc;
  g_refused_memid = memid;
  tarvik_malloc = [](unsigned id, size_t size) {
    return id == g_refused_memid ? nullptr : g_real_malloc(id, size);
  };
  const int result = call();
  const int err = errno;
  tarvik_malloc = g_real_malloc;
  return {result, err};
}

int noop_handler(tarvik_cookie *cookie, void *, void *msg, uintptr_t) {
  tarvik_msg_free(cookie, msg);
  return 0;
}
int other_handler(tarvik_cookie *cookie, void *, void *msg, uintptr_t) {
  tarvik_msg_free(cookie, msg);
  return 1;
}

// The platform table with the ev* entries counted, the last selection kept, and creation or
// destruction made to fail on demand.
struct EvSpy {
  static inline int selects, deselects, destroys, creates;
  static inline std::tuple<int, int, evFileFunc, void *> last;  // descriptor, mask, callback, uap
  static inline bool fail_create, fail_destroy;
  static inline tlk_platform saved{};

  EvSpy() {
    saved = *tlk_platform_get();
    selects = deselects = destroys = creates = 0;
    last = {-1, 0, nullptr, nullptr};
    fail_create = fail_destroy = false;
    tlk_platform t = saved;
    t.evCreate = [](evContext *ctx) {
      ++creates;
      if (!fail_create) return saved.evCreate(ctx);
      errno = ENOMEM;
      return -1;
    };
    t.evSelectFD = [](evContext ctx, int fd, int mask, evFileFunc f, void *uap, evFileID *id) {
      ++selects;
      last = {fd, mask, f, uap};
      return saved.evSelectFD(ctx, fd, mask, f, uap, id);
    };
    t.evDeselectFD = [](evContext ctx, evFileID id) {
      ++deselects;
      return saved.evDeselectFD(ctx, id);
    };
    t.evDestroy = [](evContext ctx) {
      ++destroys;
      if (!fail_destroy) return saved.evDestroy(ctx);
      errno = EBUSY;
      return -1;
    };
    tlk_platform_set(&t);
  }
  ~EvSpy() { tlk_platform_set(&saved); }
};

class ContextTest : public AsyncTest {
 protected:
  std::pair<uint32_t, uint32_t> sent_mask() { return sent_listen_mask(kernel, fd); }
};

TEST_F(ContextTest, CreateMakesOwnContextAndLoadsKernelSequence) {
  EvSpy spy;
  spy.fail_create = true;
  EXPECT_EQ(tarvik_create_async_context(c), -1);
  ASSERT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
  EXPECT_TRUE(log.contains("async context creation failed"));
  spy.fail_create = false;
  // No record was left behind to refuse the second try.
  kernel.set_async_seq(fd, 4242);
  ASSERT_EQ(tarvik_create_async_context(c), 0);
  EXPECT_EQ(spy.creates, 2);
  EXPECT_EQ(c->num_read_msg, 10u);
  EXPECT_EQ(c->seq, 4242u);
  evContext got{};
  EXPECT_EQ(tarvik_get_async_context(c, &got), 0);
  EXPECT_NE(got.opaque, nullptr);
  // A second context is refused and none is made.
  EXPECT_EQ(tarvik_create_async_context(c), EINVAL);
  EXPECT_EQ(spy.creates, 2);
  // A failed destruction keeps the record, its context and its slots; the socket was deselected
  // before the failure.
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  spy.fail_destroy = true;
  EXPECT_EQ(tarvik_destroy_async_context(c), -1);
  EXPECT_EQ(spy.deselects, 1);
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 1u);
  EXPECT_TRUE(log.contains("async context destruction failed"));
  EXPECT_EQ(tarvik_get_async_context(c, &got), 0);
  EXPECT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), EINVAL);
  spy.fail_destroy = false;
  tarvik_close(c);
  c = nullptr;
  EXPECT_EQ(spy.destroys, 2);  // the library's own context goes with the session
  EXPECT_EQ(spy.deselects, 1);
}

TEST_F(ContextTest, SetAsyncContextJoinsCallersContextAndFirstRegistrationSelectsOnce) {
  EvSpy spy;
  ASSERT_EQ(tlk_ev_create(&shared), 0);
  kernel.set_async_seq(fd, 500);
  c->seq = 77;
  ASSERT_EQ(tarvik_set_async_context(c, shared), 0);
  evContext got{};
  EXPECT_EQ(tarvik_get_async_context(c, &got), 0);
  EXPECT_EQ(got.opaque, shared.opaque);
  EXPECT_EQ(c->num_read_msg, 10u);
  EXPECT_EQ(c->seq, 77u);
  EXPECT_EQ(tarvik_set_async_context(c, shared), EINVAL);
  // Masks 0 and 0 still select, and send nothing to the kernel; a second registration does not
  // select again.
  ASSERT_EQ(tarvik_setup_async_registration(c, 30, 0, 0, nullptr, noop_handler), 0);
  EXPECT_EQ(spy.selects, 1);
  EXPECT_EQ(spy.last, std::make_tuple(fd, TLK_EV_READ, tarvik_async_event_callback, c));
  EXPECT_FALSE(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_LISTEN).has_value());
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(spy.selects, 1);
  tarvik_close(c);
  c = nullptr;
  EXPECT_EQ(spy.deselects, 1);
  EXPECT_EQ(spy.destroys, 0);  // the caller keeps its context
}

TEST_F(ContextTest, WithoutARecordThenInTheContextlessKindTheLoopIsNeverTouched) {
  EvSpy spy;
  EXPECT_EQ(tarvik_destroy_async_context(c), 0);  // nothing to tear down
  EXPECT_EQ(tarvik_async_event_loop(c), EINVAL);
  EXPECT_EQ(tarvik_set_async_mode(c, 1), EINVAL);
  uint32_t seq = 0;
  EXPECT_EQ(tarvik_get_async_seq_num(c, &seq), EINVAL);
  EXPECT_EQ(tarvik_setup_async_registration(c, 2, 0, 0, nullptr, noop_handler), EINVAL);
  EXPECT_EQ(
      refusing(MEMID_TARVIK_ASYNC_CTX, [&] { return tarvik_set_async_info_nocontext(c, nullptr); }),
      std::make_pair(-1, ENOMEM));
  EXPECT_TRUE(log.contains("async info allocation failed"));
  EXPECT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
  evContext got{};
  EXPECT_EQ(tarvik_get_async_context(c, &got), EINVAL) << "no record";
  // The context-less kind.
  int out = -5;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, &out), 0);
  EXPECT_EQ(out, fd);
  EXPECT_EQ(c->num_read_msg, 0u);
  EXPECT_EQ(tarvik_rtm_async_register(c, &r, Recorder::handler), 0);
  EXPECT_EQ(spy.selects, 0);
  EXPECT_EQ(tarvik_get_async_context(c, &got), EINVAL);
  EXPECT_EQ(tarvik_async_event_loop(c), EINVAL);
  EXPECT_EQ(tarvik_async_event_loop_sighdl(c), EINVAL);
  // The sequence number is the kernel's; a failed query leaves the caller's variable alone.
  kernel.set_async_seq(fd, 99);
  EXPECT_EQ(tarvik_get_async_seq_num(c, &seq), 0);
  EXPECT_EQ(seq, 99u);
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_ASYNC_SEQ, ENOBUFS);
  seq = 5;
  EXPECT_EQ(tarvik_get_async_seq_num(c, &seq), -1);
  EXPECT_EQ(seq, 5u);
  EXPECT_TRUE(log.contains("failed to get tarlink sequence number"));
  tarvik_close(c);
  c = nullptr;
  EXPECT_EQ(spy.deselects + spy.destroys, 0);
}

TEST_F(ContextTest, SetupRoutineRangeHandlerAndTakenSlot) {
  nocontext();
  EXPECT_EQ(tarvik_setup_async_registration(c, 111, 0, 0, nullptr, noop_handler), EINVAL);
  EXPECT_EQ(tarvik_setup_async_registration(c, 4, 0, 0, nullptr, nullptr), EINVAL);
  ASSERT_EQ(tarvik_setup_async_registration_idl(c, 4, 0x4, 0, &r, Recorder::handler), 0);
  // A taken slot: 22 and no change, not even to the listen bits.
  EXPECT_EQ(tarvik_setup_async_registration(c, 4, 0x8, 0, nullptr, other_handler), EINVAL);
  EXPECT_EQ(sent_mask(), std::make_pair(0x4u, 0x0u));
  ASSERT_TRUE(kernel.push(fd, raw(4)));
  EXPECT_EQ(tarvik_async_event_process(c), 0);
  EXPECT_EQ(r.types(), std::vector<uint8_t>{4}) << "the first handler, with its argument";
  // 110 is accepted (never reached by a message); its slot outlives the teardown on purpose.
  ASSERT_EQ(tarvik_setup_async_registration(c, 110, 0, 0, nullptr, noop_handler), 0);
  // A family of several types stops at the first taken slot and keeps the ones before it: cos
  // registers 31, 32, 34, 38, 39, 35, ... in that order; take 38.
  ASSERT_EQ(tarvik_setup_async_registration(c, 38, 0, 0, nullptr, other_handler), 0);
  EXPECT_EQ(tarvik_cos_async_register(c, nullptr, noop_handler), EINVAL);
  for (int t : {31, 32, 34}) EXPECT_EQ(c->async_info->reg[t]->handler, noop_handler) << t;
  EXPECT_EQ(c->async_info->reg[38]->handler, other_handler);
  for (int t : {39, 35, 36, 37, 55, 71}) EXPECT_EQ(c->async_info->reg[t], nullptr) << t;
  // First type taken: 22 at once.
  EXPECT_EQ(tarvik_cos_async_register(c, nullptr, noop_handler), EINVAL);
  close_abandoning(1);
}

TEST_F(ContextTest, RefusedListenBitOrSlotLeavesTheOtherSideAsItWas) {
  nocontext();
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_LISTEN, EPERM);
  errno = 0;
  EXPECT_EQ(tarvik_iflm_async_register(c, nullptr, noop_handler), -1);
  EXPECT_EQ(errno, EPERM);
  ASSERT_EQ(log.count(TLK_LEVEL_ERROR), 1u);
  EXPECT_EQ(log.lines[0].text,
            std::string("tarvik: ERROR failed to set listen bit ") + strerror(EPERM));
  // Neither the slot nor the bit stayed: the next try sends the bit again.  Its slot cannot be
  // allocated, and the bit it sent is kept.
  kernel.clear_faults();
  EXPECT_EQ(refusing(MEMID_TARVIK_ASYNC_REG,
                     [&] { return tarvik_iflm_async_register(c, nullptr, noop_handler); }),
            std::make_pair(-1, ENOMEM));
  EXPECT_EQ(sent_mask(), std::make_pair(0x3u, 0x0u));
  EXPECT_TRUE(log.contains("async registration allocation failed"));
  EXPECT_EQ(tarvik_iflm_async_register(c, nullptr, noop_handler), 0) << "the slot stayed free";
}

TEST_F(ContextTest, ModeValidation) {
  nocontext();
  for (uint32_t bad : {0x400u, 0x20u, 0x21u, 0x41u, 0x20001u, 0x20000u}) {
    EXPECT_EQ(tarvik_set_async_mode(c, bad), EINVAL) << std::hex << bad;
  }
  EXPECT_FALSE(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE).has_value()) << "nothing sent";
  for (uint32_t good : {0x0u, 0x401u, 0x1ff9fu}) {
    EXPECT_EQ(tarvik_set_async_mode(c, good), 0) << std::hex << good;
    EXPECT_EQ(kernel.option_u32(fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE), good);
  }
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE, EIO);
  EXPECT_EQ(tarvik_set_async_mode(c, 1), -1);
  EXPECT_EQ(c->async_info->mode, 0x1ff9fu) << "the refused mode is not kept";
  EXPECT_TRUE(
      log.contains(std::string("failed to set async mode bits=0x1, error=") + strerror(EIO)));
  // Bulk mode, kept from 0x1ff9f, raises the buffer floor.
  EXPECT_EQ(tarvik_set_buffers(c, 524287, 1000000), EINVAL);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: ERROR Attempted to set an invalid buffer size(send size: 524287, recv size: "
            "1000000)\n");
  EXPECT_EQ(tarvik_set_buffers(c, 524288, 524288), 0);
}

TEST_F(ContextTest, SubtypeMasksGoThroughOptionNine) {
  nocontext();
  uint8_t mask[16] = {0};
  mask[1] = 0x5;
  ASSERT_EQ(tarvik_async_opaque_register(c, &r, Recorder::handler, mask), 0);
  EXPECT_EQ(mask[0], 35);
  EXPECT_EQ(sent_mask(), std::make_pair(0x0u, 0x8u));
  EXPECT_EQ(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_SUBTYPES), Bytes(mask, mask + 16));
  uint8_t back[16] = {35};
  EXPECT_EQ(tarvik_get_async_msg_subtype(c, back), 0);
  EXPECT_EQ(Bytes(back, back + 16), Bytes(mask, mask + 16));
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_SUBTYPES, EACCES);
  EXPECT_EQ(tarvik_set_async_msg_subtype(c, mask), -1);
  EXPECT_TRUE(log.contains("failed to set listen subtypes"));
  EXPECT_EQ(tarvik_get_async_msg_subtype(c, back), -1);
  EXPECT_TRUE(log.contains("failed to get listen subtypes"));
  // On the now taken slot: refused, the mask untouched, no subtypes sent.
  kernel.clear_faults();
  uint8_t other[16] = {0};
  EXPECT_EQ(tarvik_async_opaque_register(c, nullptr, noop_handler, other), EINVAL);
  EXPECT_EQ(other[0], 0);
  EXPECT_EQ(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_SUBTYPES), Bytes(mask, mask + 16));
}

TEST_F(ContextTest, FiltersCarryTheListenMaskThenTheRecord) {
  nocontext();
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  ASSERT_EQ(tarvik_marker_async_register(c, nullptr, noop_handler), 0);
  uint8_t filter[TLK_ASYNC_FILTER_LEN];
  for (size_t i = 0; i < sizeof filter; ++i) filter[i] = static_cast<uint8_t>(i * 7);
  ASSERT_EQ(tarvik_async_register_filters(c, filter), 0);
  auto rec = kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_FILTERS);
  ASSERT_TRUE(rec.has_value());
  ASSERT_EQ(rec->size(), 736u);
  EXPECT_EQ(get_u32(rec->data(), 0), 0x1u);
  EXPECT_EQ(get_u32(rec->data(), 4), 0x2000000u);
  EXPECT_EQ(0, memcmp(rec->data() + 8, filter, sizeof filter));
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_FILTERS, EINVAL);
  EXPECT_EQ(tarvik_async_register_filters(c, filter), -1);
  EXPECT_TRUE(log.contains("failed to set listen bit"));
  // Unregistering ignores a refused filter: the bit goes from the session's mask all the same,
  // and the slot is free again.
  ASSERT_EQ(tarvik_rnhm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(tarvik_rnhm_async_unregister(c), 0);
  ASSERT_EQ(tarvik_iflm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(sent_mask(), std::make_pair(0x3u, 0x2000000u));
  EXPECT_EQ(tarvik_rnhm_async_register(c, nullptr, noop_handler), 0);
}

TEST_F(ContextTest, ListenMaskIsTheUnionAndRouteUnregisterDropsTheSharedClassBit) {
  nocontext();
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(sent_mask(), std::make_pair(0x1u, 0x0u));
  ASSERT_EQ(tarvik_gencfg_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(sent_mask(), std::make_pair(0x1u, 0x1u));
  ASSERT_EQ(tarvik_rtm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(sent_mask(), std::make_pair(0x200381u, 0x1u));
  // rtclass's bit is already in: nothing new goes out.
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_LISTEN, EPERM);
  EXPECT_EQ(tarvik_rtclass_async_register(c, nullptr, noop_handler), 0);
  EXPECT_TRUE(log.lines.empty());
  kernel.clear_faults();
  EXPECT_EQ(tarvik_rtm_async_unregister(c), 0);
  EXPECT_EQ(tarvik_rtclass_async_register(c, nullptr, noop_handler), EINVAL)
      << "the class slot stays";
  // The filter record: the listen mask after the drop, filter bytes 0..7 zero, the dropped low
  // and high words, and zeros to the end.
  auto rec = kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_FILTERS);
  ASSERT_TRUE(rec.has_value());
  const uint32_t want[6] = {0x1, 0x1, 0, 0, 0x200380, 0};
  for (size_t w = 0; w < 6; ++w) EXPECT_EQ(get_u32(rec->data(), 4 * w), want[w]) << "word " << w;
  for (size_t i = 24; i < rec->size(); ++i) ASSERT_EQ((*rec)[i], 0) << i;
  // The route bits return through option 1.
  ASSERT_EQ(tarvik_rtm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(sent_mask(), std::make_pair(0x200381u, 0x1u));
}

TEST_F(ContextTest, InputRegistrationAsksOnceAndInstallsNoHandler) {
  EvSpy spy;
  join_shared();
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_LISTEN, EPERM);
  EXPECT_EQ(tarvik_input_async_register(c), -1);
  EXPECT_TRUE(log.contains("failed to set TLKO_INPUT listen bit"));
  kernel.clear_faults();
  ASSERT_EQ(tarvik_input_async_register(c), 0);
  EXPECT_EQ(spy.selects, 1);
  EXPECT_EQ(sent_mask(), std::make_pair(0x0u, TLKO_INPUT)) << "the failed bit was not kept";
  for (auto *slot : c->async_info->reg) EXPECT_EQ(slot, nullptr);
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_LISTEN, EPERM);
  EXPECT_EQ(tarvik_input_async_register(c), 0);  // already there: nothing sent
  EXPECT_EQ(tarvik_error_async_register(c, nullptr, noop_handler), 0);  // same bit
}

TEST_F(ContextTest, HookedModeSelectsTheHooksDescriptor) {
  EvSpy spy;
  join_shared();
  ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_HOOKED), 0);
  int p[2];
  ASSERT_EQ(::pipe(p), 0);
  auto cb = [](evContext, void *, int, int) {};
  tarvik_event_hooks_t hooks{nullptr, nullptr, cb, p[0]};
  ASSERT_EQ(tlk_async_set_event_hooks(c, &hooks), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(c, nullptr, noop_handler), 0);
  EXPECT_EQ(spy.last, std::make_tuple(p[0], TLK_EV_READ | TLK_EV_EXCEPT, evFileFunc{cb}, c));
  tarvik_close(c);
  c = nullptr;
  ::close(p[0]);
  ::close(p[1]);
}

TEST_F(ContextTest, SubtypeRegistrationRules) {
  nocontext();
  EXPECT_EQ(tarvik_async_subtype_handler_register(c, 85, 0, 1, 24, 0, 0, 0, &r, nullptr), EINVAL);
  // A subtype at or past the count is refused, and both blocks go back.
  EXPECT_EQ(tarvik_async_subtype_handler_register(c, 85, 1, 1, 24, 0, 0, 0, &r, Recorder::handler),
            EINVAL);
  // Out of range type: refused by the setup routine; nothing stays allocated.
  EXPECT_EQ(tarvik_async_subtype_handler_register(c, 111, 0, 1, 24, 0, 0, 0, &r, Recorder::handler),
            EINVAL);
  ASSERT_EQ(tarvik_async_subtype_handler_register(c, 85, 2, 4, 30, 0, 0, 0, &r, Recorder::handler),
            0);
  // The slot is taken: another subtype of the same type, or the two single-entry families of
  // type 85, are quiet no-ops.
  EXPECT_EQ(tarvik_async_subtype_handler_register(c, 85, 1, 4, 30, 0, 0, 0, &r, Recorder::handler),
            0);
  EXPECT_EQ(tarvik_ifsclim_async_register(c, &r, Recorder::handler), 0);
  EXPECT_EQ(tarvik_ifstate_eochain_register(c, &r, Recorder::handler), 0);
  // Only subtype 2, at offset 30, reaches the handler.
  for (uint8_t sub = 0; sub < 4; ++sub) {
    Bytes m = raw(85, 8);
    m[30] = sub;
    ASSERT_TRUE(kernel.push(fd, m));
    tarvik_async_event_process(c);
  }
  ASSERT_EQ(r.heard.size(), 1u);
  EXPECT_EQ(r.heard[0].bytes[30], 2);
  // The teardown leaves the subtype tables on purpose; their records and every slot go.
  ASSERT_EQ(tarvik_async_subtype_handler_register(c, 47, 0, 3, 24, 1, 0x1000000, 0, &r,
                                                  Recorder::handler),
            0);
  close_abandoning(2);
}

// Both fill type 85's slot with one entry at offset 24, for every subtype value that fits it,
// and send no listen bit.
TEST_F(ContextTest, IfsclimAndEochainInstallTheSameSingleEntry) {
  for (auto reg : {tarvik_ifsclim_async_register, tarvik_ifstate_eochain_register}) {
    nocontext();
    Recorder heard;
    ASSERT_EQ(reg(c, &heard, Recorder::handler), 0);
    Bytes first = raw(85, 8), second = raw(85, 8, 1);
    first[24] = 0;
    second[24] = 1;  // past the one entry
    ASSERT_TRUE(kernel.push(fd, cat({first, second})));
    tarvik_async_event_process(c);
    EXPECT_EQ(heard.heard.size(), 1u);
    EXPECT_TRUE(log.contains("invalid subtype msg_type = 85 subtype offset=24"));
    EXPECT_FALSE(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_LISTEN).has_value());
    keep_abandoned(c);
    EXPECT_EQ(tarvik_destroy_async_context(c), 0);
    expect_abandoned(MEMID_TARVIK_ASYNC_REG, 1);
    log.lines.clear();
  }
}

}  // namespace
}  // namespace tlktest
