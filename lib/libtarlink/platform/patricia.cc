// The patricia tree layer over an ordered map (see patricia.h).
#include "platform/patricia.h"

#include <map>
#include <new>
#include <string>

namespace {

using Tree = std::map<std::string, patricia_node_t *>;

Tree *tree_of(patricia_root_t *root) {
  return static_cast<Tree *>(root->tree);
}

std::string key_of(const patricia_root_t *root, const patricia_node_t *node) {
  const auto *p = reinterpret_cast<const char *>(node + 1) + root->key_offset;
  return std::string(p, node->length);
}

}  // namespace

patricia_root_t *patricia_root_init(patricia_root_t *root, int is_ptr, uint16_t key_bytes,
                                    uint8_t key_offset) {
  if (root == nullptr || is_ptr != 0) return nullptr;
  auto *tree = new (std::nothrow) Tree;
  if (tree == nullptr) return nullptr;
  root->tree = tree;
  root->is_ptr = 0;
  root->key_bytes = key_bytes;
  root->key_offset = key_offset;
  return root;
}

void patricia_node_init_length(patricia_node_t *node, uint16_t length) {
  node->length = length;
}

bool patricia_add(patricia_root_t *root, patricia_node_t *node) {
  if (root == nullptr || root->tree == nullptr || node == nullptr) return false;
  if (node->length == 0 || node->length > root->key_bytes) return false;
  return tree_of(root)->emplace(key_of(root, node), node).second;
}

patricia_node_t *patricia_get(patricia_root_t *root, uint16_t length, const void *key) {
  if (root == nullptr || root->tree == nullptr || key == nullptr) return nullptr;
  const auto it = tree_of(root)->find(std::string(static_cast<const char *>(key), length));
  return it == tree_of(root)->end() ? nullptr : it->second;
}

bool patricia_delete(patricia_root_t *root, patricia_node_t *node) {
  if (root == nullptr || root->tree == nullptr || node == nullptr) return false;
  const auto it = tree_of(root)->find(key_of(root, node));
  if (it == tree_of(root)->end() || it->second != node) return false;
  tree_of(root)->erase(it);
  return true;
}
