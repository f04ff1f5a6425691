// The device info cache: one process-wide tree of what device names mean, keyed by name, fed from
// "ifdev" messages through a filter over device kinds.  The parser, the kinds and their mask table
// are the platform's interface library, reached through the seam; the tree is the platform's
// patricia tree (platform/patricia.h).
//
// Kept as the contract has it, though each looks odd:
// - a node of another generation is never replaced: the old one must be deleted by its own
//   message first;
// - a delete takes the node out of the tree and does not return its memory to the allocator;
// - the filter writes into the imported mask table itself (a row that lacks its own bit gets it).
#include <errno.h>
#include <stddef.h>
#include <string.h>

#include "platform/patricia.h"
#include "platform/platform.h"
#include "tarlink.h"
#include "tarlink/ifcache.h"

namespace {

constexpr size_t kIfNameLen = 60;  // a device name with its end byte
constexpr int kDefaultRow = 67;
constexpr uint32_t kSenderHelpers = 3;
constexpr char kFile[] = "lib/libtarlink/objects/ifcache.cc";

struct tarvik_ifd_info_node_t {
  patricia_node_t patnode;  // the key, at offset 0 behind it, is info.name
  tarvik_ifd_info_t info;   // the key, the name, is its first field
  uint32_t generation;      // ifdm_generation of the device when the node was made
};
static_assert(offsetof(tarvik_ifd_info_node_t, info) == sizeof(patricia_node_t),
              "the tree finds the key right behind the node header");

struct IfdInfoTree {
  uint8_t initialized;
  patricia_root_t ifd_root;
  uint64_t mask[3];
} tarvik_ifd_info_tree;

const tlk_platform &ops() {
  return tlk::platform::ops();
}

// The row of the mask table for kind `k`, or null where the table has none.
uint64_t *mask_row(int k) {
  if (k < 0 || ops().interface_mask_table == nullptr ||
      static_cast<size_t>(k) >= ops().interface_mask_rows)
    return nullptr;
  return ops().interface_mask_table[k];
}

// Whether the cache keeps devices of this name's kind.
bool passes_filter(const char *name) {
  const uint64_t *mask = tarvik_ifd_info_tree.mask;
  if ((mask[0] | mask[1] | mask[2]) == 0) return true;
  if (ops().interface_info_by_pfx_match == nullptr || ops().interface_info_index == nullptr)
    return false;
  const void *kind = ops().interface_info_by_pfx_match(name, 0);
  if (kind == nullptr) return false;
  const int k = ops().interface_info_index(kind);
  uint64_t *row = mask_row(k);
  if (row == nullptr) return false;
  // A kind whose row lacks its own word counts as itself, and the table keeps that from now on.
  if (row[k / 64] == 0) row[k / 64] |= uint64_t{1} << (k % 64);
  return (row[0] & mask[0]) != 0 || (row[1] & mask[1]) != 0 || (row[2] & mask[2]) != 0;
}

int parse(const char *name, tarvik_ifd_info_t *info) {
  if (ops().parse_interface == nullptr) return -1;
  return ops().parse_interface(name, 0, 0, info, 0, 0);
}

// The media record's tags 13, 15 and 16, where the message has one.
void take_location(tarvik_ifd_info_t *info, const ifdev_msg *ifdm) {
  if (ifdm->ifdm_media == nullptr || ifdm->ifdm_media_len == 0) return;
  const ifmedia &m = ifdm->ifdm_media[0];
  info->location[0] = m.ifm_f13;
  info->location[1] = m.ifm_f15;
  info->location[2] = m.ifm_f16;
}

bool has_media(const ifdev_msg *ifdm) {
  return ifdm->ifdm_media != nullptr && ifdm->ifdm_media_len != 0;
}

// The device name of a message, as a string; the cache's key is it with its end byte.
const char *name_of(const ifdev_msg *ifdm, size_t *len_with_end) {
  static const char kEmpty[] = "";
  const char *name =
      ifdm->ifdm_name != nullptr ? reinterpret_cast<const char *>(ifdm->ifdm_name) : kEmpty;
  *len_with_end = strnlen(name, ifdm->ifdm_name != nullptr ? ifdm->ifdm_name_len : 0) + 1;
  return name;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ifd_info_init(void) {
  IfdInfoTree &t = tarvik_ifd_info_tree;
  if (t.initialized) return EEXIST;
  (void)patricia_root_init(&t.ifd_root, 0, kIfNameLen, 0);
  t.initialized = 1;
  uint64_t *row = mask_row(kDefaultRow);
  if (row != nullptr) {
    if (row[kDefaultRow / 64] == 0) row[kDefaultRow / 64] |= uint64_t{1} << (kDefaultRow % 64);
    memcpy(t.mask, row, sizeof t.mask);
  }
  return 0;
}

TLK_EXPORT int tarvik_ifd_info_set_mask(const uint64_t *mask) {
  if (!tarvik_ifd_info_tree.initialized) return EINVAL;
  memcpy(tarvik_ifd_info_tree.mask, mask, sizeof tarvik_ifd_info_tree.mask);
  return 0;
}

TLK_EXPORT int tarvik_ifd_info_update(const struct ifdev_msg *ifdm, uint32_t op) {
  IfdInfoTree &t = tarvik_ifd_info_tree;
  if (!t.initialized) return EINVAL;
  size_t name_len = 0;
  const char *name = name_of(ifdm, &name_len);
  TLK_ASSERT_AT(name_len <= kIfNameLen, "name_len <= IFNAMELEN", kFile, __LINE__,
                "tarvik_ifd_info_update");
  if (!passes_filter(name)) return 0;
  auto *node = reinterpret_cast<tarvik_ifd_info_node_t *>(
      patricia_get(&t.ifd_root, static_cast<uint16_t>(name_len), name));
  if (node != nullptr) {
    if (node->generation != ifdm->ifdm_generation) return EINVAL;
    if (op == TLK_OP_DELETE) {
      TLK_ASSERT_AT(patricia_delete(&t.ifd_root, &node->patnode),
                    "patricia_delete(&tarvik_ifd_info_tree.ifd_root, &ifd_info->patnode)", kFile,
                    __LINE__, "tarvik_ifd_info_update");
      // The node's memory stays allocated: the contract never returns it.
      return 0;
    }
  } else {
    if (op == TLK_OP_DELETE) return 0;
    node = static_cast<tarvik_ifd_info_node_t *>(
        tarvik_malloc(MEMID_TARVIK_IFD_INFO, sizeof(tarvik_ifd_info_node_t)));
    if (node == nullptr) {
      tarvik_err(nullptr, TLK_LEVEL_ERROR,
                 "Failed to allocate memory for tarvik_ifd_info_node_t\n");
      return ENOMEM;
    }
    memset(node, 0, sizeof *node);
    if (parse(name, &node->info) != 0) {
      tarvik_free(MEMID_TARVIK_IFD_INFO, node);
      return EINVAL;
    }
    memcpy(node->info.name, name, name_len);
    patricia_node_init_length(&node->patnode, static_cast<uint16_t>(name_len));
    TLK_ASSERT_AT(patricia_add(&t.ifd_root, &node->patnode),
                  "patricia_add(&tarvik_ifd_info_tree.ifd_root, pnode)", kFile, __LINE__,
                  "tarvik_ifd_info_update");
    node->generation = ifdm->ifdm_generation;
  }
  if (!has_media(ifdm)) return EINVAL;  // the node stays, with the parser's location
  take_location(&node->info, ifdm);
  return 0;
}

TLK_EXPORT int tarvik_ifd_info_get(const char *name, tarvik_ifd_info_t *info, int fetch) {
  TLK_ASSERT_AT(info != nullptr, "info != NULL", kFile, __LINE__, "tarvik_ifd_info_get");
  memset(info, 0, sizeof *info);
  IfdInfoTree &t = tarvik_ifd_info_tree;
  if (t.initialized && name != nullptr) {
    const size_t len = strnlen(name, kIfNameLen) + 1;
    const auto *node = reinterpret_cast<const tarvik_ifd_info_node_t *>(
        patricia_get(&t.ifd_root, static_cast<uint16_t>(len), name));
    if (node != nullptr) {
      memcpy(info, &node->info, sizeof *info);
      return 0;
    }
  }
  if (name == nullptr || parse(name, info) != 0) return EINVAL;
  if (fetch == 0) return 0;
  if (!passes_filter(name)) return 0;
  errno = 0;
  tarvik_cookie *session = tarvik_open(kSenderHelpers);
  if (session == nullptr) return errno != 0 ? errno : ENOMEM;
  void *reply = nullptr;
  void *mask = nullptr;
  if (tarvik_ifdm_get_by_name(session, name, TLK_OP_GET, &reply, &mask) == 0 && reply != nullptr) {
    take_location(info, static_cast<const ifdev_msg *>(reply));
  }
  tarvik_msg_idl_release(session, reply, mask);
  tarvik_close(session);
  return 0;  // a failed read leaves the parser's answer; a fetch isn't kept in the tree
}

TLK_EXPORT int tarvik_ifd_info_get_from_ifd_msg(const char *name, tarvik_ifd_info_t *info,
                                                const struct ifdev_msg *ifdm) {
  TLK_ASSERT_AT(info != nullptr, "info != NULL", kFile, __LINE__,
                "tarvik_ifd_info_get_from_ifd_msg");
  TLK_ASSERT_AT(ifdm != nullptr, "ifdm != NULL", kFile, __LINE__,
                "tarvik_ifd_info_get_from_ifd_msg");
  memset(info, 0, sizeof *info);
  if (name == nullptr || parse(name, info) != 0) return EINVAL;
  take_location(info, ifdm);
  return 0;
}

}  // extern "C"
