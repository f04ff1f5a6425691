// Every exported entry that takes a session, called with a null session (and null pointers for
// its other pointer arguments): the answer it gives, and whether it ends the process under the
// default diagnostics callback.  A second test reads the public headers and fails when an entry
// that takes a session has no row here, so a new family cannot forget its rows.
#include <errno.h>
#include <stdint.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "harness.h"

namespace tlktest {
namespace {

// Results of every return type compared as one integer: pointers as their address (0 for null),
// void entries as 0.
template <class T>
intptr_t as_int(T v) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<intptr_t>(v);
  } else {
    return static_cast<intptr_t>(v);
  }
}

struct Row {
  const char *call;  // the call as written, from which the entry's name is taken
  intptr_t (*run)();
  intptr_t want;
  bool ends;  // a level 4 diagnostic: the default callback ends the process
};

#define ROW(expr, want, ends)                      \
  {                                                \
#expr, [] { return as_int(expr); }, want, ends \
  }
#define VOID_ROW(expr, ends)                           \
  {                                                    \
#expr, [] { return (expr), intptr_t{0}; }, 0, ends \
  }
// The per-family registrations all answer a null session alike.
#define REG(family) ROW(tarvik_##family##_async_register(nullptr, nullptr, nullptr), EINVAL, false)

void noop_handler_fn(tarvik_cookie *, void *, int, const char *) {}
int noop_async_handler(tarvik_cookie *, void *, void *, uintptr_t) {
  return 0;
}

void *g_out = nullptr;
_dfw_filter_head g_head{};
rnh_msg g_nh{};
uint8_t g_prefix[4] = {10};
uint32_t g_words[TLK_RTSTATS_WORDS];

