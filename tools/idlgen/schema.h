// The schema model of idlgen: what a schema file says about each record type.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace idlgen {

enum class FieldKind {
  kScalar,
  kGrow64,
  kAf,
  kStorage,
  kBits,
  kBytes,
  kBlob,
  kArray,
  kRecArray,
  kList,
  kNested,
  kChoice
};

struct Field {
  FieldKind kind = FieldKind::kScalar;
  std::string name;
  std::string type;    // scalar type word (u8.. s64), or the referenced record
  uint32_t tag = 0;    // 0 for storage words, which are not fields of their own
  uint32_t width = 0;  // bytes of the scalar / element / storage word
  bool is_signed = false;
  uint32_t count = 0;      // bytes (byte array) or elements (record array)
  std::string count_name;  // counted kinds: the u32 count word
  bool count_first = false;
  bool by_ptr = false;      // list of pointers
  bool word_sized = false;  // growable kept in the platform word (unsigned long) in memory
  std::string
      storage;  // bit-field: its storage word; a storage entry without a type is reserved room
  uint32_t bit_off = 0, bit_width = 0;
  std::string file;
  int line = 0;
};

struct Arm {
  uint32_t selector;
  std::string rec;
  int line;
};

struct Record {
  std::string name;
  std::string file;
  int line = 0;
  bool net = false;
  bool has_idr = true;
  bool force_alloc = false;
  bool imported = false;  // described elsewhere: referenced, not emitted
  bool inner = false;     // a building block of other records: no exported codecs or constants
  bool tag_only = false;  // declared as `struct NAME` only, without a typedef of the same name
  std::string system;     // the system header that defines the struct: only its map is emitted
  // choice records
  bool is_choice = false;
  std::string sel_name, resv_name, arm_name;
  bool by_ptr = false;
  uint32_t tlv_marker = 0, idr_marker = 0;
  bool check_marker = false;
  uint32_t arm_bytes = 0, map_bytes = 0;
  // plain records: spare 32-bit words at the end of the map, which the codecs never touch
  uint32_t map_spare = 0;
  std::vector<Arm> arms;
  // hand-written records: a choice inside, and a pointer that never travels
  bool custom = false;
  std::string wraps, ptr_name;
  // target (32-bit) sizes to check, 0 when not given
  uint32_t size32 = 0, map32 = 0;
  std::vector<Field> fields;
};

struct Schema {
  std::vector<Record> records;  // in file order
  std::map<std::string, size_t> index;
  const Record *find(const std::string &name) const {
    auto it = index.find(name);
    return it == index.end() ? nullptr : &records[it->second];
  }
};

// Parses one schema file into `schema`.  On error prints "file:line: message" and returns false.
bool parse_file(const std::string &path, bool imported, Schema &schema);
// Cross-record checks: references, cycles, arms.  Prints errors; returns false on any.
bool check(Schema &schema);

}  // namespace idlgen
