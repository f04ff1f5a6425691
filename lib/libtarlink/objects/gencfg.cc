// Generic configuration operations: keyed blobs stored in the kernel.
//
// Every operation is one pass through tarvik_gencfg_op_export: checks in a fixed order,
// compression for add and change, one gencfg_msg request that holds only pointers into the
// caller's memory (blob, key, peers, dependencies), one write, and for get, getnext, add-and-get
// and change-and-get one read, decompression of a compressed reply, and the copy of the reply's
// fields back into the caller's record.  The allocator of the request, the sequence counter and
// the read and write layer can each be replaced by the caller.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/gencfg_blob.h"
#include "objects/request.h"

namespace {

using tlk::gencfg::kBlobMemid;

// The request is the fixed record alone (112 bytes on the target): everything variable stays in
// the caller's memory and is taken from there by the encoder.
constexpr uint32_t kMsgSize = sizeof(gencfg_msg);

bool is_read(uint32_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

// The checks that come before anything is compressed.
int check_record(tarvik_cookie *cookie, const gencfg_t &r, uint32_t op) {
  if (!is_read(op) && r.flags == 0) return EINVAL;  // a message that writes carries a flag
  if ((r.flags & TLK_GENCFG_DEPS) && (r.deps == nullptr || r.dep_count == 0)) return EINVAL;
  if (r.peer_count != 0 && r.peers == nullptr) return EINVAL;
  if ((r.flags & TLK_GENCFG_KEY) && r.key_len > TLK_GENCFG_KEY_MAX) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Gencfg blob key length (%u) is greater than %u bytes\n",
               static_cast<unsigned>(r.key_len), static_cast<unsigned>(TLK_GENCFG_KEY_MAX));
    return EINVAL;
  }
  return 0;
}

// The key rule, tested after compression.  A getnext may start from nothing: key_len 0 and no
// key.  Every other keyed op needs both, except a bulk delete, which may name no key at all.
bool key_ok(const gencfg_t &r, uint32_t op) {
  if ((r.flags & TLK_GENCFG_KEY) == 0) return true;
  if (op == TLK_OP_GETNEXT) return (r.key_len != 0) == (r.key != nullptr);
  if (r.flags & TLK_GENCFG_BULK_DELETE) return true;
  return r.key != nullptr && r.key_len != 0;
}

void fill_request(gencfg_msg *m, const gencfg_t &r, uint32_t op, uint32_t seq) {
  memset(m, 0, kMsgSize);
  tlk::request::fill_header(m->gencfg_hdr, TLK_MSG_GENCFG, op, static_cast<uint16_t>(kMsgSize),
                            kMsgSize, seq);
  m->major = r.major;
  m->minor = r.minor;
  m->sub_id = r.sub_id;
  m->tag = r.tag;
  m->peer_count = r.peer_count;
  m->peers = r.peers;
  m->flags = r.flags;
  if (r.flags & TLK_GENCFG_KEY) {
    m->key = r.key;
    m->key_len = r.key_len;
  }
  if (r.flags & TLK_GENCFG_DEPS) {
    m->deps = r.deps;
    m->dep_count = r.dep_count;
  }
  if (r.flags & TLK_GENCFG_KID) m->kid = r.kid;
  // The encoder follows a blob pointer for its length: both are sent, or neither.
  if (r.blob != nullptr && r.blob_len != 0) {
    m->blob = r.blob;
    m->blob_len = r.blob_len;
  }
  if (r.lrid != 0) m->lrid = r.lrid;
}

// The reply's fields into the caller's record; the pointers refer into the reply, which the
// caller keeps.  tag is not taken over.
void copy_reply(gencfg_t *r, const gencfg_msg &m) {
  r->blob = m.blob_len != 0 ? m.blob : nullptr;
  r->blob_len = m.blob_len;
  r->key = (m.flags & TLK_GENCFG_KEY) ? m.key : nullptr;
  r->deps = (m.flags & TLK_GENCFG_DEPS) ? m.deps : nullptr;
  r->major = m.major;
  r->minor = m.minor;
  r->key_len = static_cast<uint16_t>(m.key_len);
  r->dep_count = static_cast<uint16_t>(m.dep_count);
  r->kid = m.kid;
  r->flags = m.flags;
  r->sub_id = m.sub_id;
  r->peer_count = static_cast<uint8_t>(m.peer_count);
  r->peers = m.peers;
  r->lrid = m.lrid;
}

