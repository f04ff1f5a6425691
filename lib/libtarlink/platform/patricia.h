// The platform's patricia tree, as the device info cache uses it: a root that knows where in a
// node its key lies and how long keys are, and nodes that the caller allocates, each with its
// key behind the node header at the root's offset.  Internal to the library.
//
// Built on an ordered map from key bytes to node: the cache needs exact look-up, add and delete,
// and a map gives those without hand-written bit-walking.  The root owns the map (made at init,
// never torn down: the cache lives as long as the process); the nodes stay the caller's.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The node header that a caller's record starts with; the key follows it at the root's offset.
// Its size is a multiple of the pointer size, so that a record's next field sits right behind.
struct patricia_node_t {
  uint16_t length;  // key bytes of this node, set by patricia_node_init_length
  uint16_t spare16;
  uint32_t spare32;
  void *spare_links[2];  // room a bit-walking tree would use; the map keeps its own
};

struct patricia_root_t {
  void *tree;          // the ordered map, made by patricia_root_init
  uint8_t is_ptr;      // whether the key is reached through a pointer (not supported: 0)
  uint16_t key_bytes;  // the longest key
  uint8_t key_offset;  // where the key starts behind the node header
};

// Sets `root` up for keys of at most `key_bytes` bytes at `key_offset` behind each node header.
// Gives `root`, or NULL if is_ptr is set or there is no memory.
patricia_root_t *patricia_root_init(patricia_root_t *root, int is_ptr, uint16_t key_bytes,
                                    uint8_t key_offset);
// Sets the key length of a node before it is added.
void patricia_node_init_length(patricia_node_t *node, uint16_t length);
// Adds a node under its key: true, or false if the key is held already or too long.
bool patricia_add(patricia_root_t *root, patricia_node_t *node);
// The node whose key is the `length` bytes at `key`, or NULL.
patricia_node_t *patricia_get(patricia_root_t *root, uint16_t length, const void *key);
// Takes a node out (its memory stays the caller's): true, or false if it isn't in the tree.
bool patricia_delete(patricia_root_t *root, patricia_node_t *node);
