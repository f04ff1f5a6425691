#include "async_support.h"

#include <string.h>
#include <unistd.h>

#include "platform/platform.h"

namespace tlktest {

int Recorder::handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  auto *r = static_cast<Recorder *>(arg);
  const auto *b = static_cast<const uint8_t *>(msg);
  Heard h{};
  h.type = b[5];
  h.op = b[6];
  h.seq = get_u32(b, 12);
  h.msglen = get_u32(b, 8);
  h.bytes.assign(b, b + h.msglen);
  r->heard.push_back(std::move(h));
  tarvik_msg_free(cookie, msg);
  if (r->break_after != 0 && r->heard.size() >= r->break_after) tlk_ev_break(r->break_ctx);
  return 0;
}

std::vector<uint8_t> Recorder::types() const {
  std::vector<uint8_t> out;
  for (const auto &h : heard) out.push_back(h.type);
  return out;
}

std::string kind_name(Kind k) {
  static const char *const kNames[] = {"Own", "Shared", "NoContext"};
  return kNames[static_cast<int>(k)];
}

int make_async(tarvik_cookie *cookie, Kind kind, evContext shared) {
  switch (kind) {
    case Kind::Own:
      return tarvik_create_async_context(cookie);
    case Kind::Shared:
      return tarvik_set_async_context(cookie, shared);
    case Kind::NoContext:
      return tarvik_set_async_info_nocontext(cookie, nullptr);
  }
  return -1;
}

namespace {

struct Marker {
  int pipe_rd;
  evFileID id;
};

void marker_cb(evContext ctx, void *uap, int, int) {
  auto *m = static_cast<Marker *>(uap);
  tlk_ev_deselect_fd(ctx, m->id);
  tlk_ev_break(ctx);
}

}  // namespace

int drive(tarvik_cookie *cookie, Kind kind) {
  if (kind == Kind::NoContext) return tarvik_async_event_process(cookie);
  evContext ctx{};
  if (tarvik_get_async_context(cookie, &ctx) != 0) return -1;
  int p[2];
  if (::pipe(p) != 0) return -1;
  (void)!::write(p[1], "x", 1);
  Marker m{p[0], {}};
  // Selected after the session, so the session's callback runs first in the turn.
  tlk_ev_select_fd(ctx, p[0], TLK_EV_READ, marker_cb, &m, &m.id);
  const int result = kind == Kind::Own ? tarvik_async_event_loop(cookie) : tlk_ev_main_loop(ctx);
  ::close(p[0]);
  ::close(p[1]);
  return result;
}

void keep_abandoned(tarvik_cookie *cookie) {
  // Never destroyed: the leak check runs after static destructors.
  static auto *kept = new std::vector<void *>;
  if (cookie == nullptr || cookie->async_info == nullptr) return;
  tarvik_async_info_t *info = cookie->async_info;
  if (info->reg[TLK_NUM_MSG_TYPES] != nullptr) kept->push_back(info->reg[TLK_NUM_MSG_TYPES]);
  for (unsigned t = 0; t <= TLK_ASYNC_MAX_TYPE; ++t) {
    tarvik_async_reg_t *slot = info->reg[t];
    if (slot != nullptr && slot->handler == tarvik_async_subtype_handler) {
      kept->push_back(static_cast<tarvik_async_subtype_info_t *>(slot->arg)->table);
    }
  }
}

void AsyncTest::SetUp() {
  SimTest::SetUp();
  c = open_session();
  ASSERT_NE(c, nullptr);
  fd = tarvik_getsockfd(c);
}

void AsyncTest::TearDown() {
  tarvik_async_set_io_debug(0);
  tarvik_close(c);
  if (shared.opaque != nullptr) {
    EXPECT_EQ(tlk_ev_destroy(shared), 0);
  }
  SimTest::TearDown();
}

void AsyncTest::join_shared() {
  ASSERT_EQ(tlk_ev_create(&shared), 0);
  ASSERT_EQ(tarvik_set_async_context(c, shared), 0);
}

void AsyncTest::close_abandoning(int32_t n) {
  keep_abandoned(c);
  tarvik_close(c);
  c = nullptr;
  expect_abandoned(MEMID_TARVIK_ASYNC_REG, n);
}

tarsim::Bytes raw_note(uint8_t type, uint8_t op, size_t body, uint8_t fill) {
  return tarsim::raw_message(type, op, 0, tarsim::Bytes(body, fill));
}

}  // namespace tlktest
