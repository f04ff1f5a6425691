// Replays every input under tests/regression through the envelope decoders.  Under the
// sanitizers (CI) a fault that came back would stop the test; everywhere, the decode must release
// whole.
// 64-bit directory offsets: a 32-bit build otherwise gets EOVERFLOW from readdir on filesystems
// with 64-bit hashes.
#define _FILE_OFFSET_BITS 64
#include <dirent.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

std::vector<uint8_t> read_file(const std::string &path) {
  std::vector<uint8_t> out;
  if (FILE *f = std::fopen(path.c_str(), "rb")) {
    uint8_t buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
  }
  return out;
}

// The frame as the fuzz target builds it from an input.
Bytes fuzz_frame(const Bytes &in) {
  if (in[0] & 2) return {in.begin() + 1, in.end()};
  return cat({frame_head((in[0] & 1) ? TLK_MAGIC_TLV : TLK_MAGIC_IDR,
                         static_cast<uint32_t>(in.size() - 2), in[1]),
              Bytes(in.begin() + 2, in.end())});
}

class RegressionTest : public OneSessionTest {};

TEST_F(RegressionTest, EveryRecordedInputDecodesSafely) {
  DIR *dir = opendir(TLK_REGRESSION_DIR);
  ASSERT_NE(dir, nullptr);
  int replayed = 0;
  while (dirent *e = readdir(dir)) {
    const std::string name = e->d_name;
    if (name.size() < 4 || name.substr(name.size() - 4) != ".bin") continue;
    const std::vector<uint8_t> in = read_file(std::string(TLK_REGRESSION_DIR) + "/" + name);
    ASSERT_GE(in.size(), 2u) << name;
    const Bytes frame = fuzz_frame(in);
    void *msg = nullptr, *mask = nullptr;
    if (tarvik_msg_idl_decode(c, frame.data(), frame.size(), &msg, &mask) == 0) {
      // Whatever decoded must encode again, when its header names its frame's type (the encoder
      // picks the record by that type), and release whole.
      if (static_cast<const tlk_hdr *>(msg)->tlkh_type == get_u32(frame.data(), 8)) {
        void *again = nullptr;
        size_t len = 0;
        EXPECT_EQ(tarvik_msg_idl_encode(c, msg, nullptr, &again, &len), 0) << name;
        tarvik_msg_free(c, again);
      }
      tarvik_msg_idl_release(c, msg, mask);
    }
    ++replayed;
  }
  closedir(dir);
  EXPECT_GE(replayed, 1);
}

}  // namespace
}  // namespace tlktest
