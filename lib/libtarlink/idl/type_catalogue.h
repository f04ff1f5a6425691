// Which message types travel as frames, and under which record.
#pragma once

#include <stdint.h>

#include "idl/descriptor.h"

namespace tlk::idl {

// One row of the catalogue: a type that has a record of its own.  Every other type, and every
// type above 108, is exchanged raw.
struct TypeRecord {
  uint8_t type;
  const char *record;
};

// The 45 rows, by type.  Types 11 and 19 share one record; the frame's selector tells them apart.
extern const TypeRecord kTypeRecords[45];

// The record named by the catalogue for `type`, or null for a raw type.
const char *catalogue_record(uint32_t type);

// The record that the frame codecs hold for `type` today, or null: the catalogue names more
// records than are built while object families are still being added.
const Record *frame_record(uint32_t type);

}  // namespace tlk::idl
