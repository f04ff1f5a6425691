// Data made once per key and kept for the life of the process, found again by the key's address:
// the formatter's parsed formats.  The keys are static objects (string literals), so an address
// names one key for good.
#ifndef TARLINK_KEPT_TABLE_H
#define TARLINK_KEPT_TABLE_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

namespace tlk {

// An open-addressed table that only grows: a slot, once claimed, keeps its key and value, so
// readers take no lock.  `find` gives the key's value, made by `make(key)` on first use; null
// while another thread is still making it, or when the key's probe finds no free slot, and the
// caller then takes its general path.
template <typename Key, typename Value, size_t kSlots = 4096, size_t kProbes = 64>
class KeptTable {
 public:
  template <typename Make>
  const Value *find(const Key *key, Make make) {
    size_t h = static_cast<size_t>(
        (uint64_t{reinterpret_cast<uintptr_t>(key)} >> 3) * 0x9E3779B97F4A7C15ull >> 40);
    for (size_t probe = 0; probe < kProbes; ++probe, ++h) {
      const size_t at = h % kSlots;
      const Key *held = keys_[at].load(std::memory_order_acquire);
      if (held == key) return values_[at].load(std::memory_order_acquire);
      if (held != nullptr) continue;
      const Key *expected = nullptr;
      if (keys_[at].compare_exchange_strong(expected, key, std::memory_order_acq_rel)) {
        const Value *value = make(key);
        values_[at].store(value, std::memory_order_release);
        return value;
      }
      if (expected == key) return values_[at].load(std::memory_order_acquire);
    }
    return nullptr;
  }

 private:
  std::atomic<const Key *> keys_[kSlots] = {};
  std::atomic<const Value *> values_[kSlots] = {};
};

}  // namespace tlk

#endif  // TARLINK_KEPT_TABLE_H