const Row kRows[] = {
    // Memory and diagnostics.
    ROW(tarvik_size_alloc(nullptr, 16), 0, false),
    ROW(tarvik_msg_malloc(nullptr), 0, false),
    VOID_ROW(tarvik_msg_free(nullptr, nullptr), false),
    VOID_ROW(tarvik_lib_error(nullptr, nullptr, TLK_LEVEL_DEBUG, ""), false),
    VOID_ROW(tarvik_err(nullptr, TLK_LEVEL_DEBUG, "%s", ""), false),
    ROW(tarvik_lib_error_register(nullptr, nullptr, noop_handler_fn), EINVAL, false),
    // Sessions.
    ROW(tarvik_set_defaults(nullptr, 1), 0, false),
    VOID_ROW(tarvik_close(nullptr), false),
    VOID_ROW(tarvik_cookie_destroy(nullptr), false),
    ROW(tarvik_set_buffers(nullptr, 1024, 1024), EINVAL, false),
    ROW(tarvik_set_sender_id(nullptr, 1), EINVAL, false),
    ROW(tarvik_set_lr_id(nullptr, 1), EINVAL, false),
    ROW(tarvik_setsockopt(nullptr, TLK_SO_LISTEN, nullptr, 0), EINVAL, false),
    ROW(tarvik_getsockfd(nullptr), EINVAL, false),
    ROW(tarvik_get_tarlink_version_info(nullptr), 0, false),
    ROW(tarvik_setup_master_mode(nullptr, 1), EINVAL, false),
    ROW(tarvik_setup_slave_mode(nullptr, 1), EINVAL, false),
    ROW(tarvik_setup_local_slave_mode(nullptr, 1), EINVAL, false),
    VOID_ROW(tarvik_set_used_by_stats(nullptr, 1), false),
    ROW(tarvik_seq_error_register(nullptr, nullptr, nullptr), EINVAL, false),
    // Synchronous I/O.
    ROW(tarvik_write(nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_msg_read(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_long_msg_read(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_check_read_seq(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_seq_get_next(nullptr, nullptr), EINVAL, false),
    // Bulk transfer.
    ROW(tarvik_set_sync_mode(nullptr, 1), -1, false),
    ROW(tarvik_set_bulk_buffer(nullptr, 4096), EINVAL, false),
    ROW(tarvik_get_bulkw_info(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_set_io_min_elapse(nullptr, 1, 0), -1, false),
    ROW(tarvik_msg_writev_idl(nullptr, 0, nullptr, nullptr), EINVAL, false),
    VOID_ROW(tarvik_set_iov_err(nullptr, nullptr, 0, 0, 1, EIO), true),
    // Frames.
    ROW(tarvik_msg_idl_encode(nullptr, nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_msg_idl_decode(nullptr, nullptr, 0, nullptr, nullptr), EINVAL, false),
    VOID_ROW(tarvik_msg_idl_release(nullptr, nullptr, nullptr), false),
    ROW(tarvik_msg_idl_encode_pa(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_msg_idl_decode_pa(nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_bulkmsg_idl_encode(nullptr, nullptr, nullptr, nullptr), EINVAL, true),
    ROW(tarvik_bulkmsg_idl_decode(nullptr, nullptr, nullptr, nullptr), EINVAL, true),
    ROW(tarvik_msg_write_idl(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_msg_read_idl(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_msg_read_idl_pa(nullptr, nullptr, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_long_msg_read_idl(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_long_msg_read_idl_pa(nullptr, nullptr, nullptr, nullptr, 0), EINVAL, false),
    // Devices.
    ROW(tarvik_ifdm_get_by_index(nullptr, 1, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifdm_get_by_name(nullptr, nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifdm_get_by_snmp_index(nullptr, 1, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifxm_get_all(nullptr, nullptr, 1), EINVAL, false),
    ROW(tarvik_ifdm_get_all(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifdm_change_flags(nullptr, 1, 1, 0), EINVAL, false),
    ROW(tarvik_ifdm_add_with_tlvs(nullptr, nullptr, 1, 0, 0, 0, nullptr, nullptr, nullptr, nullptr,
                                  0),
        EINVAL, false),
    ROW(tarvik_ifdm_add(nullptr, nullptr, 1, 0, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifdm_change_addr(nullptr, 1, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifdm_change_tlvs(nullptr, 1, 0, nullptr, 0), EINVAL, false),
    ROW(tarvik_ifdm_pointchange(nullptr, 1, 0, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_ifdsm_get_by_index(nullptr, 1, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ifdsm_get_by_name(nullptr, nullptr, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ifdsm_buffer_stats_get_by_index(nullptr, 1, 0, TLK_OP_GET, nullptr, 0), EINVAL,
        false),
    ROW(tarvik_ifdsm_voq_get_by_index(nullptr, 1, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ifdsm_clear_by_index(nullptr, 1, 0), EINVAL, false),
    ROW(tarvik_ifdalm_get_by_if_index(nullptr, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ifdalm_get_by_if_name(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(async_tarvik_ifdsm_get_by_index_kernel(nullptr, 128, 1, nullptr, 0, TLK_OP_GET, 0), EINVAL,
        false),
    // Logical interfaces.
    ROW(tarvik_iflm_get_by_index(nullptr, 1, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflm_get_by_snmp_index(nullptr, 1, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflm_get_by_device(nullptr, 1, 0, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflm_get_by_name(nullptr, nullptr, 0, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflm_get_all(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflm_update(nullptr, 1, 130, 0, 0, nullptr, nullptr, TLK_OP_CHANGE), EINVAL, false),
    ROW(tarvik_iflm_update_flags(nullptr, 1, 130, 0, 0, nullptr, 1, TLK_OP_CHANGE), EINVAL, false),
    ROW(tarvik_iflm_update_privflags(nullptr, 1, 130, 0, 0, nullptr, 1, 1, TLK_OP_CHANGE), EINVAL,
        false),
    ROW(tarvik_iflm_pointchange_tlv(nullptr, 1, 130, 0, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iflsetm_get_by_index(nullptr, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_iflsetm_get_by_name(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(__tarvik_iflsm_get_by_index(nullptr, 1, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(__tarvik_iflsm_get_by_index_and_subtype(nullptr, 1, 2, 0, TLK_OP_GET, nullptr), EINVAL,
        false),
    ROW(__tarvik_iflsm_get_by_name(nullptr, nullptr, 0, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(__tarvik_iflsm_get_by_name_and_subtype(nullptr, nullptr, 0, 2, 0, TLK_OP_GET, nullptr),
        EINVAL, false),
    ROW(__tarvik_iflsm_clear_by_index(nullptr, 1, 0), EINVAL, false),
    ROW(async_tarvik_iflsm_get_by_index_kernel(nullptr, 1, nullptr, 0, TLK_OP_GET, 0), EINVAL,
        false),
    ROW(tarvik_iflsm_async_kernel_register(nullptr, nullptr, noop_async_handler), EINVAL, false),
    // Families and addresses.
    // Route tables and table classes.
    ROW(tarvik_rtbm_get_by_name(nullptr, TLK_AF_INET, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rtbm_get_by_index(nullptr, TLK_AF_INET, 0, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_rtbm_add(nullptr, nullptr, 1, TLK_AF_INET, 0), EINVAL, false),
    ROW(tarvik_rtbm_add_prflag(nullptr, nullptr, 1, TLK_AF_INET, 0, 1), EINVAL, false),
    ROW(tarvik_rtbm_add_lr(nullptr, nullptr, 1, TLK_AF_INET, nullptr, 0, 0, 1), EINVAL, false),
    ROW(tarvik_rtbm_update(nullptr, 1, TLK_AF_INET, 0, nullptr, 0, 0, TLK_OP_CHANGE), EINVAL,
        false),
    ROW(tarvik_rtbm_update_svcs_chan(nullptr, 1, TLK_AF_INET, 0, nullptr, 0, 0, 5, 0), EINVAL,
        false),
    ROW(tarvik_ntblm_add(nullptr, nullptr, TLK_AF_INET), EINVAL, false),
    ROW(tarvik_ntblm_add_by_index(nullptr, nullptr, 1, TLK_AF_INET), EINVAL, false),
    ROW(tarvik_ntblm_delete_by_name(nullptr, nullptr, TLK_AF_INET), EINVAL, false),
    ROW(tarvik_ntblm_delete_by_index(nullptr, 1, TLK_AF_INET), EINVAL, false),
    ROW(tarvik_ntblm_get_by_index(nullptr, 1, TLK_AF_INET, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_ntblm_get_by_name(nullptr, nullptr, TLK_AF_INET, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_iffm_get_by_index(nullptr, 1, TLK_AF_INET, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_iffm_get_by_dev_name(nullptr, TLK_AF_INET, nullptr, 0, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_iffm_update(nullptr, 1, TLK_AF_INET, 0, 0, 0, nullptr, TLK_OP_CHANGE), EINVAL,
        false),
    ROW(tarvik_iffsm_get_by_index(nullptr, 1, TLK_AF_INET, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ifam_get_by_index(nullptr, 1, TLK_AF_INET, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_ifam_get_by_dest(nullptr, 1, TLK_AF_INET, nullptr, 0, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_ifam_get_by_local(nullptr, 1, TLK_AF_INET, nullptr, 0, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_ifam_get_by_local_dest(nullptr, 1, TLK_AF_INET, nullptr, 0, nullptr, 0, TLK_OP_GET,
                                      nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_ifam_update(nullptr, 1, TLK_AF_INET, nullptr, 0, nullptr, 0, TLK_OP_ADD), EINVAL,
        false),
    ROW(tarvik_rtm_add(nullptr, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, 0, 0, nullptr, nullptr, 0,
                       nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_rtm_delete_prefix(nullptr, 0, TLK_AF_INET, 1, 0, nullptr, 0, 0), EINVAL, false),
    ROW(tarvik_rtm_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rtm_get(nullptr, 0, TLK_AF_INET, nullptr, 0, 0, 0, 0, 0, TLK_OP_GET, nullptr,
                       nullptr),
        EINVAL, false),
    ROW(tarvik_rtm_get_by_prefix(nullptr, TLK_AF_INET, nullptr, 0, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_rtm_get_by_type(nullptr, TLK_AF_INET, 1, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_rtm_get_with_msg(nullptr, nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rtm_get_with_msg_pa(nullptr, nullptr, TLK_OP_GET, nullptr, nullptr, nullptr, 0),
        EINVAL, false),
    ROW(tarvik_rtmatch_by_prefix(nullptr, 0, TLK_AF_INET, 0, nullptr, 0, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_rtmatch_fwding_nh_ifindex(nullptr, 0, TLK_AF_INET, 0, nullptr, 0, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_mgrm_get(nullptr, 0, TLK_AF_INET, nullptr, 0, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_ifa_pointchange(nullptr, 1, TLK_AF_INET, nullptr, 0, nullptr, 0), EINVAL, false),
    // Generic configuration.
    ROW(tarvik_gencfg_op_export(nullptr, nullptr, TLK_OP_GET, nullptr, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_gencfg_add(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_change(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_get(nullptr, nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_add_and_get(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_change_and_get(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_bulk_delete(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_delete_prefix_key(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    // Firewall filter programs and heads.
    ROW(tarvik_dfwm_get_by_index(nullptr, 1, 2, TLK_OP_GET, &g_out, nullptr), EINVAL, false),
    ROW(tarvik_dfwm_update(nullptr, 1, 2, TLK_OP_DELETE, nullptr), EINVAL, false),
    ROW(tarvik_dfwm_get_index_by_name(nullptr, "f", 0, 0), 0, false),
    ROW(tarvik_dfwfhm_get_by_index(nullptr, 1, TLK_OP_GET, &g_head), EINVAL, false),
    ROW(tarvik_dfwfhm_get_index_by_name(nullptr, "f", 0, 0), 0, false),
    ROW(tarvik_dfw_get_fheader_by_index(nullptr, 1, TLK_OP_GET, &g_head), EINVAL, false),
    ROW(tarvik_dfw_get_findex_by_name(nullptr, "f", 0, 0), 0, false),
    VOID_ROW(tarvik_init_blob_compression(nullptr, nullptr, nullptr), false),
    ROW(tarvik_gencfg_async(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_gencfg_stats_get(nullptr, nullptr, nullptr, TLK_OP_GET, 0, nullptr, nullptr,
                                nullptr),
        EINVAL, false),
    ROW(tarvik_gencfg_stats_set(nullptr, nullptr, nullptr, TLK_OP_ADD, 0, nullptr, 0), EINVAL,
        false),
    ROW(tarvik_gencfg_stats_clear(nullptr, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_gencfg_stats_delete(nullptr, nullptr, nullptr, 0), EINVAL, false),
    // Unnumbered address donors.
    ROW(tarvik_unnum_ifa_register_callback(nullptr, nullptr), EINVAL, false),
    // Next hops.
    ROW(tarvik_rnhm_get_by_index(nullptr, 1000, 2, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rnh_enable_comp_nh_retrieval(nullptr, 1), EINVAL, false),
    ROW(tarvik_rnh_comp_get_by_index(nullptr, 1003, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rnhm_service_add(nullptr, nullptr, 0, 2, 0, nullptr, 0, 0, 0, nullptr, nullptr,
                                nullptr, 0, 0, 0, nullptr, 0),
        EINVAL, false),
    ROW(tarvik_rnhm_service_get_by_owner(nullptr, 0, 2, 0, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rnhm_service_get_by_index(nullptr, 1002, 2, TLK_OP_GET, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_rnhm_service_delete_by_index(nullptr, 1002, 2), EINVAL, false),
    ROW(tarvik_rnhm_l2tp_service_add(nullptr, nullptr, 2, 0, nullptr, 0, 0, 0, 0, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_rnhm_l2tp_service_get_by_index(nullptr, 1002, 2, TLK_OP_GET, nullptr, nullptr),
        EINVAL, false),
    ROW(tarvik_rnhm_l2tp_service_delete_by_index(nullptr, 1002, 2), EINVAL, false),
    ROW(tarvik_rnhm_iflnh_add(nullptr, 70, 2, 0, 1, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_rnhm_iflnh_get_by_index(nullptr, TLK_OP_GET, 1000, 2, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_rnhm_iflnh_delete_by_index(nullptr, 1000, 2), EINVAL, false),
    ROW(tarvik_rnhm_subunit_nhadd(nullptr, nullptr, 2, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rnhm_subunit_nhdelete_by_index(nullptr, 1000, 2), EINVAL, false),
    ROW(tarvik_nhidx_get(nullptr, nullptr, 1, 0), EINVAL, false),
    ROW(tarvik_nhidx_getnext(nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_nhidx_delete_all(nullptr), EINVAL, false),
    ROW(tarvik_unnum_ifa_register_interest(nullptr, 10, 5, 2, 1, nullptr), EINVAL, false),
    ROW(tarvik_unnum_ifa_save_msg(nullptr, nullptr), -1, false),
    ROW(tarvik_unnum_get_donor_ifl_idx(nullptr, 72, 2, nullptr), EINVAL, false),
    VOID_ROW(tarvik_unnum_ifa_report(nullptr), false),
    VOID_ROW(tarvik_unnum_ifa_cleanup(nullptr), false),
    // Session statistics.
    ROW(tarvik_tlk_stat_add(nullptr), EINVAL, false),
    ROW(tarvik_tlk_stat_delete(nullptr), EINVAL, false),
    ROW(tarvik_tlk_stat_clear(nullptr), EINVAL, false),
    ROW(tarvik_tlk_proxy_stat_add(nullptr, 1), EINVAL, false),
    ROW(tarvik_tlk_proxy_stat_delete(nullptr, 1), EINVAL, false),
    ROW(tarvik_tlk_proxy_stat_clear(nullptr, 1), EINVAL, false),
    ROW(tarvik_tlk_stat_get(nullptr, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_tlk_proxy_stat_get(nullptr, 1, 0, 0, nullptr), EINVAL, false),
    // Next hop, route and route class statistics.
    ROW(tarvik_rnhsm_get(nullptr, 0, TLK_OP_GET, 2, 2, 1, 0, 0, nullptr, nullptr, nullptr, 0, 0,
                         &g_out, &g_out),
        EINVAL, false),
    ROW(tarvik_rnhsm_get_by_index(nullptr, 1, 0, 2, 2, nullptr, nullptr, 0, TLK_OP_GET, &g_out,
                                  &g_out),
        EINVAL, false),
    ROW(tarvik_rnhsm_get_by_nexthop(nullptr, 0, TLK_OP_GET, &g_nh, &g_out, &g_out), EINVAL, false),
    ROW(tarvik_rtstats_get(nullptr, 2, 0, 0, 0, 8, g_prefix, g_words, nullptr), EINVAL, false),
    ROW(tarvik_rtcsm_get_by_index(nullptr, 1, 70, 2, 0, 0, &g_out), EINVAL, false),
    ROW(tarvik_rtcsm_get_by_name(nullptr, 0, "gold", 2, 0, 0, &g_out), EINVAL, false),
    ROW(tarvik_rtcsm_get_block_by_ifl_snmp_index(nullptr, 501, 2, 0, 0, &g_out), EINVAL, false),
    ROW(tarvik_rtcsm_clear_by_index(nullptr, 1, 70, 2, 0), EINVAL, false),
    // Asynchronous sessions.
    ROW(tarvik_create_async_context(nullptr), EINVAL, false),
    ROW(tarvik_set_async_context(nullptr, evContext{}), EINVAL, false),
    ROW(tarvik_set_async_info_nocontext(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_alloc_async_info(nullptr), EINVAL, false),
    ROW(tarvik_get_async_context(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_destroy_async_context(nullptr), EINVAL, false),
    ROW(tarvik_async_context_cleanup(nullptr), EINVAL, false),
    ROW(tarvik_setup_async_registration(nullptr, 6, 0, 0, nullptr, noop_async_handler), EINVAL,
        false),
    ROW(tarvik_setup_async_registration_idl(nullptr, 6, 0, 0, nullptr, noop_async_handler), EINVAL,
        false),
    ROW(tarvik_async_subtype_handler_register(nullptr, 79, 0, 1, 24, 0, 0, 0, nullptr,
                                              noop_async_handler),
        EINVAL, false),
    ROW(tarvik_input_async_register(nullptr), EINVAL, false),
    ROW(tarvik_async_opaque_register(nullptr, nullptr, noop_async_handler, nullptr), EINVAL, false),
    ROW(tarvik_set_async_msg_subtype(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_get_async_msg_subtype(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_async_register_filters(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_set_async_mode(nullptr, 1), EINVAL, false),
    ROW(tarvik_get_async_seq_num(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_rtm_async_unregister(nullptr), EINVAL, false),
    ROW(tarvik_rnhm_async_unregister(nullptr), EINVAL, false),
    ROW(tlk_async_set_event_hooks(nullptr, nullptr), EINVAL, false),
    REG(aggr_config),
    REG(analyzer),
    REG(asp_cfg),
    REG(asp_ipsec),
    REG(bd),
    REG(cos),
    REG(cp_config),
    REG(cp_pic),
    REG(ddos),
    REG(dfwm),
    REG(dfwstatsm),
    REG(error),
    REG(fc_fabric),
    REG(gencfg),
    REG(ifbd),
    REG(ifdalm),
    REG(ifdest),
    REG(ifdm),
    REG(iflm),
    REG(ifsm),
    REG(ifvcm),
    REG(ifvpm),
    REG(ksyncm),
    REG(l2tp),
    REG(marker),
    REG(mesh_group),
    REG(mgrm),
    REG(monitor),
    REG(monitor_state),
    REG(nh_comp),
    REG(notify),
    REG(pfe_dwn_map),
    REG(pfeinfo),
    REG(picm),
    REG(pkcs_reply),
    REG(pktinject),
    REG(rnhm),
    REG(rtbm),
    REG(rtclass),
    REG(rtm),
    REG(sadbm),
    REG(sample),
    REG(stp),
    REG(vlan),
    ROW(tarvik_iffm_async_register(nullptr, 0, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_ifam_async_register(nullptr, 0, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_sysstatsm_async_register(nullptr, 0, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_qsr_async_register(nullptr, nullptr, noop_async_handler, 0), EINVAL, false),
    ROW(tarvik_kuack_async_register(nullptr, 0, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_ifdsm_async_kernel_register(nullptr, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_ifsclim_async_register(nullptr, nullptr, noop_async_handler), EINVAL, false),
    ROW(tarvik_ifstate_eochain_register(nullptr, nullptr, noop_async_handler), EINVAL, false),
    // Firewall counters and log.
    ROW(tarvik_dfwsm_get_by_index(nullptr, 1, 2, TLK_OP_GET, 0, 5, 0, nullptr), EINVAL, false),
    ROW(tarvik_dfwsm_get_by_filter_index_counter_name(nullptr, 1, nullptr, 2, 5, nullptr, 0, 0,
                                                      nullptr),
        EINVAL, false),
    ROW(tarvik_dfwsm_get_psa_by_index(nullptr, 1, 2, TLK_OP_GET, nullptr, 0, 0, 5, nullptr), EINVAL,
        false),
    ROW(tarvik_dfwsm_get_by_index_async(nullptr, 1, 2, TLK_OP_GET, 0, 5, 0, nullptr, 0), EINVAL,
        false),
    ROW(tarvik_dfwsm_get_by_filter_index_counter_name_async(nullptr, 1, nullptr, 2, 5, nullptr, 0,
                                                            0),
        EINVAL, false),
    ROW(tarvik_dfwsm_get_async_cb(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_get_dfwsm_list(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_dfwsm_clear_all(nullptr, 2), EINVAL, false),
    ROW(tarvik_dfwsm_clear_by_index(nullptr, 2, 1, nullptr), EINVAL, false),
    ROW(tarvik_dfwsm_clear_by_counter_type(nullptr, 2, nullptr, 4), EINVAL, false),
    ROW(tarvik_dfwsm_list_get_counters(nullptr, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_dfwlm_get_by_time(nullptr, 2, TLK_OP_GET, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_dfwlm_get_by_filter_index(nullptr, 2, TLK_OP_GET, 1, nullptr), EINVAL, false),
    ROW(tarvik_dfwlm_get_by_if_index(nullptr, 2, TLK_OP_GET, 1, nullptr), EINVAL, false),
    ROW(tarvik_dfwlm_get_all(nullptr, 2, nullptr), EINVAL, false),
    ROW(tarvik_dfwlm_clear_all(nullptr, 2), EINVAL, false),
    // Class of service and the collector PIC.  The fabric policy and output queue reads check
    // nothing: a null session fails the block allocation.
    ROW(tarvik_cim_get(nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cfm_get(nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ccm_get_object(nullptr, 2, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ccm_get_ifl(nullptr, 71, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cpm_fab_chass_get(nullptr, 1, 2, 3, 1, TLK_OP_GET, &g_out), ENOMEM, false),
    ROW(tarvik_cpom_get(nullptr, 7, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_csm_get(nullptr, 3, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_crwm_get_object(nullptr, 5, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_crwm_get_ifl(nullptr, 71, 0, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cglb_get(nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cfragmap_get(nullptr, 0, 11, TLK_OP_GET, nullptr, 1), EINVAL, false),
    ROW(tarvik_cfragm_get_object(nullptr, 11, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cfragm_get_ifl(nullptr, 72, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cvoqstats_get(nullptr, 1, 1, &g_out), ENOMEM, false),
    ROW(inf_ifl_is_cos_policy_attached(71, nullptr), 0, false),
    ROW(tarvik_cp_params_get(nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cp_fspec_get(nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_iif_cp_map_get(nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_iif_fspec_map_get(nullptr, TLK_OP_GET, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_cp_stats_get_by_index(nullptr, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cp_stats_get_by_name(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_cp_file_stats_get_by_name(nullptr, nullptr, TLK_OP_GET), EINVAL, false),
    // Security associations and public-key requests.
    ROW(tarvik_sadbm_get(nullptr, TLK_OP_GET, nullptr, 1, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_sadbm_get_by_name(nullptr, TLK_OP_GET, nullptr, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_sadbm_modify(nullptr, TLK_OP_ADD, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_sadbstats_get(nullptr, TLK_OP_GET, nullptr, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_pkcsm_modify(nullptr, TLK_OP_ADD, nullptr), EINVAL, false),
    // Service PICs, monitoring, forwarding engines, chassis objects and ddos.
    ROW(tarvik_asp_cfg_add(nullptr, 1, 2, 3, 4, 5, 6), EINVAL, false),
    ROW(tarvik_asp_cfg_change(nullptr, 2, 3, 4, 5, 6), EINVAL, false),
    ROW(tarvik_asp_cfg_delete(nullptr, 3, 4, 5, 6), EINVAL, false),
    ROW(tarvik_asp_cfg_get(nullptr, 3, 4, 5, 6, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_cfg_add(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_cfg_change(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_cfg_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_cfg_get(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_session_cfg_add(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_session_cfg_change(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_session_cfg_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_session_cfg_get(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_group_add(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_group_change(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_group_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_tunnel_group_get(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_global_add(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_global_change(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_global_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_global_get(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_l2tp_lac_session_cfg_add(nullptr, nullptr, 1, 2, 3, 4, 5), EINVAL, false),
    ROW(tarvik_l2tp_lac_session_cfg_delete(nullptr, nullptr, 1, 2, 3, 4, 5), EINVAL, false),
    ROW(tarvik_l2tp_lns_session_cfg_add(nullptr, nullptr, 1, 2, 3, 4, 5), EINVAL, false),
    ROW(tarvik_l2tp_lns_session_cfg_delete(nullptr, nullptr, 1, 2, 3, 4, 5), EINVAL, false),
    ROW(tarvik_qsrm_op(nullptr, TLK_OP_GET, 1, 2, 3, nullptr, nullptr, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_mon_get(nullptr, TLK_OP_GET, nullptr, nullptr, 1, 2, 3), EINVAL, false),
    ROW(tarvik_monstats_get_by_index(nullptr, 1, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_ddos_request(nullptr, nullptr, 0, TLK_OP_GET, 1, 0, 1, 0, nullptr, nullptr), EINVAL,
        false),
    ROW(tarvik_pfeinfo_get_by_index(nullptr, 0, 0, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_pfeinfo_get_by_index_vks(nullptr, 0, 0, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_pfestat_get_by_index(nullptr, 0, 0, TLK_OP_GET, 0, 0, nullptr, nullptr, 0), EINVAL,
        false),
    ROW(tarvik_pfestat_clear(nullptr, 0, 0, TLK_OP_CLEAR, 0, 0, nullptr, nullptr, 0), EINVAL,
        false),
    ROW(tarvik_pfe_dwn_map_send_req(nullptr, 1, nullptr, 0, nullptr), EINVAL, false),
    ROW(tarvik_pic_add_with_tlvs(nullptr, 1, 0, 1, 2, 3, 4, nullptr, 0), EINVAL, false),
    ROW(tarvik_pic_delete(nullptr, 1, 0), EINVAL, false),
    ROW(tarvik_pic_get(nullptr, 1, 0, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_pic_change(nullptr, 1, 0, 1, 1), EINVAL, false),
    ROW(tarvik_ksync_get(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ksync_change(nullptr, 1, 2, 3, 0), EINVAL, false),
    ROW(tarvik_marker_get(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_marker_add(nullptr, 1, 2, 3, 4, 5), EINVAL, false),
    ROW(tarvik_sample_get(nullptr, TLK_OP_GET, 1, 0, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_sample_add(nullptr, 1, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_sample_delete(nullptr, 1, 0, 0, nullptr), EINVAL, false),
    // The statistics setting is read first; a null session then gives EINVAL all the same.
    ROW(tarvik_get_systemstats(nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifl_get_accounting(nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_pktinject_add(nullptr, 1, nullptr), EINVAL, false),
    ROW(tarvik_fc_fabric_get_by_index(nullptr, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_fc_fabric_get_by_name(nullptr, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_fmgrpm_get_by_index(nullptr, 10, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    // Bridging.
    ROW(tarvik_bd_get(nullptr, 0, TLK_OP_GET, 1, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_bd_get_by_name(nullptr, 0, TLK_OP_GET, nullptr, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_bd_add(nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_bd_pointchange(nullptr, 1, nullptr, 0), EINVAL, false),
    ROW(tarvik_bd_delete(nullptr, 0, 1), EINVAL, false),
    ROW(tarvik_ifbd_get(nullptr, TLK_OP_GET, nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifbd_add(nullptr, nullptr, 0, nullptr), EINVAL, false),
    ROW(tarvik_ifbd_change(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_ifbd_delete(nullptr, nullptr), EINVAL, false),
    ROW(tarvik_stp_add(nullptr, 0, nullptr, 0, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_stp_change(nullptr, 0, 1, 0, 0, 0, 0, 0, 0, 0), EINVAL, false),
    ROW(tarvik_stp_delete(nullptr, 0, 1), EINVAL, false),
    ROW(tarvik_stp_get(nullptr, TLK_OP_GET, 1, 0, nullptr, 0, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_vlanm_get_by_index(nullptr, 1, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_vlanm_get_by_name(nullptr, 0, nullptr, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_vlanm_get_by_l3ifl(nullptr, 71, TLK_OP_GET, nullptr), EINVAL, false),
    ROW(tarvik_mesh_group_op(nullptr, TLK_OP_GET, 0, 1, nullptr, nullptr, nullptr, 0, 0, 0, 0, 0),
        EINVAL, false),
    ROW(tarvik_analyzer_get(nullptr, TLK_OP_GET, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_mac_db_get_by_index(nullptr, 0, 1, 0, 0, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_mac_db_get_by_name(nullptr, 0, nullptr, 0, 0, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_mac_db_clear_by_index(nullptr, 0, 1, 0), EINVAL, false),
    ROW(tarvik_mac_db_clear_by_name(nullptr, 0, nullptr, 0, 0), EINVAL, false),
    ROW(tarvik_mac_stats_get_by_index(nullptr, 0, 1, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_mac_stats_get_by_name(nullptr, 0, nullptr, 0, 0, nullptr), EINVAL, false),
    ROW(tarvik_mac_stats_clear_by_index(nullptr, 0, 1, 0), EINVAL, false),
    ROW(tarvik_mac_stats_clear_by_name(nullptr, 0, nullptr, 0), EINVAL, false),
    // Message lists and event processing.
    ROW(tarvik_msg_list_alloc(nullptr), 0, false),
    ROW(tarvik_msg_list_add(nullptr, nullptr, nullptr), EINVAL, false),
    ROW(tarvik_msg_list_fillin(nullptr, nullptr, 0, nullptr), EINVAL, false),
    VOID_ROW(tarvik_msg_list_free(nullptr, nullptr), false),
    VOID_ROW(tarvik_async_set_num_read_msg(nullptr, 1), false),
    ROW(tarvik_async_event_process(nullptr), -1, true),
    ROW(tarvik_async_event_loop(nullptr), EINVAL, false),
    ROW(tarvik_async_event_loop_sighdl(nullptr), EINVAL, false),
    ROW(tarvik_async_subtype_handler(nullptr, nullptr, nullptr, 0), EINVAL, false),
    ROW(tarvik_async_opaque_handle(nullptr, TLK_OP_GET, nullptr, 0, nullptr, 0, 0), EINVAL, false),
    ROW(tarvik_ifsm_get(nullptr, 0, 1, TLK_OP_GET, &g_out), EINVAL, false),
    // The formatters take the session for their diagnostics only: no buffer or message, -1.
    ROW(tarvik_format_output(nullptr, nullptr, 0, 0, nullptr), -1, false),
    ROW(tarvik_format_brief_output(nullptr, nullptr, nullptr), -1, false),
    VOID_ROW(tarvik_print_msg_to_file(nullptr, nullptr, 0, nullptr), false),
    ROW(tarvik_ifdm_format_full_output(nullptr, nullptr, 0, nullptr), -1, false),
    ROW(tarvik_tlkm_format_full_output(nullptr, nullptr, nullptr), -1, false),
};

// The entry's name: the call text up to its parenthesis.
std::string name_of(const Row &r) {
  const std::string call = r.call;
  return call.substr(0, call.find('('));
}

class NullArgs : public SimTest {};

TEST_F(NullArgs, EveryEntryAnswersANullSessionAsDocumented) {
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.call);
    os.exits.clear();
    EXPECT_EQ(r.run(), r.want);
    EXPECT_EQ(!os.exits.empty(), r.ends);
  }
}

// Names of the exported entries that take a session, as the public headers declare them.
std::set<std::string> entries_taking_a_session() {
  std::set<std::string> names;
  const std::regex decl(R"(TLK_EXPORT[^;{]*?\b(\w+)\s*\(\s*tarvik_cookie\s*\*)");
  const std::regex family(R"(TLK_ASYNC_REGISTER_DECL\((\w+)\);)");
  for (const char *header : {TLK_PUBLIC_HEADERS}) {
    std::ifstream in(header);
    EXPECT_TRUE(in.good()) << header;
    std::stringstream text;
    text << in.rdbuf();
    const std::string s = text.str();
    for (std::sregex_iterator it(s.begin(), s.end(), decl), end; it != end; ++it) {
      names.insert((*it)[1]);
    }
    for (std::sregex_iterator it(s.begin(), s.end(), family), end; it != end; ++it) {
      names.insert("tarvik_" + (*it)[1].str() + "_async_register");
    }
  }
  names.erase("_async_register");  // the registration macro's own definition
  return names;
}

TEST(NullArgsTable, HasARowForEveryEntryThatTakesASession) {
  std::set<std::string> rows;
  for (const Row &r : kRows) rows.insert(name_of(r));
  const std::set<std::string> declared = entries_taking_a_session();
  EXPECT_GT(declared.size(), 100u) << "the headers were not read";
  for (const std::string &name : declared) EXPECT_TRUE(rows.count(name)) << name << " has no row";
}

}  // namespace
}  // namespace tlktest
