/*
 * tarsim/capture.h - capture files: messages that crossed a routing socket, saved for later.
 *
 * The simulated kernel saves its traffic record in this form (Kernel::save_record,
 * tarsim_save_record), `tlkctl monitor --save` writes what it hears in it, and `tlkctl decode`
 * reads it back as trace lines.  Plain C, so that a daemon in C can write one too.
 *
 * Layout, version 1.  Every integer is little-endian; nothing is padded or aligned.
 *
 *   File header, 16 bytes:
 *    0        4        6        8                                 16
 *    +--------+--------+--------+---------------------------------+
 *    | "TLKC" | version| hdrlen |   start: ns since the epoch     |
 *    +--------+--------+--------+---------------------------------+
 *      magic    u16 = 1  u16 >= 16   u64 (CLOCK_REALTIME)
 *   A reader skips header bytes beyond the 16 it knows (hdrlen counts them all).
 *
 *   Then records, one per message as it crossed the socket, each a 20-byte head and the bytes:
 *    0     1     2        4             8                     16         20
 *    +-----+-----+--------+-------------+---------------------+----------+-------------
 *    | dir |  0  |   0    |  session    |  time: ns since     |  length  | bytes (length)
 *    |     |     |        |  (i32)      |  start (u64)        |  (u32)   |
 *    +-----+-----+--------+-------------+---------------------+----------+-------------
 *   dir: 1 written by the library (to the kernel), 2 queued by the kernel (to the library).
 *   Bytes 1 to 3 are zero in version 1.  session: the library's descriptor of the session.
 *   length: at most TARSIM_CAPTURE_MAX_LENGTH.  One record may hold several messages back to
 *   back: a read of packed notifications or bulk replies is one record.
 *
 * The file ends after the last record: no trailer, so a capture that a writer didn't close
 * (a monitor killed) is still good up to its last whole record.
 */
#ifndef TARSIM_CAPTURE_H
#define TARSIM_CAPTURE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef TARSIM_API
#define TARSIM_API __attribute__((visibility("default")))
#endif

#define TARSIM_CAPTURE_MAGIC "TLKC"
#define TARSIM_CAPTURE_VERSION 1
#define TARSIM_CAPTURE_HEADER_SIZE 16
#define TARSIM_CAPTURE_RECORD_HEAD_SIZE 20
/* The largest message a record may hold: a bulk block of the largest socket buffer and more. */
#define TARSIM_CAPTURE_MAX_LENGTH (64u << 20)

#define TARSIM_CAPTURE_TO_KERNEL 1
#define TARSIM_CAPTURE_FROM_KERNEL 2

/* One record as the reader gives it: `bytes` points into the reader's data. */
typedef struct tarsim_capture_message {
  uint8_t direction;    /* TARSIM_CAPTURE_TO_KERNEL or TARSIM_CAPTURE_FROM_KERNEL */
  int32_t session;      /* the library's descriptor of the session */
  uint64_t time_ns;     /* since the capture's start */
  const uint8_t *bytes; /* `length` bytes */
  uint32_t length;
} tarsim_capture_message;

/* Reads a capture held in memory; every field of every record is checked against the data. */
typedef struct tarsim_capture_reader {
  const uint8_t *data;
  size_t size;
  size_t offset;     /* of the next record */
  uint64_t start_ns; /* the header's start, ns since the epoch */
  uint64_t count;    /* records given so far */
  char error[160];   /* one line, without a newline, after a result of -1 */
} tarsim_capture_reader;

/* Checks the header of `size` bytes at `data` (kept, not copied): 0, or -1 with reader->error
 * ("not a capture file", "capture version N is not supported", a truncated header). */
TARSIM_API int tarsim_capture_reader_init(tarsim_capture_reader *reader, const void *data,
                                          size_t size);
/* The next record: 1 and *out filled, 0 at the clean end of the data, or -1 with reader->error
 * (a truncated record, a length beyond the data or the limit, an unknown direction, nonzero
 * reserved bytes); after -1 every call gives -1 again. */
TARSIM_API int tarsim_capture_next(tarsim_capture_reader *reader, tarsim_capture_message *out);

/* Writes a capture to a stream.  Write errors are kept (the first errno) and reported once, by
 * tarsim_capture_writer_close. */
typedef struct tarsim_capture_writer {
  FILE *file;
  uint64_t start_ns;
  uint64_t count; /* records written */
  int error;
} tarsim_capture_writer;

/* Creates (or truncates) `path` and writes the header with `start_ns` (ns since the epoch):
 * 0, or the errno of the failure. */
TARSIM_API int tarsim_capture_writer_open(tarsim_capture_writer *writer, const char *path,
                                          uint64_t start_ns);
/* Appends one record; `when_ns` is ns since the epoch (a time before the start is written as
 * 0).  0, or EINVAL for a bad direction or a length above the limit, or the kept errno. */
TARSIM_API int tarsim_capture_write(tarsim_capture_writer *writer, int direction, int32_t session,
                                    uint64_t when_ns, const void *bytes, size_t length);
/* Flushes and closes: 0, or the first errno met since the open. */
TARSIM_API int tarsim_capture_writer_close(tarsim_capture_writer *writer);

#ifdef __cplusplus
}
#endif

#endif /* TARSIM_CAPTURE_H */
