// Fuzzes the decoders of every record type.  Input: byte 0 picks the type, byte 1 the mode
// (0 TLV, 1 TLV with a map, 2 IDR), the rest is the encoded record.  A decoded record is encoded
// again (size, then bytes) and released; allocations come from a capped heap that checks every
// release.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

#include "codec_support.h"
#include "idl/engine.h"

namespace {

struct CappedHeap {
  std::set<void *> live;
  size_t total = 0;
  static constexpr size_t kCap = 1u << 20;

  static void *alloc(uint32_t size, void *ctx) {
    auto *h = static_cast<CappedHeap *>(ctx);
    if (h->total + size > kCap) return nullptr;
    h->total += size;
    void *p = std::malloc(size == 0 ? 1 : size);
    std::memset(p, 0xCD, size);
    h->live.insert(p);
    return p;
  }
  static void release(void *p, void *ctx) {
    auto *h = static_cast<CappedHeap *>(ctx);
    if (h->live.erase(p) != 1) std::abort();  // freeing what was never handed out
    std::free(p);
  }
  ~CappedHeap() {
    for (void *p : live) std::free(p);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  const auto &records = codec_test::all_records();
  const tlk::idl::Record &r = *records[data[0] % records.size()];
  int mode = data[1] % 3;
  if (mode == 2 && !r.has_idr) mode = 0;
  const uint8_t *in = data + 2;
  const auto len = static_cast<uint32_t>(size - 2);

  std::vector<uint64_t> rec((r.size + 7) / 8), map((r.map_size + 7) / 8);
  CappedHeap heap;
  int32_t rc;
  void *m = mode == 1 ? map.data() : nullptr;
  if (mode == 2)
    rc = tlk::idl::idr_decode(r, rec.data(), in, len, CappedHeap::alloc, &heap);
  else
    rc = tlk::idl::tlv_decode(r, rec.data(), m, in, len, CappedHeap::alloc, &heap);
  if (rc > static_cast<int32_t>(len) || rc < -3) std::abort();
  if (rc <= 0) return 0;  // a failed decode leaves its allocations to the caller's arena

  uint32_t n = mode == 2 ? tlk::idl::idr_encode(r, rec.data(), nullptr, 0)
                         : tlk::idl::tlv_encode(r, rec.data(), m, nullptr, 0);
  std::vector<uint8_t> out(n > (1u << 24) ? 0 : n);
  if (!out.empty()) {
    uint32_t again = mode == 2 ? tlk::idl::idr_encode(r, rec.data(), out.data(), n)
                               : tlk::idl::tlv_encode(r, rec.data(), m, out.data(), n);
    if (again != n) std::abort();  // sizing and encoding disagree
  }
  if (mode == 2)
    tlk::idl::idr_release(r, rec.data(), CappedHeap::release, &heap);
  else
    tlk::idl::tlv_release(r, rec.data(), m, CappedHeap::release, &heap);
  if (!heap.live.empty()) std::abort();  // the release missed an allocation
  return 0;
}