// After a reply was read: decompression, then the copy back.  Returns the result in force.
int take_reply(tarvik_cookie *cookie, gencfg_t *record, uint32_t op, uint32_t request_flags,
               int result, void **msg_out, void **mask_out) {
  auto *reply = (msg_out != nullptr) ? static_cast<gencfg_msg *>(*msg_out) : nullptr;
  if (result == 0 && reply != nullptr && (reply->flags & TLK_GENCFG_COMPRESSED) &&
      reply->blob_len != 0) {
    const int rc = tlk::gencfg::decompress_message(cookie, msg_out, mask_out);
    // A walk goes on past a blob it cannot read: the entry comes back with an empty blob.
    if (op != TLK_OP_GETNEXT) result = rc;
    reply = static_cast<gencfg_msg *>(*msg_out);
  }
  const bool copy = (result == 0 && is_read(op)) || (request_flags & TLK_GENCFG_BULK_DELETE);
  if (copy && reply != nullptr) copy_reply(record, *reply);
  return result;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_gencfg_op_export(tarvik_cookie *cookie, gencfg_t *record, uint32_t op,
                                       void **msg_out, void **mask_out, uint32_t *seq_counter,
                                       void *io_ctx, tarvik_gencfg_alloc_fn alloc_fn,
                                       tarvik_gencfg_free_fn free_fn,
                                       tarvik_gencfg_write_fn write_fn,
                                       tarvik_gencfg_read_fn read_fn) {
  if (record == nullptr) return EINVAL;
  int result = check_record(cookie, *record, op);
  if (result != 0) return result;

  uint8_t *original_blob = nullptr;
  uint32_t original_len = 0;
  const bool compressed =
      (op == TLK_OP_ADD || op == TLK_OP_CHANGE) && (record->flags & TLK_GENCFG_COMPRESSED);
  if (compressed) {
    result = tlk::gencfg::compress_record_blob(cookie, record, &original_blob, &original_len);
    if (result != 0) return result;
  }
  auto restore_blob = [&] {
    if (!compressed) return;
    tarvik_free(kBlobMemid, record->blob);
    record->blob = original_blob;
    record->blob_len = original_len;
  };

  if (record->blob_len >= TLK_GENCFG_WIRE_MAX) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Gencfg blob is too large (%d bytes)\n",
               static_cast<int>(record->blob_len));
    restore_blob();
    return ENOSPC;
  }
  // From here a failure before the write leaves a compressed copy in the caller's record, not
  // freed: callers that compress must set a valid key, and the routine has always stood so.
  if (!key_ok(*record, op)) return EINVAL;
  // The pieces of the request helper one by one rather than Request<gencfg_msg>: the block is the
  // record's own size or the caller's, and the caller may replace the counter and the I/O.
  void *raw = alloc_fn != nullptr ? alloc_fn(kMsgSize) : tarvik_size_alloc(cookie, kMsgSize);
  if (raw == nullptr) return ENOMEM;

  auto *request = static_cast<gencfg_msg *>(raw);
  uint32_t seq = 0;
  if (seq_counter != nullptr) {
    seq = ++*seq_counter;
  } else if (cookie != nullptr) {
    seq = tlk::request::next_seq(cookie);
  }
  fill_request(request, *record, op, seq);
  const uint32_t request_flags = record->flags;

  result = write_fn != nullptr ? write_fn(io_ctx, request)
                               : tlk::request::write_framed(cookie, request).code();
  if (result == 0 && tlk::request::op_expects_reply(op)) {
    result = read_fn != nullptr ? read_fn(io_ctx, msg_out, mask_out)
                                : tlk::request::read_framed(cookie, msg_out, mask_out).code();
    result = take_reply(cookie, record, op, request_flags, result, msg_out, mask_out);
  }

  if (free_fn != nullptr) {
    free_fn(request);
  } else {
    tarvik_msg_free(cookie, request);
  }
  restore_blob();
  return result;
}

TLK_EXPORT int tarvik_gencfg_add(tarvik_cookie *cookie, gencfg_t *record) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_ADD, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_change(tarvik_cookie *cookie, gencfg_t *record) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_CHANGE, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_delete(tarvik_cookie *cookie, gencfg_t *record) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_DELETE, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_get(tarvik_cookie *cookie, gencfg_t *record, uint32_t op,
                                 void **msg_out, void **mask_out) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, op, msg_out, mask_out, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_add_and_get(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                         void **mask_out) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_ADD_GET, msg_out, mask_out, nullptr,
                                 nullptr, nullptr, nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_change_and_get(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                            void **mask_out) {
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_CHG_GET, msg_out, mask_out, nullptr,
                                 nullptr, nullptr, nullptr, nullptr, nullptr);
}

// The flag is set in the caller's record before anything else and stays there: a later
// operation on the same record is a bulk delete's sibling unless the caller clears it.
TLK_EXPORT int tarvik_gencfg_bulk_delete(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                         void **mask_out) {
  if (record != nullptr) record->flags |= TLK_GENCFG_BULK_DELETE;
  if (cookie == nullptr) return EINVAL;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_CHG_GET, msg_out, mask_out, nullptr,
                                 nullptr, nullptr, nullptr, nullptr, nullptr);
}

TLK_EXPORT int tarvik_gencfg_delete_prefix_key(tarvik_cookie *cookie, gencfg_t *record,
                                               void **msg_out, void **mask_out) {
  if (record == nullptr) return EINVAL;
  if (record->flags & TLK_GENCFG_KID) return EOPNOTSUPP;  // a number has no prefix
  if (cookie == nullptr) return EINVAL;
  record->flags |= TLK_GENCFG_PREFIX_DELETE;
  return tarvik_gencfg_op_export(cookie, record, TLK_OP_CHG_GET, msg_out, mask_out, nullptr,
                                 nullptr, nullptr, nullptr, nullptr, nullptr);
}

}  // extern "C"
