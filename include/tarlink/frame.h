/*
 * tarlink/frame.h - frames, the envelope, the message records and their codecs.
 *
 * A structured message crosses the socket as one frame: a 12-byte head and the record in one of
 * two generated encodings, TLV (sparse, under a presence map) or IDR (every field, flat).  This
 * header brings the records of the message schema (tarlink_records.h, generated at build time),
 * the envelope that turns a raw record into a frame and a frame into a decoded message in one
 * arena, and the framed read and write.  Every request of the library goes out in IDR.
 *
 * For example:
 *
 *   ifl_msg *req = tarvik_msg_malloc(c);         // a zeroed record behind its header
 *   req->iflm_hdr.tlkh_type = TLK_MSG_IFLOGICAL;  // ... version, op, lengths, keys
 *   void *reply = NULL, *mask = NULL;
 *   int err = tarvik_msg_write_idl(c, req, NULL); // IDR
 *   if (err == 0) err = tarvik_long_msg_read_idl(c, &reply, &mask);
 *   tarvik_msg_free(c, req);
 *   if (err == 0) use((ifl_msg *)reply), tarvik_msg_idl_release(c, reply, mask);
 */
#ifndef TARLINK_FRAME_H
#define TARLINK_FRAME_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Frames: the IDL envelope                                                                  */
/* ======================================================================================== */

/*
 * A structured message crosses the socket as one frame: a 12-byte head, then the record in TLV
 * (magic 0x5011) or IDR (magic 0x5022) form.
 *
 *    0        4                8             12
 *    +--------+----------------+-------------+------------------------+
 *    | magic  | payload length |    type     | record (payload length)|
 *    +--------+----------------+-------------+------------------------+
 */

/* Length of the frame last produced by tarvik_msg_idl_encode (a diagnostic; nothing reads it). */
extern TLK_EXPORT uint32_t tarvik_msglen;

/* Encodes a raw message into a new frame (freed with tarvik_msg_free): TLV under `mask` when it
 * is non-NULL, IDR otherwise.  0, or ENOMEM. */
TLK_EXPORT int tarvik_msg_idl_encode(tarvik_cookie *cookie, const void *rawmsg, const void *mask,
                                     void **out_buffer, size_t *out_length);
/* Decodes a frame into one new arena, released whole with tarvik_msg_idl_release.  0; EOPNOTSUPP
 * when the data is not a frame (a raw message); EINVAL or ENOMEM when the frame is bad. */
TLK_EXPORT int tarvik_msg_idl_decode(tarvik_cookie *cookie, const void *data, size_t length,
                                     void **out_msg, void **out_mask);
/* Gives back a decoded message (and its mask, which lives in the same arena). */
TLK_EXPORT void tarvik_msg_idl_release(tarvik_cookie *cookie, void *msg, void *mask);
/* Encodes into the caller's buffer, always IDR; *in_out_length becomes the frame's full size.
 * 0, ENOMEM when it did not fit, EINVAL for a NULL buffer or zero length. */
TLK_EXPORT int tarvik_msg_idl_encode_pa(tarvik_cookie *cookie, const void *rawmsg, void *buffer,
                                        size_t *in_out_length);
/* Decodes into the caller's area, with no growth and no retry. */
TLK_EXPORT int tarvik_msg_idl_decode_pa(tarvik_cookie *cookie, const void *data, size_t length,
                                        void **out_msg, void **out_mask, void *arena,
                                        size_t arena_size);
/* The whole length of the frame at `data` (word 1 + 12), or NULL under 8 bytes. */
TLK_EXPORT uint32_t *tarvik_idl_peek_length(uint32_t *out, const void *data, size_t length);
/* The first word of `data`, or NULL under 4 bytes. */
TLK_EXPORT uint32_t *tarvik_idl_peek_magic(uint32_t *out, const void *data, size_t length);

/* Encodes a raw message in place at the session's bulk write cursor (TLV under `mask`, IDR
 * without), into the room left in the send buffer; the cursor is not moved.  0 with the frame's
 * length, or ENOMEM with length 0 when it does not fit (nothing logged). */
TLK_EXPORT int tarvik_bulkmsg_idl_encode(tarvik_cookie *cookie, uint32_t *out_length,
                                         const void *rawmsg, const void *mask);
/* Decodes the frame at the session's bulk read cursor into a new arena, stored in *in_out_msg;
 * the cursor is not moved.  0 with the frame's length; on failure *in_out_msg is as it was. */
TLK_EXPORT int tarvik_bulkmsg_idl_decode(tarvik_cookie *cookie, uint32_t *out_decoded_length,
                                         void **in_out_msg, void **out_mask);

/* Appends an attachment to a raw message under construction.  The first call carves a list of
 * 128 pointer slots at *in_out_cursor (in the message's variable area) and advances the cursor.
 * 0; ENOMEM for the 129th attachment or a NULL cursor value; EINVAL for NULL arguments. */
TLK_EXPORT int tlkm_info_user_add(void *rawmsg, struct tlk_msg_info *info, void **in_out_cursor);

/* ---- Framed read and write ---- */

/* Encodes (IDR when `mask` is NULL, TLV under it otherwise) and writes one frame. */
TLK_EXPORT int tarvik_msg_write_idl(tarvik_cookie *cookie, const void *rawmsg, const void *mask);
/* Reads one message of up to 16384 bytes and decodes it: 0, the read's result, EINVAL for a
 * garbled frame, or the decoder's errno. */
TLK_EXPORT int tarvik_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask);
/* The same into the caller's area. */
TLK_EXPORT int tarvik_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask, void *area,
                                      size_t area_size);
/* Reads one message of any length and decodes it; decoder results are returned as they are. */
TLK_EXPORT int tarvik_long_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask);
/* The same into the caller's area: a decoder's errno reads as 0, a garbled frame as EINVAL. */
TLK_EXPORT int tarvik_long_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask,
                                           void *area, size_t area_size);

/* ======================================================================================== */
/* Record codecs                                                                             */
/* ======================================================================================== */

/*
 * For every record type X of the schema (tarlink_records.h):
 *   tlv_encode_X_0(record, map, buffer, length)    size needed; writes nothing at or past length
 *   tlv_decode_X_0(record, map, data, length[, alloc, context])
 *                                                  bytes consumed, or 0, -1, -2, -3
 *   tlv_release_X_0(record, map, release, context) gives back the decoder's allocations
 *   idr_encode_X_0, idr_decode_X_0, idr_release_X_0: the same without a map (not for TLV-only X)
 *   tlv_rtti_sizeof_X_0, tlv_rtti_sizeof_map_X_0, idr_rtti_sizeof_X_0: record and map sizes
 * A NULL map encodes every field; a decoder given a map sets the bit of every field it read.
 * Only decoders of records with allocating fields take the alloc arguments.
 */

/* Address family of the host -> number on the TLV wire; 254 and above are logged (LOG_CRIT)
 * and returned unchanged. */
TLK_EXPORT uint32_t tlk_encode_af(uint32_t family);
/* Number on the TLV wire -> address family of the host; 153 and above are logged and returned
 * unchanged. */
TLK_EXPORT uint32_t tlk_decode_af(uint32_t family);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_FRAME_H */
