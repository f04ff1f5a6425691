// Writes a seed corpus for the codec fuzz target: for every record type, random records encoded
// in TLV (with and without map) and IDR.  Each file is: type index, mode (0 TLV, 1 TLV with map,
// 2 IDR), then the encoded record.
#include <cstdio>
#include <string>
#include <vector>

#include "codec_support.h"
#include "idl/engine.h"

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const auto &records = codec_test::all_records();
  std::mt19937 rng(2024);
  int written = 0;
  for (size_t t = 0; t < records.size(); ++t) {
    const tlk::idl::Record &r = *records[t];
    for (int k = 0; k < 6; ++k) {
      int mode = k % 3;
      if (mode == 2 && !r.has_idr) continue;
      codec_test::Pool pool;
      std::vector<uint8_t> rec(r.size), map(r.map_size);
      codec_test::fill_random(r, rec.data(), mode == 1 ? map.data() : nullptr, rng, pool);
      uint32_t n = mode == 2 ? tlk::idl::idr_encode(r, rec.data(), nullptr, 0)
                             : tlk::idl::tlv_encode(r, rec.data(), mode == 1 ? map.data() : nullptr, nullptr, 0);
      std::vector<uint8_t> out(n + 2);
      out[0] = static_cast<uint8_t>(t);
      out[1] = static_cast<uint8_t>(mode);
      if (mode == 2) (void)tlk::idl::idr_encode(r, rec.data(), out.data() + 2, n);
      else (void)tlk::idl::tlv_encode(r, rec.data(), mode == 1 ? map.data() : nullptr, out.data() + 2, n);
      std::string path = std::string(argv[1]) + "/" + r.name + "_" + std::to_string(k);
      FILE *f = std::fopen(path.c_str(), "wb");
      if (f == nullptr) {
        std::perror(path.c_str());
        return 1;
      }
      std::fwrite(out.data(), 1, out.size(), f);
      std::fclose(f);
      ++written;
    }
  }
  std::printf("%d seeds for %zu record types\n", written, records.size());
  return 0;
}
