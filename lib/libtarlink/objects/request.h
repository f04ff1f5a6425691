// The request-reply helper that every object family builds its operations on.
//
// An operation builds one request from its arguments, sends it on the session's socket and, if
// it expects an answer, reads the next message on the socket as the reply.  There is no
// pending-request table, no timer and no retry.  Three shapes cover the families:
//
//   framed   a record (Request<R>) written in IDR, the reply read whole and decoded into one
//            arena (exchange), or no reply at all (send);
//   raw      a byte layout written as it stands, tlkh_msglen bytes (raw_send), the reply read
//            into a message block (raw_exchange) or into a block of its own length
//            (raw_exchange_long);
//   no reply the same writes, without the read: the write's result is the operation's.
//
// A framed get, start to end:
//
//   if (out != nullptr) *out = nullptr;
//   if (cookie == nullptr || out == nullptr) return EINVAL;
//   tlk::request::Request<ifl_msg> req(cookie, TLK_MSG_IFLOGICAL, op, tlk::request::Seq::kDraw);
//   if (!req) return ENOMEM;
//   req->iflm_index.idx = index;
//   return tlk::request::exchange(req, out, mask).code();
//
// Inside, results are Status values, which the compiler won't let a caller drop; at the C
// boundary an operation returns Status::code(), the documented value: 0, an errno value, or -2
// for a sequence mismatch on a raw reply.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "tarlink.h"

namespace tlk::request {

// ---- Results ----

// The outcome of a step: 0, or the code the operation gives back at the C boundary.
class [[nodiscard]] Status {
 public:
  constexpr Status(int code = 0) : code_(code) {}  // implicit: a C result converts as it is
  [[nodiscard]] constexpr bool ok() const { return code_ == 0; }
  [[nodiscard]] constexpr int code() const { return code_; }

 private:
  int code_;
};

// ---- Headers and sequence numbers ----

// Whether tlkh_seq takes the session's next number (the kernel copies it into the reply) or
// stays 0 (fire and forget: nothing answers, so nothing takes part in the sequence check).
enum class Seq { kDraw, kZero };

// Advances the session's counter and gives the new value.
uint32_t next_seq(tarvik_cookie *cookie);

// Fills what every framed request sets in its header: the type's expected version letter
// (TARVIK_VERSION_TABLE) and the type, the op, the fixed record's length, the message length, the
// sequence number, and tlkh_id 0.  Flags, aux bytes and attachments are left as they are.
void fill_header(tlk_hdr &h, tlk_msg_type type, uint32_t op, uint16_t fixedlen, uint32_t msglen,
                 uint32_t seq);

// The same for a raw layout at `msg` (zeroed by the caller): version, type, op, seq and fixedlen,
// and tlkh_msglen = fixedlen + the variable part padded to 4 (raw_var_len).  Returns tlkh_msglen,
// which is also how many bytes raw_send writes.
uint32_t fill_raw_header(uint8_t *msg, tlk_msg_type type, uint32_t op, uint32_t seq,
                         uint16_t fixedlen, uint32_t var_len);

// Whether an op is answered with one message: get, getnext, add_get and chg_get.
constexpr bool op_expects_reply(uint32_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT || op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET;
}

// Copies `name` to `at` (in the request's variable area), cut silently at `max_chars` characters,
// and its end byte; points *field at the copy and stores the length with the end byte in *length.
// Returns the bytes used at `at`.
size_t put_name(uint8_t *at, const char *name, size_t max_chars, uint8_t **field, uint32_t *length);

// Stores NULL in the out arguments that were given.
void clear_outs(void **out, void **mask = nullptr);

// Registers `handler` for the statistics notifications of `type` if the product's model (the
// second u16 of the platform's product record) passes `accepted`: EINVAL without a product
// record, session, handler or asynchronous context; EOPNOTSUPP for a model not accepted.
int register_for_model(tarvik_cookie *cookie, uint8_t type, void *arg,
                       tarvik_async_handler_t handler, bool (*accepted)(uint16_t model));

// ---- Owned blocks ----

// A zero-filled message block of TLK_MSG_BUF_SIZE bytes (tarvik_msg_malloc), freed when the
// holder goes unless released.  Test it after construction: a null block is ENOMEM.  With
// `allocate` false the holder starts empty (an optional reply).
class Block {
 public:
  explicit Block(tarvik_cookie *cookie, bool allocate = true);
  ~Block() { free_now(); }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;

  explicit operator bool() const { return block_ != nullptr; }
  tarvik_cookie *cookie() const { return cookie_; }
  uint8_t *bytes() const { return static_cast<uint8_t *>(block_); }
  // Gives up ownership (the block becomes the caller's reply).
  [[nodiscard]] void *release();
  void free_now();

