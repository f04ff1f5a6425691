// Capture files: the writer and reader round trip, the kernel's record saved and read back, the
// reader at every truncation length and on headers and records that lie.
#include "tarsim/capture.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

struct Message {
  int direction;
  int32_t session;
  uint64_t when_ns;
  Bytes bytes;
  bool operator==(const Message &) const = default;
};

// A path of the test's own, removed with it.
class TempPath {
 public:
  TempPath() {
    char tmpl[] = "/tmp/capture-test-XXXXXX";
    const int fd = mkstemp(tmpl);
    EXPECT_GE(fd, 0);
    if (fd >= 0) close(fd);
    path_ = tmpl;
  }
  ~TempPath() { unlink(path_.c_str()); }
  const char *c_str() const { return path_.c_str(); }

 private:
  std::string path_;
};

Bytes read_all(const char *path) {
  std::ifstream f(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}

constexpr uint64_t kStart = 1'700'000'000'000'000'000ull;

// Four messages of varied size, an empty one among them, both directions.
std::vector<Message> sample() {
  return {
      {TARSIM_CAPTURE_TO_KERNEL, 4, kStart + 10,
       tarsim::raw_message(2, TLK_OP_ADD, 7, Bytes(8, 1))},
      {TARSIM_CAPTURE_FROM_KERNEL, 4, kStart + 2000, tarsim::raw_message(2, TLK_OP_ADD, 7)},
      {TARSIM_CAPTURE_FROM_KERNEL, -1, kStart + 3'000'000'000ull, Bytes{}},
      {TARSIM_CAPTURE_TO_KERNEL, 9, kStart + 3'000'000'001ull, Bytes(300, 0xab)},
  };
}

Bytes write_capture(const std::vector<Message> &messages) {
  TempPath path;
  tarsim_capture_writer w;
  EXPECT_EQ(tarsim_capture_writer_open(&w, path.c_str(), kStart), 0);
  for (const Message &m : messages)
    EXPECT_EQ(
        tarsim_capture_write(&w, m.direction, m.session, m.when_ns, m.bytes.data(), m.bytes.size()),
        0);
  EXPECT_EQ(w.count, messages.size());
  EXPECT_EQ(tarsim_capture_writer_close(&w), 0);
  return read_all(path.c_str());
}

// Everything the reader gives for `data`: the messages, and its error (empty at a clean end).
struct ReadBack {
  std::vector<Message> messages;
  std::string error;
  bool opened = false;
};
ReadBack read_back(const Bytes &data) {
  ReadBack out;
  tarsim_capture_reader r;
  if (tarsim_capture_reader_init(&r, data.data(), data.size()) != 0) {
    out.error = r.error;
    return out;
  }
  out.opened = true;
  tarsim_capture_message m;
  int got;
  while ((got = tarsim_capture_next(&r, &m)) == 1) {
    out.messages.push_back(
        {m.direction, m.session, kStart + m.time_ns, Bytes(m.bytes, m.bytes + m.length)});
  }
  if (got < 0) {
    out.error = r.error;
    EXPECT_EQ(tarsim_capture_next(&r, &m), -1);  // a failed reader stays failed
  }
  return out;
}

TEST(Capture, WhatTheWriterWritesTheReaderGivesBack) {
  const std::vector<Message> want = sample();
  const Bytes file = write_capture(want);
  size_t expected_size = TARSIM_CAPTURE_HEADER_SIZE;
  for (const Message &m : want) expected_size += TARSIM_CAPTURE_RECORD_HEAD_SIZE + m.bytes.size();
  ASSERT_EQ(file.size(), expected_size);
  EXPECT_EQ(memcmp(file.data(), "TLKC\x01\x00\x10\x00", 8), 0);  // magic, version 1, 16 bytes

  const ReadBack got = read_back(file);
  EXPECT_EQ(got.error, "");
  EXPECT_EQ(got.messages, want);

  // Times before the start are written as the start.
  const Bytes early = write_capture({{TARSIM_CAPTURE_TO_KERNEL, 1, kStart - 5, Bytes(3, 2)}});
  EXPECT_EQ(read_back(early).messages,
            (std::vector<Message>{{TARSIM_CAPTURE_TO_KERNEL, 1, kStart, Bytes(3, 2)}}));
}

TEST(Capture, TheWriterRefusesWhatTheReaderWouldRefuse) {
  TempPath path;
  tarsim_capture_writer w;
  ASSERT_EQ(tarsim_capture_writer_open(&w, path.c_str(), kStart), 0);
  const uint8_t b = 0;
  EXPECT_EQ(tarsim_capture_write(&w, 3, 1, kStart, &b, 1), EINVAL);
  EXPECT_EQ(tarsim_capture_write(&w, TARSIM_CAPTURE_TO_KERNEL, 1, kStart, nullptr, 4), EINVAL);
  EXPECT_EQ(tarsim_capture_write(&w, TARSIM_CAPTURE_TO_KERNEL, 1, kStart, &b,
                                 size_t{TARSIM_CAPTURE_MAX_LENGTH} + 1),
            EINVAL);
  EXPECT_EQ(w.count, 0u);
  EXPECT_EQ(tarsim_capture_writer_close(&w), 0);
  EXPECT_EQ(read_all(path.c_str()).size(), size_t{TARSIM_CAPTURE_HEADER_SIZE});
  EXPECT_EQ(tarsim_capture_writer_open(&w, "/nonexistent-dir/x", kStart), ENOENT);
}

// Cut after every byte: the reader gives the messages wholly before the cut and no more; a cut
// inside the header or a record is an error that says so, a cut at a record boundary a clean end.
TEST(Capture, EveryTruncationGivesTheMessagesBeforeTheCutOrAClearError) {
  const std::vector<Message> want = sample();
  const Bytes file = write_capture(want);
  std::vector<size_t> ends;  // where each record ends
  size_t end = TARSIM_CAPTURE_HEADER_SIZE;
  for (const Message &m : want)
    ends.push_back(end += TARSIM_CAPTURE_RECORD_HEAD_SIZE + m.bytes.size());

  for (size_t cut = 0; cut <= file.size(); ++cut) {
    SCOPED_TRACE("cut at " + std::to_string(cut));
    const ReadBack got = read_back(Bytes(file.begin(), file.begin() + cut));
    if (cut < TARSIM_CAPTURE_HEADER_SIZE) {
      EXPECT_FALSE(got.opened);
      EXPECT_NE(got.error.find(cut < 4 ? "not a capture file" : "truncated capture header"),
                std::string::npos)
          << got.error;
      continue;
    }
    size_t whole = 0;
    while (whole < ends.size() && ends[whole] <= cut) ++whole;
    EXPECT_EQ(got.messages, std::vector<Message>(want.begin(), want.begin() + whole));
    const bool at_boundary =
        cut == TARSIM_CAPTURE_HEADER_SIZE || (whole > 0 && ends[whole - 1] == cut);
    if (at_boundary) {
      EXPECT_EQ(got.error, "");
    } else {
      const size_t record_start = whole == 0 ? TARSIM_CAPTURE_HEADER_SIZE : ends[whole - 1];
      const bool in_head = cut - record_start < TARSIM_CAPTURE_RECORD_HEAD_SIZE;
      EXPECT_NE(got.error.find(in_head ? "truncated record head" : "runs past the end"),
                std::string::npos)
          << got.error;
      EXPECT_NE(got.error.find("message " + std::to_string(whole + 1) + " "), std::string::npos)
          << got.error;
    }
  }
}

// Headers and records that lie, one field at a time, each with the words of its error.
TEST(Capture, DamagedFieldsAreRefusedWithTheirReason) {
  const Bytes good = write_capture(sample());
  const size_t second = TARSIM_CAPTURE_HEADER_SIZE + TARSIM_CAPTURE_RECORD_HEAD_SIZE +
                        sample()[0].bytes.size();  // the second record's head
  const struct {
    size_t offset;  // into the sample capture
    std::vector<uint8_t> bytes;
    const char *error;
    size_t messages_before;
  } cases[] = {
      {0, {'P', 'K'}, "not a capture file (no \"TLKC\" magic)", 0},
      {4, {2, 0}, "capture version 2 is not supported", 0},
      {4, {0, 0}, "capture version 0 is not supported", 0},
      {6, {15, 0}, "header length 15 is below 16", 0},
      {6, {0xff, 0xff}, "runs past the end of the file", 0},
      {second, {0}, "message 2 at offset 68: unknown direction 0", 1},
      {second, {3}, "unknown direction 3", 1},
      {second + 2, {1}, "reserved bytes are not zero", 1},
      {second + 16, {0xf0, 0xff, 0x00, 0x00}, "length 65520 runs past the end of the file", 1},
      {second + 16, {0xff, 0xff, 0xff, 0xff}, "length 4294967295 is above the limit", 1},
      // One byte too many: the third record's head is read a byte late.
      {second + 16, {25, 0, 0, 0}, "message 3 at offset", 2},
  };
  for (const auto &d : cases) {
    SCOPED_TRACE(d.error);
    Bytes bad = good;
    std::copy(d.bytes.begin(), d.bytes.end(), bad.begin() + static_cast<std::ptrdiff_t>(d.offset));
    const ReadBack got = read_back(bad);
    EXPECT_NE(got.error.find(d.error), std::string::npos) << got.error;
    EXPECT_EQ(got.messages.size(), d.messages_before);
    EXPECT_EQ(got.error.find('\n'), std::string::npos);
  }
  // A longer header is no damage: it is skipped.
  Bytes longer = good;
  longer[6] = 20;  // four header bytes more, then the records
  longer.insert(longer.begin() + TARSIM_CAPTURE_HEADER_SIZE, {9, 9, 9, 9});
  const ReadBack got = read_back(longer);
  EXPECT_EQ(got.error, "");
  EXPECT_EQ(got.messages, sample());
}

// The kernel's record saved: every message both ways, in order, with its session and times
// relative to the first.
TEST_F(OneSessionTest, TheKernelsRecordSavesAsACaptureOfEveryMessage) {
  kernel.record(true);
  kernel.reply_raw(26, TLK_OP_GET, tarsim::raw_message(26, TLK_OP_GET, 0, Bytes(16, 3)));
  for (uint32_t i = 0; i < 3; ++i) {
    const Bytes req = tarsim::raw_message(26, TLK_OP_GET, 100 + i, Bytes(12, 0));
    ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  }
  const std::vector<tarsim::Recorded> &rec = kernel.recorded();
  ASSERT_EQ(rec.size(), 6u);
  TempPath path;
  ASSERT_EQ(kernel.save_record(path.c_str()), 0);
  const Bytes file = read_all(path.c_str());
  tarsim_capture_reader r;
  ASSERT_EQ(tarsim_capture_reader_init(&r, file.data(), file.size()), 0) << r.error;
  EXPECT_EQ(r.start_ns, rec.front().when_ns);
  tarsim_capture_message m;
  for (const tarsim::Recorded &want : rec) {
    ASSERT_EQ(tarsim_capture_next(&r, &m), 1) << r.error;
    EXPECT_EQ(m.direction, want.to_kernel ? TARSIM_CAPTURE_TO_KERNEL : TARSIM_CAPTURE_FROM_KERNEL);
    EXPECT_EQ(m.session, tarvik_getsockfd(c));
    EXPECT_EQ(m.time_ns, want.when_ns - rec.front().when_ns);
    EXPECT_EQ(Bytes(m.bytes, m.bytes + m.length), want.bytes);
  }
  EXPECT_EQ(tarsim_capture_next(&r, &m), 0);
  EXPECT_NE(kernel.save_record("/nonexistent-dir/capture"), 0);
}

}  // namespace
}  // namespace tlktest
