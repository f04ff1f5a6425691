// A sparse table of 32-bit keys, each holding one non-null pointer: the platform's integer table,
// which the library uses for the unnumbered donor and borrower maps.  Internal to the library.
//
// Structure: one sorted array of (key, value) entries, searched by binary search and grown by
// doubling (halved again when a quarter full).  Look-up is O(log n) over one contiguous block; the
// ordered walk is a search and a step to the neighbour; insert and remove move the tail of the
// array with one memmove.  The tables it serves hold a handful of borrowers per donor and at most
// a few thousand donors, where a flat array beats a tree in both look-up and walk.
//
// All memory goes through the allocator pair given at creation, with the memory identifier
// pointer handed back on each call, so that the library's accounting sees every block.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct itable32 itable32_t;

// The allocator pair: `context` is the pointer given to itable32_create_ext.
typedef void *(*itable32_alloc_fn)(const uint16_t *context, size_t size);
typedef void (*itable32_free_fn)(const uint16_t *context, void *block);

// A new empty table whose blocks come from `alloc` and go back to `release`; NULL if either is
// NULL or there is no memory.
itable32_t *itable32_create_ext(itable32_alloc_fn alloc, itable32_free_fn release,
                                const uint16_t *context);
// Stores `value` under *key: 0, EEXIST if the key is already there (the table is unchanged),
// EINVAL for a NULL table, key or value (NULL is the answer for "none" and cannot be stored), or
// ENOMEM.
int itable32_insert(itable32_t *table, void *value, const uint32_t *key);
// The value under *key, or NULL.
void *itable32_lookup(const itable32_t *table, const uint32_t *key);
// Takes *key out: 0, or ENOENT if it isn't there (EINVAL for a NULL table or key).
int itable32_remove(itable32_t *table, const uint32_t *key);
// The value of the first key above *key_in (the first key of all when key_in is NULL), with that
// key stored in *key_out; NULL at the end, *key_out untouched.
void *itable32_getnext(const itable32_t *table, const uint32_t *key_in, uint32_t *key_out);
// Releases the table and its entries; the values are the caller's.  NULL is a no-op.
void itable32_destroy(itable32_t *table);

#ifdef __cplusplus
}
#endif
