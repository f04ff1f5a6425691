// Writes seed corpora for the fuzz targets.  Codec seeds, for every record type: random records
// encoded in TLV (with and without map) and IDR; each file is type index, mode (0 TLV, 1 TLV with
// map, 2 IDR), then the encoded record.  Envelope seeds (with a second directory), for every
// message type that has a record: whole frames in both encodings (flag byte 2 or 3, then the
// frame) and the same payloads behind the driver's own head (flag 0 or 1, type, payload).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "codec_support.h"
#include "idl/engine.h"
#include "idl/type_catalogue.h"

namespace {

bool write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
  FILE *f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    std::perror(path.c_str());
    return false;
  }
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  return true;
}

int write_frame_seeds(const std::string &dir, std::mt19937 &rng) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  int written = 0;
  for (unsigned type = 0; type <= 108; ++type) {
    const tlk::idl::Record *r = tlk::idl::frame_record(type);
    if (r == nullptr) continue;
    for (int k = 0; k < 4; ++k) {
      const bool tlv = k % 2 == 1;
      codec_test::Pool pool;
      std::vector<uint8_t> rec(r->size), map(r->map_size);
      codec_test::fill_random(*r, rec.data(), tlv ? map.data() : nullptr, rng, pool);
      rec[offsetof(tlk_hdr, tlkh_type)] = static_cast<uint8_t>(type);
      void *frame = nullptr;
      size_t len = 0;
      if (tarvik_msg_idl_encode(cookie, rec.data(), tlv ? map.data() : nullptr, &frame, &len) != 0)
        return -1;
      const auto *bytes = static_cast<const uint8_t *>(frame);
      std::vector<uint8_t> whole{static_cast<uint8_t>(2 | (tlv ? 1 : 0))};
      whole.insert(whole.end(), bytes, bytes + len);
      std::vector<uint8_t> payload{static_cast<uint8_t>(tlv ? 1 : 0), static_cast<uint8_t>(type)};
      payload.insert(payload.end(), bytes + 12, bytes + len);
      tarvik_msg_free(cookie, frame);
      const std::string stem =
          dir + "/" + r->name + "_" + std::to_string(type) + "_" + std::to_string(k);
      if (!write_file(stem + "_whole", whole) || !write_file(stem + "_payload", payload)) return -1;
      written += 2;
    }
  }
  tarvik_close(cookie);
  return written;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: %s CODEC_DIR [ENVELOPE_DIR]\n", argv[0]);
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
                             : tlk::idl::tlv_encode(r, rec.data(), mode == 1 ? map.data() : nullptr,
                                                    nullptr, 0);
      std::vector<uint8_t> out(n + 2);
      out[0] = static_cast<uint8_t>(t);
      out[1] = static_cast<uint8_t>(mode);
      if (mode == 2)
        (void)tlk::idl::idr_encode(r, rec.data(), out.data() + 2, n);
      else
        (void)tlk::idl::tlv_encode(r, rec.data(), mode == 1 ? map.data() : nullptr, out.data() + 2,
                                   n);
      if (!write_file(std::string(argv[1]) + "/" + r.name + "_" + std::to_string(k), out)) return 1;
      ++written;
    }
  }
  std::printf("%d seeds for %zu record types\n", written, records.size());
  if (argc == 3) {
    const int frames = write_frame_seeds(argv[2], rng);
    if (frames < 0) return 1;
    std::printf("%d frame seeds\n", frames);
  }
  return 0;
}