 private:
  tarvik_cookie *cookie_;
  void *block_;
};

// A decoded reply held for the length of an operation (the read of a read-modify-write), released
// with tarvik_msg_idl_release when the holder goes.
class Reply {
 public:
  explicit Reply(tarvik_cookie *cookie) : cookie_(cookie) {}
  ~Reply() { tarvik_msg_idl_release(cookie_, msg_, nullptr); }
  Reply(const Reply &) = delete;
  Reply &operator=(const Reply &) = delete;

  void **out() { return &msg_; }  // where a read stores the message
  template <typename R>
  const R *as() const {
    return static_cast<const R *>(msg_);
  }

 private:
  tarvik_cookie *cookie_;
  void *msg_ = nullptr;
};

// A framed request: a message block holding record R, whose header is filled at construction
// (type, op, fixed length and message length sizeof(R), the sequence number by `seq`).  The
// variable data of the request goes behind the fixed record, where the record's pointers may
// point: the encoder follows them.  Test it after construction: false is ENOMEM, and then no
// sequence number was drawn.
template <typename R>
class Request {
  static_assert(std::is_standard_layout_v<R>, "a record starts with its tlk_hdr");

 public:
  Request(tarvik_cookie *cookie, tlk_msg_type type, uint32_t op, Seq seq) : block_(cookie) {
    if (!block_) return;
    fill_header(header(), type, op, static_cast<uint16_t>(sizeof(R)), sizeof(R),
                seq == Seq::kDraw ? next_seq(cookie) : 0);
  }

  explicit operator bool() const { return static_cast<bool>(block_); }
  R *operator->() const { return get(); }
  R &operator*() const { return *get(); }
  R *get() const { return reinterpret_cast<R *>(block_.bytes()); }
  tlk_hdr &header() const { return *reinterpret_cast<tlk_hdr *>(block_.bytes()); }
  // The first byte behind the fixed record, and the end of the block.
  uint8_t *variable_area() const { return block_.bytes() + sizeof(R); }
  uint8_t *block_end() const { return block_.bytes() + TLK_MSG_BUF_SIZE; }
  tarvik_cookie *cookie() const { return block_.cookie(); }
  void free_now() { block_.free_now(); }

 private:
  Block block_;
};

// ---- Framed exchanges ----

// How a framed reply is read: any length (tarvik_long_msg_read_idl), or at most
// TLK_MSG_BUF_SIZE bytes where the reply is known to fit (tarvik_msg_read_idl).
enum class Read { kLong, kFixed };

// Encodes `msg` in IDR and writes it (tarvik_msg_write_idl): 0 or the encoder's or write's code.
Status write_framed(tarvik_cookie *cookie, const void *msg);
// Reads one framed reply into *out (and its presence map into *mask for a TLV reply).
Status read_framed(tarvik_cookie *cookie, void **out, void **mask, Read read = Read::kLong);

// Writes the request and, if that gave 0, reads the reply.  The request is freed on every path;
// on failure *out (and *mask) are NULL.
template <typename R>
Status exchange(Request<R> &req, void **out, void **mask, Read read = Read::kLong) {
  Status status = write_framed(req.cookie(), req.get());
  if (status.ok()) status = read_framed(req.cookie(), out, mask, read);
  req.free_now();
  if (!status.ok()) clear_outs(out, mask);
  return status;
}

// Writes the request; nothing is read.  The request is freed.
template <typename R>
Status send(Request<R> &req) {
  const Status status = write_framed(req.cookie(), req.get());
  req.free_now();
  return status;
}

// ---- Raw exchanges ----

// Writes the raw message at `msg`, tlkh_msglen bytes, in one write: 0 or the write's errno.
Status raw_send(tarvik_cookie *cookie, const void *msg);

// Writes the raw request at `request` and, if that gave 0, reads the reply (at most
// TLK_MSG_BUF_SIZE bytes) into `reply`, which may be the request's own block.  On success *out
// takes the reply block; on failure the block is freed and *out is NULL.  With an empty `reply`
// nothing is read and *out is NULL.
Status raw_exchange(tarvik_cookie *cookie, const void *request, Block &reply, void **out);

// Writes the raw request in `request`, frees it, and if the write gave 0 reads the reply, of any
// length, into a block of its own (tarvik_long_msg_read), which *out takes.  On failure *out is
// NULL and nothing stays allocated (a reply that fails the sequence check is freed).
Status raw_exchange_long(Block &request, void **out);

}  // namespace tlk::request
