// The rows of the USP blob subtype table: a name and, for the subtypes whose blobs the message
// formatter can print, that printer.
#ifndef TARLINK_FORMAT_USP_ROWS_H
#define TARLINK_FORMAT_USP_ROWS_H

#include "tarlink/format.h"

namespace tlk::format {

// Writes the text of a USP blob into `dst` (257 bytes).  The blob arrives in network byte order
// and the printer swaps its fields in place, so a message is printed once.
using UspPrinter = void (*)(char *dst, struct gencfg_msg *msg);

struct UspRow {
  const char *name;    // NULL in the catch-all row
  UspPrinter printer;  // NULL where the subtype has no printer
};

// 159 subtypes and the catch-all row, which every other value reads.
inline constexpr int kUspRows = 160;

// The printers of the rows that have one.
void usp_print_zone(char *dst, struct gencfg_msg *msg);
void usp_print_ids(char *dst, struct gencfg_msg *msg);
void usp_print_ifl_ext(char *dst, struct gencfg_msg *msg);
void usp_print_ifl_ext_all(char *dst, struct gencfg_msg *msg);
void usp_print_ssl_profile(char *dst, struct gencfg_msg *msg);
void usp_print_ssl_cert(char *dst, struct gencfg_msg *msg);
void usp_print_lsys(char *dst, struct gencfg_msg *msg);
void usp_print_ipsec_perf(char *dst, struct gencfg_msg *msg);
void usp_print_power_mode(char *dst, struct gencfg_msg *msg);

// The row of `subtype`, the catch-all one for anything outside 0 to 158.
const UspRow &usp_row(int subtype);

}  // namespace tlk::format

#endif  // TARLINK_FORMAT_USP_ROWS_H
