// tlkctl's commands and the small printing helpers they share.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <span>

#include "tarlink.h"

namespace tlkctl {

int run_demo(int argc, char **argv);

// One line per memory identifier with any activity: allocations, failures, frees, outstanding.
void print_memory(FILE *out);
// The fields of a raw message header on one line.
void print_raw_header(FILE *out, std::span<const uint8_t> msg);
// Diagnostics callback that prints each line indented, as the operator would see it in a log.
void print_diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text);

}  // namespace tlkctl
