// The text of a gencfg message (type 72): the head line and, for the blob types this library
// knows, the blob's fields.  A blob is decoded with its record's TLV decoder into a zeroed local
// area, or into a block of the record's own memory identifier when the record is larger than
// that area; whatever the decoder allocated is released at the arm's common end.  A blob that
// does not decode never stops the line: it shows as the arm's "unable to IDL DECODE" text.
#include <string.h>

#include <type_traits>

#include "format/message.h"
#include "format/text.h"
#include "tarlink.h"

namespace tlk::format {
namespace {

constexpr int kFirstMajor = 2;
constexpr int kLastMajor = 94;
constexpr size_t kLocalArea = 1024;
constexpr size_t kRateBuf = 257;
constexpr size_t kScratch = 257;
constexpr int kCosLastMinor = 38;
constexpr uint8_t kOpDelete = 3;

// Memory identifiers of the records that may be too large for the local area, one per record.
constexpr uint16_t kMemCosSchedulerMap = 9;
constexpr uint16_t kMemCosL2tp = 10;
constexpr uint16_t kMemCosIflset = 11;
constexpr uint16_t kMemCosClassToIfl = 12;
constexpr uint16_t kMemCosFixedClass = 13;
constexpr uint16_t kMemCosRedProfile = 14;
constexpr uint16_t kMemCosFragmapToIfl = 15;
constexpr uint16_t kMemCosRewriteAssign = 16;
constexpr uint16_t kMemCosTranslation = 17;
constexpr uint16_t kMemCosTranslationIfl = 18;
constexpr uint16_t kMemCosFcSetParams = 19;
constexpr uint16_t kMemCosFcSetTable = 20;
constexpr uint16_t kMemCosFragmapOiu = 21;
constexpr uint16_t kMemCosTcmTable = 22;
constexpr uint16_t kMemCosTcmToIfd = 23;
constexpr uint16_t kMemCosPmTable = 24;
constexpr uint16_t kMemCosPmToIfl = 25;
constexpr uint16_t kMemCosGlobalTable = 26;
constexpr uint16_t kMemCosClassTable = 27;
constexpr uint16_t kMemCosPolicyInline = 28;
constexpr uint16_t kMemCosFabricTable = 29;
constexpr uint16_t kMemCosFragmapTable = 30;
constexpr uint16_t kMemCosRewriteTable = 31;
constexpr uint16_t kMemCosIflTcp = 32;
constexpr uint16_t kMemCosHostOutFc = 33;
constexpr uint16_t kMemDfwPolicer = 39;
constexpr uint16_t kMemDfwTricolor = 40;
constexpr uint16_t kMemDfwSession = 41;
constexpr uint16_t kMemDfwHierPolicer = 42;
constexpr uint16_t kMemDfwPsa = 43;
constexpr uint16_t kMemDfwTimer = 44;
constexpr uint16_t kMemDfwNotifyHost = 45;
constexpr uint16_t kMemDfwFilterHead = 46;
constexpr uint16_t kMemDfwFilterTerm = 47;
constexpr uint16_t kMemDfwFilterState = 48;
constexpr uint16_t kMemDfwFiu = 49;
constexpr uint16_t kMemDfwOiu = 50;
constexpr uint16_t kMemAncp = 51;
constexpr uint16_t kMemMcf = 52;
constexpr uint16_t kMemFpdlDefinition = 53;
constexpr uint16_t kMemFpdlFpb = 54;
constexpr uint16_t kMemFpdlApi = 55;
constexpr uint16_t kMemFpdlBind = 56;
// The payloads of the daemons and subsystems below are small records, decoded in the local area;
// each major keeps an identifier of its own for the day one of them outgrows it.
constexpr uint16_t kMemMedge = 66;
constexpr uint16_t kMemMacsec = 67;
constexpr uint16_t kMemDhcpRelay = 68;
constexpr uint16_t kMemAnalytics = 69;
constexpr uint16_t kMemSensorAgent = 70;
constexpr uint16_t kMemPortExtender = 72;
constexpr uint16_t kMemSatellite = 34;
constexpr uint16_t kMemEvpn = 37;
constexpr uint16_t kMemMacIp = 1;
constexpr uint16_t kMemPhoneHome = 2;

constexpr char kBadDecodeD[] = " minor-type: %d unable to IDL DECODE \n";
constexpr char kBadDecodeU[] = "\n minor-type: %u unable to IDL DECODE \n";
constexpr char kBadDecodeS[] = " minor-type: %s unable to IDL DECODE \n";
constexpr char kTruncated[] = "\n  <truncated...no buffer space>";

// A counted string as a C string, cut to the scratch size.
struct Str {
  char s[kScratch];
  Str(const uint8_t *data, uint32_t len) {
    const size_t n = data != nullptr ? strnlen(reinterpret_cast<const char *>(data),
                                               len < kScratch - 1 ? len : kScratch - 1)
                                     : 0;
    if (n != 0) memcpy(s, data, n);
    s[n] = 0;
  }
  operator const char *() const { return s; }
};

void *decode_alloc(uint32_t size, void *) {
  return tarvik_malloc_cb(size);
}
void decode_free(void *block, void *) {
  tarvik_free_cb(block);
}

enum class Decoded { kOk, kBad, kNoMemory };

// Decodes the blob into a record of type R and hands it to `print`.  Records with allocating
// fields take the allocator; the others have a decoder without it.
template <typename R, typename Dec, typename Rel, typename Print>
Decoded decode_blob(const gencfg_msg &m, uint16_t memid, Dec dec, Rel rel, Print print) {
  alignas(16) uint8_t local[kLocalArea];
  R *r;
  if constexpr (sizeof(R) <= kLocalArea) {
    memset(local, 0, sizeof local);
    r = reinterpret_cast<R *>(local);
  } else {
    r = static_cast<R *>(tarvik_malloc(memid, sizeof(R)));
    if (r == nullptr) return Decoded::kNoMemory;
    memset(static_cast<void *>(r), 0, sizeof(R));
  }
  int32_t got;
  if constexpr (std::is_invocable_v<Dec, R *, std::nullptr_t, const uint8_t *, uint32_t,
                                    tlk_idl_alloc_fn, void *>)
    got = dec(r, nullptr, m.blob, m.blob_len, decode_alloc, nullptr);
  else
    got = dec(r, nullptr, m.blob, m.blob_len);
  if (got >= 1) print(*r);
  rel(r, nullptr, decode_free, nullptr);
  if constexpr (sizeof(R) > kLocalArea) tarvik_free(memid, r);
  return got >= 1 ? Decoded::kOk : Decoded::kBad;
}

// Appends one row of a list.  A row is kept only if the truncation line and the line's end
// would still fit behind it; otherwise it is taken back, the truncation line takes its place,
// and the caller stops the list.
template <typename... A>
bool list_row(Out &out, const char *format, A... args) {
  const Out before = out;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  out.add(format, args...);
#pragma GCC diagnostic pop
  if (!out.overflowed() && out.left >= static_cast<int>(sizeof kTruncated)) return true;
  out = before;
  out.put(kTruncated);
  return false;
}

// "(kind:rate,...)" in a zeroed buffer of 257 bytes; an empty text for a null list.
void rate_list(char (&dst)[kRateBuf], const cos_pps_rate_s *list, uint32_t count) {
  static const char *const kKinds[] = {"gh",   "gm",   "gl",   "eh",  "el",
                                       "gs-h", "gm-l", "em-h", "em-l"};
  memset(dst, 0, sizeof dst);
  if (list == nullptr) return;
  Text t(dst, sizeof dst);
  t.add("(");
  for (uint32_t i = 0; i < count; ++i)
    t.add("%s%s:%llu", i == 0 ? "" : ",", list[i].pr_kind < 9 ? kKinds[list[i].pr_kind] : "unknown",
          static_cast<unsigned long long>(list[i].pr_rate));
  t.add(")");
}

const char *parent_type_word(uint32_t type) {
  static const char *const kWords[] = {
      "physical interface", "logical interface", "L2TP", "interface-set", "chassis",
      "multi-destination",  "global-bind"};
  return type < 7 ? kWords[type] : "unknown";
}

// ---- Class of service, by minor type. ----

// The inline scheduler policy: one of its two heads, then a row per queue.
void policy_inline(Out &out, const char *name, const cos_sched_policy_msg_inline &r) {
  using ull = unsigned long long;
  if (r.form == 0) {
    char rates[kRateBuf];
    char rem[kRateBuf];
    rate_list(rates, r.ppsrs, r.ppsrs_count);
    rate_list(rem, r.ppsrs_rem, r.ppsrs_rem_count);
    out.add(
        " minor type=<%s>: ifd %d, ifl %d, num queues %d stream %s sched-smap-id %u shaping-rate "
        "%llu guaranteed-rate %llu delay-buf %llu remaining=(id:%d - %llu,%llu,%llu)  excess-rate "
        "%u %llu ppsrs=%s ppsrs-rem=%s OH bytes=%d, OH mode=%s OH rem_bytes=%d OH rem_mode=%s "
        "scale=%d scale-flags=0x%x sched_mode=%d max_sched_levels=%d",
        name, r.ifd, r.ifl, r.num_queues, Str(r.stream, r.stream_len).s, r.smap_id,
        ull{r.shaping_rate}, ull{r.guaranteed_rate}, ull{r.delay_buf}, r.rem_id, ull{r.rem_shaping},
        ull{r.rem_guaranteed}, ull{r.rem_delay}, r.excess_type, ull{r.excess_rate}, rates, rem,
        r.oh_bytes, Str(r.oh_mode, r.oh_mode_len).s, r.oh_rem_bytes,
        Str(r.oh_rem_mode, r.oh_rem_mode_len).s, r.scale, r.scale_flags, r.sched_mode,
        r.max_sched_levels);
  } else {
    out.add(
        " minor type=<%s>: ifd %d, ifl %d, num queues %d, stream %s parent-type %s parent-index %d "
        "sched-smap-id %u shaping-rate %llu guaranteed-rate %llu delay-buf %llu excess-type %u "
        "excess-rate %llu cos flags 0x%x",
        name, r.ifd, r.ifl, r.num_queues, Str(r.stream, r.stream_len).s,
        parent_type_word(r.parent_type), r.parent_index, r.smap_id, ull{r.shaping_rate},
        ull{r.guaranteed_rate}, ull{r.delay_buf}, r.excess_type, ull{r.excess_rate}, r.cos_flags);
  }
  out.put(
      "\npri  tx-rate  shaping-  shaping-  excess-  excess exc- avg  \n                rate    "
      "burst "
      "By    rate    type  pri  const\n--- --------- --------- -------- --------- ------ ---- "
      "-----\n");
  for (uint32_t i = 0; r.queues != nullptr && i < r.queue_rows; ++i) {
    const sched_policy &q = r.queues[i];
    if (!list_row(out, "%3u %9u %9llu %8u %9u %6u %4u %5u\n", q.pri, q.tx_rate, ull{q.shaping_rate},
                  q.shaping_burst, q.excess_rate, q.excess_type, q.excess_pri, q.avg_const))
      break;
  }
}

#define COS(rec) tlv_decode_##rec##_0, tlv_release_##rec##_0

Decoded cos_minor(Out &out, const gencfg_msg &m, const char *name) {
  switch (m.minor) {
    case 0:
      return decode_blob<cos_scheduler_map_def>(
          m, kMemCosSchedulerMap, COS(cos_scheduler_map_def), [&](const cos_scheduler_map_def &r) {
            out.add(" minor type=<%s>: sched-map-id=%u, num-queues = %u", name, r.smap_id,
                    r.num_queues);
            out.put("\nqueue schedulers:");
            const uint32_t n = r.num_queues < 64 ? r.num_queues : 64;
            for (uint32_t i = 0; i < n; ++i) {
              const cos_sched_policy_def &q = r.queues[i];
              if (!list_row(out, "\n  queue %u sched %u priority %u tx-rate %llu", q.sp_queue,
                            q.sp_sched_id, q.sp_priority,
                            static_cast<unsigned long long>(q.sp_tx_rate)))
                break;
            }
          });
    case 1:
      return decode_blob<cos_l2tp_tc_profile_map>(
          m, kMemCosL2tp, COS(cos_l2tp_tc_profile_map), [&](const cos_l2tp_tc_profile_map &r) {
            out.add(
                "ifd=%u, ifl=%u session=%u tunnel=%u, remote-session=%u, remote-tunnel=%u, "
                "smap=%u shaping-rate=%lld, guaranteed-rate=%lld, delay-buffer=%lld, sin:: "
                "length=%u, family=%u, port=%u, addr=0x%x, zero=%s, src sin:: length=%u, "
                "family=%u, port=%u, addr=0x%x, zero=%s, encap overhead=%u, cos flags=%#x",
                r.ifd, r.ifl, r.session, r.tunnel, r.remote_session, r.remote_tunnel, r.smap,
                static_cast<long long>(r.shaping_rate), static_cast<long long>(r.guaranteed_rate),
                static_cast<long long>(r.delay_buffer), r.sin_len, r.sin_family, r.sin_port,
                r.sin_addr, Str(r.sin_zero, r.sin_zero_len).s, r.src_len, r.src_family, r.src_port,
                r.src_addr, Str(r.src_zero, r.src_zero_len).s, r.encap_overhead, r.cos_flags);
          });
    case 2: {
      if (m.blob_len < 16) return Decoded::kBad;
      out.add("ifl %u Tunnel group idx %u local tunnel id %u local session id %u", be32(m.blob),
              be32(m.blob + 4), be32(m.blob + 8), be32(m.blob + 12));
      return Decoded::kOk;
    }
    case 3:
      return decode_blob<cos_iflset_tc_profile_map>(
          m, kMemCosIflset, COS(cos_iflset_tc_profile_map),
          [&](const cos_iflset_tc_profile_map &r) {
            char rates[kRateBuf];
            rate_list(rates, r.ppsrs, r.ppsrs_count);
            using ull = unsigned long long;
            out.add(
                " minor type=<%s>: ifd=%u, parent-type=%s, parent-index=%u iflset=%u, type=%s, "
                "sched-smap-id=%u, shaper-spec-type=%u, shaping-rate=%llu, guaranteed_rate=%llu, "
                "delay_buffer=%llu, adjust-srs=(i:%u,%u) (o:%u,%u) (min:%llu), internal_node=%d, ",
                name, r.ifd, parent_type_word(r.parent_type), r.parent_index, r.iflset,
                Str(r.iflset_type, r.iflset_type_len).s, r.smap_id, r.shaper_spec_type,
                ull{r.shaping_rate}, ull{r.guaranteed_rate}, ull{r.delay_buffer}, r.adjust_in_a,
                r.adjust_in_b, r.adjust_out_a, r.adjust_out_b, ull{r.adjust_min}, r.internal_node);
            out.add(
                "exc_bw_type=%u, exc_bw_rate=%llu, exc_bw_high_type=%s, exc_bw_high_rate=%u, "
                "exc_bw_low_type=%s, exc_bw_low_rate=%u, remaining=(%llu,%llu,%llu), flags=0x%x "
                "%s, ppsrs=%s,OH bytes=%d, OH mode=%s, OH rem_bytes=%d, OH rem_mode=%s, parent "
                "list count=%d, scale factor=%d",
                r.exc_bw_type, ull{r.exc_bw_rate},
                Str(r.exc_bw_high_type, r.exc_bw_high_type_len).s, r.exc_bw_high_rate,
                Str(r.exc_bw_low_type, r.exc_bw_low_type_len).s, r.exc_bw_low_rate,
                ull{r.rem_shaping}, ull{r.rem_guaranteed}, ull{r.rem_delay}, r.flags,
                Str(r.flags_text, r.flags_text_len).s, rates, r.oh_bytes,
                Str(r.oh_mode, r.oh_mode_len).s, r.oh_rem_bytes,
                Str(r.oh_rem_mode, r.oh_rem_mode_len).s, r.parent_count, r.scale_factor);
          });
    case 4:
      return decode_blob<cos_msg_global_table>(
          m, kMemCosGlobalTable, COS(cos_msg_global_table), [&](const cos_msg_global_table &r) {
            out.add(
                " minor type=<%s>: action=%s forw-classes=%u plp-copy=%s plp-copy-all=%s "
                "tri-color=%s strict-prio-sched=%s rate-limit-burst=%d cos_msg_global_flag = %x",
                name, Str(r.action, r.action_len).s, r.forw_classes,
                Str(r.plp_copy, r.plp_copy_len).s, Str(r.plp_copy_all, r.plp_copy_all_len).s,
                Str(r.tri_color, r.tri_color_len).s, Str(r.strict_prio, r.strict_prio_len).s,
                r.rate_limit_burst, r.flags);
            out.put("\n\tForw-class-id\tQueue\tRestricted Queue\tPolicing Priority\tSPU Priority");
            for (uint32_t i = 0; r.rows != nullptr && i < r.num_rows; ++i) {
              const cos_msg_fc_to_queue_map &q = r.rows[i];
              if (!list_row(out, "\n\t%u\t\t%u\t%u\t\t\t%u\t\t\t%u", q.fc_id, q.queue,
                            q.restricted_queue, q.policing_prio, q.spu_prio))
                break;
            }
          });
    case 5:
      return decode_blob<cos_msg_class_table_update>(
          m, kMemCosClassTable, COS(cos_msg_class_table_update),
          [&](const cos_msg_class_table_update &r) {
            out.add(" minor type=<%s>: table id = %d, name %s, type = %s, num entries = %d, ", name,
                    r.table_id, Str(r.name, r.name_len).s, Str(r.type, r.type_len).s,
                    static_cast<int>(r.num_entries));
            out.put("\n\tForw-class\tCode-bit-point\tPLP");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i)
              if (!list_row(out, "\n\t%u\t\t%u\t\t%u", r.entries[i].fc, r.entries[i].code_point,
                            r.entries[i].plp))
                break;
          });
    case 8:
      return decode_blob<cos_sched_policy_msg_inline>(
          m, kMemCosPolicyInline, COS(cos_sched_policy_msg_inline),
          [&](const cos_sched_policy_msg_inline &r) { policy_inline(out, name, r); });
    case 11:
      return decode_blob<cos_msg_fabric_table_update>(
          m, kMemCosFabricTable, COS(cos_msg_fabric_table_update),
          [&](const cos_msg_fabric_table_update &r) {
            out.add(" minor type=<%s>: action=%s table-entries=%u", name,
                    Str(r.action, r.action_len).s, r.num_entries);
            out.put("\n\tForwarding-class\tPriority");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i)
              if (!list_row(out, "\n\t%u\t\t\t%u", r.entries[i].fc, r.entries[i].priority)) break;
          });
    case 12:
      return decode_blob<cos_msg_fragmap_table_update>(
          m, kMemCosFragmapTable, COS(cos_msg_fragmap_table_update),
          [&](const cos_msg_fragmap_table_update &r) {
            out.add(" minor type=<%s>: action=%s table-id=%u entries=%u\n Fragmap Table", name,
                    Str(r.action, r.action_len).s, r.table_id, r.num_entries);
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i) {
              const cos_if_fc_table_elem &e = r.entries[i];
              if (!list_row(out,
                            "\n\t fc=%u qnum=%u mlink-class-id=%u frag-thresh=%u drop-timeout=%u "
                            "flag=%#x",
                            e.fc, e.qnum, e.mlink_class_id, e.frag_thresh, e.drop_timeout, e.flag))
                break;
            }
          });
    case 14:
      return decode_blob<cos_msg_rewrite_table>(
          m, kMemCosRewriteTable, COS(cos_msg_rewrite_table), [&](const cos_msg_rewrite_table &r) {
            out.add(" minor type=<%s>: action=%s table-id=%u name %s type=%s entries=%u", name,
                    Str(r.action, r.action_len).s, r.table_id, Str(r.name, r.name_len).s,
                    Str(r.type, r.type_len).s, r.num_entries);
            out.put("\n\t forw-class \t <loss-priority, rw_enable, rw_bits>");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i) {
              const cos_rewrite_value_msg &e = r.entries[i];
              if (!list_row(out, "\n\t %u \t <%d, %#x, %#x>  ", e.fc, e.loss_priority, e.rw_enable,
                            e.rw_bits))
                break;
            }
          });
    case 16:
      return decode_blob<cos_ifl_tcp_msg>(
          m, kMemCosIflTcp, COS(cos_ifl_tcp_msg), [&](const cos_ifl_tcp_msg &r) {
            char rates[kRateBuf];
            rate_list(rates, r.ppsrs, r.ppsrs_count);
            using ull = unsigned long long;
            out.add(
                "minor type=<%s>: ifl %d, session id %llu : %llu tcp id = %u smap id = %u stream "
                "%s parent-type %s parent-index %d shaping-rate %llu adjust-srs (i:%u,%u) "
                "(o:%u,%u) (min:%llu) guaranteed-rate %llu delay-buf %llu exc-rate %u %llu "
                "exc-rate-high %s %u exc-rate-low %s %u flags %x parent list - count %d list : %s "
                "OH bytes %d OH mode %s level %d ppsrs %sremaining=(id:%d sh= %llu g= %llu dbr= "
                "%llu smap= %dOH= %d mode= %s)",
                name, r.ifl, ull{r.session_hi}, ull{r.session_lo}, r.tcp_id, r.smap_id,
                Str(r.stream, r.stream_len).s, parent_type_word(r.parent_type), r.parent_index,
                ull{r.shaping_rate}, r.adjust_in_a, r.adjust_in_b, r.adjust_out_a, r.adjust_out_b,
                ull{r.adjust_min}, ull{r.guaranteed_rate}, ull{r.delay_buf}, r.exc_type,
                ull{r.exc_rate}, Str(r.exc_high_type, r.exc_high_type_len).s, r.exc_high_rate,
                Str(r.exc_low_type, r.exc_low_type_len).s, r.exc_low_rate, r.flags, r.parent_count,
                Str(r.parent_list, r.parent_list_len).s, r.oh_bytes,
                Str(r.oh_mode, r.oh_mode_len).s, r.level, rates, r.rem_id, ull{r.rem_shaping},
                ull{r.rem_guaranteed}, ull{r.rem_delay}, r.rem_smap, r.rem_oh,
                Str(r.rem_mode, r.rem_mode_len).s);
          });
    case 28:
      return decode_blob<cos_msg_global_host_out_fc_table>(
          m, kMemCosHostOutFc, COS(cos_msg_global_host_out_fc_table),
          [&](const cos_msg_global_host_out_fc_table &r) {
            out.add(
                "minor type=<%s>: host_out_id %u fc %u queue %u rewrite_802dot1p %s "
                "default_802dot1p %s default_802dot1p_val 0x%x",
                name, r.host_out_id, r.fc, r.queue,
                Str(r.rewrite_802dot1p, r.rewrite_802dot1p_len).s,
                Str(r.default_802dot1p, r.default_802dot1p_len).s, r.default_802dot1p_val);
          });
    case 6:
      return decode_blob<cos_msg_class_to_ifl>(
          m, kMemCosClassToIfl, COS(cos_msg_class_to_ifl), [&](const cos_msg_class_to_ifl &r) {
            out.add(" minor type=<%s>: ifl = %d, table type = %s, table id = %d, cos_flags 0x%x",
                    name, r.ifl, Str(r.table_type, r.table_type_len).s, r.table_id, r.cos_flags);
          });
    case 7:
      return decode_blob<cos_msg_fixed_class>(
          m, kMemCosFixedClass, COS(cos_msg_fixed_class), [&](const cos_msg_fixed_class &r) {
            out.add(" minor-type=<%s>: action=%s ifl=%u queue=%u ", name,
                    Str(r.action, r.action_len).s, r.ifl, r.queue);
          });
    case 9:
      return decode_blob<cos_red_drop_profile_msg>(
          m, kMemCosRedProfile, COS(cos_red_drop_profile_msg),
          [&](const cos_red_drop_profile_msg &r) {
            out.add(" minor type=<%s>: profile id = %d, name %s num entries = %d", name,
                    r.profile_id, Str(r.name, r.name_len).s, static_cast<int>(r.num_entries));
            out.put("\n\tDrop-prof-id\tPercent-full\tDrop-Prob");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i)
              if (!list_row(out, "\n\t%u\t\t%u\t\t%u", r.entries[i].rd_profile_id,
                            r.entries[i].rd_percent_full, r.entries[i].rd_drop_prob))
                break;
          });
    case 13:
      return decode_blob<cos_msg_fragmap_to_ifl>(
          m, kMemCosFragmapToIfl, COS(cos_msg_fragmap_to_ifl),
          [&](const cos_msg_fragmap_to_ifl &r) {
            out.add(" minor type=<%s>: msg_action=%s ifl=%u table-id=%u", name,
                    Str(r.msg_action, r.msg_action_len).s, r.ifl, r.table_id);
          });
    case 15:
      return decode_blob<cos_msg_rewrite_table_assign>(
          m, kMemCosRewriteAssign, COS(cos_msg_rewrite_table_assign),
          [&](const cos_msg_rewrite_table_assign &r) {
            out.add(
                " minor type=<%s>: action=%s ifd=%u ifl=%u -> table-id=%u type=%s proto=%u "
                "cos-flags=%#x",
                name, Str(r.action, r.action_len).s, r.ifd, r.ifl, r.table_id,
                Str(r.type, r.type_len).s, r.proto, r.cos_flags);
          });
    case 17:
      return decode_blob<cos_translation_table_msg>(
          m, kMemCosTranslation, COS(cos_translation_table_msg),
          [&](const cos_translation_table_msg &r) {
            out.add(" minor type=<%s>: table type = %s, table id = %d", name,
                    Str(r.table_type, r.table_type_len).s, r.table_id);
          });
    case 18:
      return decode_blob<cos_translation_table_to_ifl_msg>(
          m, kMemCosTranslationIfl, COS(cos_translation_table_to_ifl_msg),
          [&](const cos_translation_table_to_ifl_msg &r) {
            out.add(" minor type=<%s>: ifl = %d, ifd = %d table type = %s, table id = %d", name,
                    r.ifl, r.ifd, Str(r.table_type, r.table_type_len).s, r.table_id);
          });
    case 21:
      return decode_blob<cos_if_fc_set_params_msg>(
          m, kMemCosFcSetParams, COS(cos_if_fc_set_params_msg),
          [&](const cos_if_fc_set_params_msg &r) {
            out.add(" minor type=<%s>: fc_set_table_id = %d, smap_id = %d,tcp id = %d", name,
                    r.fc_set_table_id, r.smap_id, r.tcp_id);
          });
    case 22:
      return decode_blob<cos_msg_fc_set_table>(
          m, kMemCosFcSetTable, COS(cos_msg_fc_set_table), [&](const cos_msg_fc_set_table &r) {
            out.add(" minor type=<%s>: fc_set_table_id = %d, fc_set_flags = %d ", name,
                    r.fc_set_table_id, r.fc_set_flags);
          });
    case 33:
      return decode_blob<cos_fragmap_oiu>(m, kMemCosFragmapOiu, COS(cos_fragmap_oiu),
                                          [&](const cos_fragmap_oiu &r) {
                                            out.add(" minor type=<%s>: name=%s table-id=%u", name,
                                                    Str(r.name, r.name_len).s, r.table_id);
                                          });
    case 34:
      return decode_blob<cos_msg_tcm_table_msg>(
          m, kMemCosTcmTable, COS(cos_msg_tcm_table_msg), [&](const cos_msg_tcm_table_msg &r) {
            out.add(" minor type=<%s>: table id = %d, type = %s, num entries = %d, ", name,
                    r.table_id, Str(r.type, r.type_len).s, static_cast<int>(r.num_entries));
            out.put("\n\tCode-point\tTraffic-class");
            out.put("\n\t-------------------------------");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i)
              if (!list_row(out, "\n\t%u\t\t%s", r.entries[i].tcm_code_point,
                            Str(r.entries[i].tcm_class, r.entries[i].tcm_class_len).s))
                break;
          });
    case 35:
      return decode_blob<cos_msg_tcm_to_ifd>(
          m, kMemCosTcmToIfd, COS(cos_msg_tcm_to_ifd), [&](const cos_msg_tcm_to_ifd &r) {
            out.add(" minor type=<%s>: ifd = %d, table id = %d, type = %s, cos_flags 0x%x", name,
                    r.ifd, r.table_id, Str(r.type, r.type_len).s, r.cos_flags);
          });
    case 37:
      return decode_blob<cos_msg_pm_table_msg>(
          m, kMemCosPmTable, COS(cos_msg_pm_table_msg), [&](const cos_msg_pm_table_msg &r) {
            out.add(" Minor Type <%s>: ID[%u], Name[%s] No. of Entries[%u]", name, r.id,
                    Str(r.name, r.name_len).s, r.num_entries);
            out.put("\n\tCode-point\t\t   Type (Option)");
            out.put("\n\t-------------------------------");
            for (uint32_t i = 0; r.entries != nullptr && i < r.num_entries; ++i)
              if (!list_row(out, "\n\t%4u%27s %s", r.entries[i].pm_code_point,
                            Str(r.entries[i].pm_type, r.entries[i].pm_type_len).s,
                            Str(r.entries[i].pm_option, r.entries[i].pm_option_len).s))
                break;
          });
    case 38:
      return decode_blob<cos_msg_pm_to_ifl_bind>(
          m, kMemCosPmToIfl, COS(cos_msg_pm_to_ifl_bind), [&](const cos_msg_pm_to_ifl_bind &r) {
            out.add(" Minor Type <%s>: ID[%u], Name[%s], IFL-Index[%u], Flags[0x%x]", name, r.id,
                    Str(r.name, r.name_len).s, r.ifl_index, r.flags);
          });
    default:
      return Decoded::kBad;
  }
}

void cos_blob(Out &out, const gencfg_msg &m) {
  const char *name = tarvik_format_cos_type(m.minor);
  const Decoded d = m.minor <= kCosLastMinor ? cos_minor(out, m, name) : Decoded::kBad;
  if (d != Decoded::kOk) out.add(" minor type=<%s>", name);
}

// ---- Firewall, by minor type. ----

void firewall_blob(Out &out, const gencfg_msg &m) {
  const int minor = m.minor;
  Decoded d = Decoded::kOk;
  using ull = unsigned long long;
  switch (minor) {
    case 10:
      d = decode_blob<_dfw_policer>(m, kMemDfwPolicer, COS(_dfw_policer),
                                    [&](const _dfw_policer &r) {
                                      out.add("\nDFW minor type %d [POLICER] name %s", minor,
                                              Str(r.key.dpk_name, r.key.dpk_name_len).s);
                                    });
      break;
    case 11:
      d = decode_blob<_dfw_tricolor>(
          m, kMemDfwTricolor, COS(_dfw_tricolor), [&](const _dfw_tricolor &r) {
            out.add(
                "\nDFW minor type %d [TRICOLOR] name %s(%d) mode %d color %d CIR %llu CBS %llu "
                "EBS %llu PIR %llu PBS %llu flags %d",
                minor, Str(r.key.dtk_name, r.key.dtk_name_len).s, r.key.dtk_index, r.mode, r.color,
                ull{r.cir}, ull{r.cbs}, ull{r.ebs}, ull{r.pir}, ull{r.pbs}, r.flags);
          });
      break;
    case 12:
      d = decode_blob<_dfw_client_session_info>(
          m, kMemDfwSession, COS(_dfw_client_session_info), [&](const _dfw_client_session_info &r) {
            out.add("\nDFW minor type %d [SESSION INFO] num-client-ids %hu [ ", minor,
                    static_cast<unsigned short>(r.num_client_ids));
            for (uint32_t i = 0; r.client_ids != nullptr && i < r.num_client_ids; ++i)
              out.add("%hu ", r.client_ids[i]);
          });
      break;
    case 13:
      d = decode_blob<_dfw_hierpolicer>(
          m, kMemDfwHierPolicer, COS(_dfw_hierpolicer), [&](const _dfw_hierpolicer &r) {
            out.add(
                "\nDFW minor type %d [HIER POLICER]name %s NON_EF (BW %llu BURST %llu PLP %u QUEUE "
                "%u ACTION %u OPTIONS %u) EF (BW %llu BURST %llu PLP %u QUEUE %u) ACTION %u "
                "OPTIONS %u)",
                minor, Str(r.key.dhk_name, r.key.dhk_name_len).s, ull{r.nonef_bw},
                ull{r.nonef_burst}, r.nonef_plp, r.nonef_queue, r.nonef_action, r.nonef_options,
                ull{r.ef_bw}, ull{r.ef_burst}, r.ef_plp, r.ef_queue, r.ef_action, r.ef_options);
          });
      break;
    case 15:
      d = decode_blob<_dfw_psa>(m, kMemDfwPsa, COS(_dfw_psa), [&](const _dfw_psa &r) {
        out.add("\nDFW minor type %d [PSA] name %s (app %d) ", minor,
                Str(r.key.dsk_name, r.key.dsk_name_len).s, r.app);
        if (r.policer != nullptr)
          out.add("policer %s ", Str(r.policer, r.policer_len).s);
        else
          out.put("policer NULL ");
        if (r.flags & 1) out.put("count ");
        if (r.flags & 2) out.put("source ");
        if (r.flags & 4) out.put("destination ");
        out.add("prefix_len %d subnet_len %d flags 0x%x", r.prefix_len, r.subnet_len, r.flags);
      });
      break;
    case 16:
      d = decode_blob<_dfw_timer>(m, kMemDfwTimer, COS(_dfw_timer), [&](const _dfw_timer &r) {
        out.add("\nDFW minor type %d [TIMER] name %s", minor,
                Str(r.key.dmk_name, r.key.dmk_name_len).s);
      });
      break;
    case 17:
      d = decode_blob<_dfw_filter_notify_host>(
          m, kMemDfwNotifyHost, COS(_dfw_filter_notify_host),
          [&](const _dfw_filter_notify_host &r) {
            out.add("\nDFW minor type %d [NOTIFY HOST] filter index %d host id %d", minor,
                    r.key.dnk_filter_index, r.host_id);
          });
      break;
    case 21:
      d = decode_blob<_dfw_filter_head>(
          m, kMemDfwFilterHead, COS(_dfw_filter_head), [&](const _dfw_filter_head &r) {
            out.add(
                "\nDFW minor type %d [FILTER HEAD] filter index %d NAME: %s optimization %d type "
                "%d semantic %d app-type %d af %d",
                minor, static_cast<int>(r.dfh_index.dfh_key_index),
                Str(r.dfh_name, r.dfh_name_len).s, r.dfh_flags, r.dfh_kind, r.dfh_family_code,
                r.dfh_family, r.dfh_af);
          });
      break;
    case 22:
      d = decode_blob<_dfw_filter_term>(
          m, kMemDfwFilterTerm, COS(_dfw_filter_term), [&](const _dfw_filter_term &r) {
            out.add("\nDFW minor type %d [FILTER TERM] filter index %d term %s", minor,
                    r.key.dtk_filter_index, Str(r.key.dtk_term, r.key.dtk_term_len).s);
          });
      break;
    case 23:
      d = decode_blob<_dfw_filter_state>(
          m, kMemDfwFilterState, COS(_dfw_filter_state), [&](const _dfw_filter_state &r) {
            out.add("\nDFW minor type %d [FILTER STATE] filter index %d flags 0x%x", minor,
                    static_cast<int>(r.dfs_index.dfs_key_index), r.dfs_state);
          });
      break;
    case 24:
      d = decode_blob<_dfw_fiu>(m, kMemDfwFiu, COS(_dfw_fiu), [&](const _dfw_fiu &r) {
        out.add("\nDFW minor type %d [FIU] filter index %d name %s (af %u, style %d)", minor,
                r.key.dfk_filter_index, Str(r.name, r.name_len).s, r.af, r.style);
      });
      break;
    case 25:
      d = decode_blob<_dfw_oiu>(m, kMemDfwOiu, COS(_dfw_oiu), [&](const _dfw_oiu &r) {
        out.add("\nDFW minor type %d [OIU] type %d name %s", minor, r.type,
                Str(r.name, r.name_len).s);
      });
      break;
    default:
      out.add("\nDFW minor type %d", minor);
      return;
  }
  if (d == Decoded::kBad) out.add(kBadDecodeD, minor);
}

// ---- Multicast filters and FPDL. ----

template <typename R>
void mcf_index_form(Out &out, const R &r) {
  out.add("chipid=%d coremcindex=%d internalmcindex=%d ", r.chipid, r.coremcindex,
          r.internalmcindex);
}
template <typename R>
void mcf_srcmod_form(Out &out, const R &r) {
  out.add("chipid=%d srcmod=%d chosenineid=%d ", r.chipid, r.srcmod, r.chosenineid);
}

void mcf_blob(Out &out, const gencfg_msg &m) {
  static const char *const kWords[] = {"mc_idx", "edge srcmod", "lag", "edge ck-ifls"};
  Decoded d;
  switch (m.minor) {
    case 0:
      out.put(" mc_idx filter ");
      d = decode_blob<mcf_idx_filter_data>(m, kMemMcf, COS(mcf_idx_filter_data),
                                           [&](const auto &r) { mcf_index_form(out, r); });
      break;
    case 1:
      out.put(" edge srcmod filter ");
      d = decode_blob<mcf_edge_src_mod_filter_data>(
          m, kMemMcf, COS(mcf_edge_src_mod_filter_data),
          [&](const auto &r) { mcf_srcmod_form(out, r); });
      break;
    case 2:
      out.put(" lag filter ");
      d = decode_blob<mcf_lag_filter_data>(m, kMemMcf, COS(mcf_lag_filter_data),
                                           [&](const auto &r) { mcf_srcmod_form(out, r); });
      break;
    case 3:
      out.put(" edge ck-ifls filter ");
      d = decode_blob<mcf_edge_ck_ifls_filter_data>(m, kMemMcf, COS(mcf_edge_ck_ifls_filter_data),
                                                    [&](const auto &r) { mcf_index_form(out, r); });
      break;
    default:
      return;
  }
  if (d == Decoded::kBad) out.add(kBadDecodeS, kWords[m.minor]);
}

void fpdl_blob(Out &out, const gencfg_msg &m) {
  Decoded d = Decoded::kOk;
  switch (m.major) {
    case 43:
      d = decode_blob<fpdl_definition_msg>(
          m, kMemFpdlDefinition, COS(fpdl_definition_msg), [&](const fpdl_definition_msg &r) {
            out.add("fpdl id = %d fpdl name = %sfpdl data= %s\n", r.fpdl_id,
                    Str(r.fpdl_name, r.fpdl_name_len).s, Str(r.fpdl_data, r.fpdl_data_len).s);
          });
      break;
    case 44:
      d = decode_blob<fpdl_fpb_msg>(m, kMemFpdlFpb, COS(fpdl_fpb_msg), [&](const fpdl_fpb_msg &r) {
        out.add("fpdl-instance id = %d fpdl-id = %dfpdl-num-args = %d\n ", r.instance_id, r.fpdl_id,
                static_cast<int>(r.num_args));
        for (uint32_t i = 0; r.args != nullptr && i < r.num_args; ++i)
          out.add("arg-name %s, arg-val %d\n", Str(r.args[i].arg_name, r.args[i].arg_name_len).s,
                  r.args[i].arg_val);
      });
      break;
    case 45:
      if (m.minor == 0) {
        d = decode_blob<fpdl_fpb_api_item_flow_msg>(
            m, kMemFpdlApi, COS(fpdl_fpb_api_item_flow_msg),
            [&](const fpdl_fpb_api_item_flow_msg &r) {
              out.add("minor type = %sfpdl-instance id = %d fpb flow table name = %s \n", "flow",
                      r.instance_id, Str(r.table_name, r.table_name_len).s);
              for (uint32_t i = 0; r.fields != nullptr && i < r.num_fields; ++i)
                out.add("field %s, value %u\n",
                        Str(r.fields[i].field_name, r.fields[i].field_name_len).s,
                        r.fields[i].field_value);
            });
      } else if (m.minor == 1) {
        d = decode_blob<fpdl_fpb_api_item_action_msg>(
            m, kMemFpdlApi, COS(fpdl_fpb_api_item_action_msg),
            [&](const fpdl_fpb_api_item_action_msg &r) {
              out.add("minor type = %sfpdl-instance id = %d fpb flow table name = %s \n", "action",
                      r.instance_id, Str(r.table_name, r.table_name_len).s);
              out.add("action %s, value %u\n", Str(r.action_name, r.action_name_len).s,
                      r.action_value);
            });
      }
      break;
    case 46:
      d = decode_blob<fpdl_fpb_bind_msg>(
          m, kMemFpdlBind, COS(fpdl_fpb_bind_msg), [&](const fpdl_fpb_bind_msg &r) {
            out.add(
                "fpdl-instance id = %d fpdl-bind-type = %d fpdl-bind-index = %d "
                "fpdl-bind-direction = %d\n",
                r.instance_id, r.bind_type, r.bind_index, r.bind_direction);
          });
      break;
    default:
      break;
  }
  if (d == Decoded::kBad) out.add(kBadDecodeU, static_cast<unsigned>(m.minor));
}

// ---- Daemon and subsystem payloads. ----

// Decodes and prints a blob whose decode failure shows as the minor's number.
template <typename R, typename Dec, typename Rel, typename Print>
void numbered_arm(Out &out, const gencfg_msg &m, uint16_t memid, Dec dec, Rel rel, Print print) {
  if (decode_blob<R>(m, memid, dec, rel, print) == Decoded::kBad) out.add(kBadDecodeD, m.minor);
}
#define ARM(rec) numbered_arm<rec>(out, m, kMem, COS(rec), [&](const rec &r)

// Mobile edge profiles and mappings, by minor type.
void medge_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemMedge;
  switch (m.minor) {
    case 0:
      return ARM(medge_tariff_prof) {
        out.add("Tariff Prof: id=%d, gw_id=%d, num_tariff_entries=%d", r.mtp_id, r.mtp_gw_id,
                r.mtp_num_tariff_entries);
      });
    case 1:
      return ARM(medge_quota_prof) {
        out.add(" Quota Prof: id=%d, tariff_prof_id=%d, gw_id: %d, time=%d, vol=%d", r.mqp_id,
                r.mqp_tariff_prof_id, r.mqp_gw_id, r.mqp_time, r.mqp_vol);
      });
    case 2:
      return ARM(medge_pfe_gw_mapping) {
        out.add(" PFE<->GW Mapping: id=%d,gw_id=%d", r.mpgm_id, r.mpgm_gw_id);
      });
    case 3:
      return ARM(medge_apn_mif_gw_mapping) {
        out.add(" APN<->MIF<->GW Mapping: id=%d,gw_id=%d,mif_id=%d,apn=%s", r.mamg_id, r.mamg_gw_id,
                r.mamg_mif_id, Str(r.mamg_apn, r.mamg_apn_len).s);
      });
    case 4:
      return ARM(medge_tdf_domain_info) {
        out.add(" TDF Domain: id=%d,gw_id=%d,domain=%s", r.mtdi_id, r.mtdi_gw_id,
                Str(r.mtdi_domain, r.mtdi_domain_len).s);
      });
    default:
      return;
  }
}

constexpr char kMacsecHead[] = "\n minor-type: %s\n ifd_index: %d\n";

// MACsec: the minor's word and the interface, then the fields of each record.  A record without
// an interface (the global switch) shows index 0.
void macsec_blob(Out &out, const gencfg_msg &m) {
  static const char *const kWords[] = {"secy_params",     "sc_params",      "sc_enable",
                                       "macsec_filter",   "global_disable", "config_status",
                                       "interface_macsec"};
  using ull = unsigned long long;
  if (m.minor >= sizeof kWords / sizeof kWords[0]) return;
  const char *word = kWords[m.minor];
  Decoded d = Decoded::kOk;
  switch (m.minor) {
    case 0:
      d = decode_blob<gencfg_secy_params>(
          m, kMemMacsec, COS(gencfg_secy_params), [&](const gencfg_secy_params &r) {
            out.add(kMacsecHead, word, r.gsp_ifd_index);
            out.add(
                " sci: 0x%llx\n cipher: %u\n offset: %u\n replay_protect: %u\n replay_window: "
                "%u\n",
                ull{r.gsp_sci}, r.gsp_cipher, r.gsp_offset, r.gsp_replay_protect,
                r.gsp_replay_window);
          });
      break;
    case 1:
      d = decode_blob<gencfg_sc_params>(
          m, kMemMacsec, COS(gencfg_sc_params), [&](const gencfg_sc_params &r) {
            out.add(kMacsecHead, word, r.gsp_ifd_index);
            out.add(" sci: 0x%llx\n direction: %u\n cipher: %u\n an: %u\n", ull{r.gsp_sci},
                    r.gsp_direction, r.gsp_cipher, r.gsp_an);
          });
      break;
    case 2:
      d = decode_blob<gencfg_sc_enable>(
          m, kMemMacsec, COS(gencfg_sc_enable), [&](const gencfg_sc_enable &r) {
            out.add(kMacsecHead, word, r.gse_ifd_index);
            out.add(" sci: 0x%llx\n enable: %u\n", ull{r.gse_sci}, r.gse_enable);
          });
      break;
    case 3:
      d = decode_blob<gencfg_macsec_filter>(
          m, kMemMacsec, COS(gencfg_macsec_filter), [&](const gencfg_macsec_filter &r) {
            const uint8_t *a = r.gmf_mac;
            out.add(kMacsecHead, word, r.gmf_ifd_index);
            out.add(" ethertype: 0x%x\n mac: %02x:%02x:%02x:%02x:%02x:%02x\n", r.gmf_ethertype,
                    a[0], a[1], a[2], a[3], a[4], a[5]);
          });
      break;
    case 4:
      d = decode_blob<gencfg_global_disable>(m, kMemMacsec, COS(gencfg_global_disable),
                                             [&](const gencfg_global_disable &r) {
                                               out.add(kMacsecHead, word, 0);
                                               out.add(" disable: %u\n", r.ggd_disable);
                                             });
      break;
    case 5:
      d = decode_blob<gencfg_macsec_config_status>(m, kMemMacsec, COS(gencfg_macsec_config_status),
                                                   [&](const gencfg_macsec_config_status &r) {
                                                     out.add(kMacsecHead, word, r.gmcs_ifd_index);
                                                     out.add(" status: %u\n", r.gmcs_status);
                                                   });
      break;
    default:
      d = decode_blob<gencfg_interface_macsec>(
          m, kMemMacsec, COS(gencfg_interface_macsec), [&](const gencfg_interface_macsec &r) {
            out.add(kMacsecHead, word, r.gim_ifd_index);
            out.add(" flags: 0x%x\n enable: %u\n", r.gim_flags, r.gim_enable);
          });
      break;
  }
  if (d == Decoded::kBad) out.add(kBadDecodeS, word);
}

// The DHCP relay's per-domain switches, one word per flag that is on.
void dhcp_flag_words(Out &out, uint32_t flags) {
  static const char *const kWords[] = {"no-dhcp-snoop ", "arp-inspection ", "ip-source-guard "};
  for (uint32_t bit = 0; bit < sizeof kWords / sizeof kWords[0]; ++bit)
    if (flags & (1u << bit)) out.put(kWords[bit]);
}

constexpr char kDhcpDomainHead[] =
    " minor-type: %d bd_index: %d\n config_flags: %x config_flags2:%x ";

// DHCP relay and snooping configuration, by minor type.  The two global relay switches carry
// nothing worth decoding.
void dhcp_relay_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemDhcpRelay;
  switch (m.minor) {
    case 0:
      return ARM(qdhcp_msg_bd_cfg) {
        out.add(kDhcpDomainHead, r.qmbc_minor_type, r.qmbc_bd_index, r.qmbc_config_flags,
                r.qmbc_config_flags2);
        dhcp_flag_words(out, r.qmbc_config_flags);
      });
    case 1:
      return ARM(qdhcp_msg_ifbd_cfg) {
        out.add(kDhcpDomainHead, r.qmic_minor_type, r.qmic_bd_index, r.qmic_config_flags,
                r.qmic_config_flags2);
        dhcp_flag_words(out, r.qmic_config_flags);
        out.add("ifl_index: %u ", r.qmic_ifl_index);
      });
    case 2:
      return ARM(qdhcp_msg_host_name_cfg) {
        out.add(" minor-type: %d host_name: %s ", r.qmhn_minor_type,
                Str(r.qmhn_host_name, r.qmhn_host_name_len).s);
      });
    case 3:
      return out.put("\n minor-type: global_v4_relay \n");
    case 4:
      return ARM(qdhcp_msg_rt_relay_server_cfg) {
        const uint32_t a = r.qmrs_server_addr;
        out.add(" minor-type: %d rtb_id: %u server: %u.%u.%u.%u v6_servers: %u ", r.qmrs_minor_type,
                r.qmrs_rtb_id, a >> 24, a >> 16 & 0xFF, a >> 8 & 0xFF, a & 0xFF,
                r.qmrs_v6_servers.qial_addrs_count);
      });
    case 5:
      return out.put("\n minor-type: global_v6_relay \n");
    case 6:
      return ARM(qdhcp_msg_chassis_mac_cfg) {
        const uint8_t *a = r.qmcm_mac.qm_mac;
        out.add(" minor-type: %d chassis_mac: %02x:%02x:%02x:%02x:%02x:%02x ", r.qmcm_minor_type,
                a[0], a[1], a[2], a[3], a[4], a[5]);
      });
    case 7:
      return ARM(qdhcp_msg_rag_policy) {
        out.add(" minor-type: %d policy_id: %u flags: %x prefixes: %u ", r.qmrp_minor_type,
                r.qmrp_policy_id, r.qmrp_flags, r.qmrp_prefixes.qipl_prefixes_count);
      });
    default:
      return;
  }
}

void analytics_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemAnalytics;
  if (m.minor == 0) return ARM(analytics_msg_ifd_cfg) {
      out.add(" type=ifd_cfg: ifd_idx=%u ts=%u qm=%u lth=%u ltl=%u dth=%u dtl=%u", r.amic_ifd_idx,
              r.amic_ts, r.amic_qm, r.amic_lth, r.amic_ltl, r.amic_dth, r.amic_dtl);
    });
  if (m.minor == 1) return ARM(analytics_msg_global_cfg) {
      out.add(" type=gbl_cfg: ts=%u tsint=%usec qs=%u qsint=%umsec lth=%u ltl=%u dth=%u dtl=%u",
              r.amgc_ts, r.amgc_tsint, r.amgc_qs, r.amgc_qsint, r.amgc_lth, r.amgc_ltl, r.amgc_dth,
              r.amgc_dtl);
    });
}

// Port extenders (satellite devices): an interface list or a device, by minor type.
void port_extender_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemPortExtender;
  if (m.minor == 0) return ARM(ep_interface) {
      out.add("\nSPMD minor type:      %d\nslot:                 %d\nnumber of interfaces: %d",
              r.epi_minor_type, r.epi_slot, r.epi_num_interfaces);
    });
  if (m.minor == 1) return ARM(ep_device) {
      const uint8_t *id = r.epd_system_id;
      const uint32_t a = r.epd_inband_lb_addr;
      char lb[16];
      snprintf(lb, sizeof lb, "%u.%u.%u.%u", a >> 24, a >> 16 & 0xFF, a >> 8 & 0xFF, a & 0xFF);
      out.add(
          "\nSPMD minor type:      %d\nslot:                 %d\nmodel:                %s\nserial "
          "number:        %s\nalias:                %s\nstate:                %d\nsystem id:      "
          "      %02x:%02x:%02x:%02x:%02x:%02x\nredundancy group id:  %d\nmcast replication:    "
          "%d\nstat port number:     %d\namd port number:      %d\ncpd port number:      %d\nep "
          "connectivity:      %d\ninband lb addr:       %s",
          r.epd_minor_type, r.epd_slot, Str(r.epd_model, r.epd_model_len).s,
          Str(r.epd_serial, r.epd_serial_len).s, Str(r.epd_alias, r.epd_alias_len).s, r.epd_state,
          id[0], id[1], id[2], id[3], id[4], id[5], r.epd_rgid, r.epd_mcast_replication,
          r.epd_stat_port, r.epd_amd_port, r.epd_cpd_port, r.epd_connectivity, lb);
      out.add("\nnumber of cascade interfaces configured:  %d",
              static_cast<int>(r.epd_cascades_count));
      for (uint32_t i = 0; r.epd_cascades != nullptr && i < r.epd_cascades_count; ++i)
        if (!list_row(out, "\n  cascade ifd %u port %u", r.epd_cascades[i].epdc_ifd_index,
                      r.epd_cascades[i].epdc_port))
          break;
    });
  out.put("\nSPMD minor type = [UNKNOWN]");
}

void mac_ip_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemMacIp;
  constexpr int kInet = 2;
  ARM(gencfg_mac_ip) {
    char ip[kScratch];
    ip[0] = 0;
    tarvik_format_prefix(ip, sizeof ip, r.gmi_ip, r.gmi_af == kInet ? 32 : 128, r.gmi_af, 0);
    const uint8_t *a = r.gmi_mac;
    out.add("IP: %s, MAC: %x:%x:%x:%x:%x:%x BD %u IFL index %u", ip, a[0], a[1], a[2], a[3], a[4],
            a[5], r.gmi_bd, r.gmi_ifl_index);
  });
}

void phone_home_blob(Out &out, const gencfg_msg &m) {
  if (m.minor != 0) return;
  const Decoded d = decode_blob<phcd_msg_led_state>(
      m, kMemPhoneHome, COS(phcd_msg_led_state), [&](const phcd_msg_led_state &r) {
        out.add("\n phone-home led_state: %d", static_cast<int>(r.pmls_led_state));
      });
  if (d == Decoded::kBad)
    out.add("\n phone-home minor-type %u unable to IDL DECODE", static_cast<unsigned>(m.minor));
}

void sensor_agent_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemSensorAgent;
  ARM(agentd_msg_sensor_counter_cfg) {
    out.add(" type=counter_cfg: id=%lld, flags=0x%x", static_cast<long long>(r.amsc_id),
            r.amsc_flags);
  });
}

void satellite_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemSatellite;
  ARM(satellite_global_info) {
    const uint8_t *a = r.sgi_system_mac;
    out.add(
        "\nRedundancy Group Name:    %s\nRedundancy Group ID:      %d\nSystem MAC address:   "
        "    %02x:%02x:%02x:%02x:%02x:%02x",
        Str(r.sgi_rg_name, r.sgi_rg_name_len).s, static_cast<int>(r.sgi_rg_id), a[0], a[1], a[2],
        a[3], a[4], a[5]);
  });
}

void evpn_blob(Out &out, const gencfg_msg &m) {
  constexpr uint16_t kMem = kMemEvpn;
  ARM(rpd_evpn_etree_leaf_gencfg) {
    out.add(" version %d lsys_id %d label %d", static_cast<int>(r.reel_version),
            static_cast<int>(r.reel_lsys_id), static_cast<int>(r.reel_label));
  });
}

#undef ARM
#undef COS

// ---- Blobs of fixed layout: big-endian words at fixed offsets, names of 64 bytes. ----

constexpr size_t kNameLen = 64;

uint32_t word_at(const gencfg_msg &m, size_t at) {
  return at + 4 <= m.blob_len ? be32(m.blob + at) : 0;
}
Str name_at(const gencfg_msg &m, size_t at) {
  if (at >= m.blob_len) return Str(nullptr, 0);
  const size_t n = m.blob_len - at < kNameLen ? m.blob_len - at : kNameLen;
  return Str(m.blob + at, static_cast<uint32_t>(n));
}

// L2TP CoS info:
//   0 session | 4 peer session | 8 tunnel group | 12 ifd name[64] | 76 unit | 80 ifl index |
//   84 devindex | 88 cos name[64] | 152 smap | 156 tcp | 160 queues | 164 stream name[64] |
//   228 encap | 232 cell
void l2tp_cos(Out &out, const gencfg_msg &m) {
  out.add(", Ses %u/%u tnl grp %u, ifl %s.%u %u devindex %u, cos %s %u %u %u %s encap %d cell %d",
          word_at(m, 0), word_at(m, 4), word_at(m, 8), name_at(m, 12).s, word_at(m, 76),
          word_at(m, 80), word_at(m, 84), name_at(m, 88).s, word_at(m, 152), word_at(m, 156),
          word_at(m, 160), name_at(m, 164).s, static_cast<int>(word_at(m, 228)),
          static_cast<int>(word_at(m, 232)));
}

void issu_blob(Out &out, const gencfg_msg &m) {
  const bool show = m.gencfg_hdr.tlkh_op != kOpDelete;
  if (m.minor == 1) {
    out.put(" ISSU Chassisd state ");
    if (show)
      out.add(" Chassisd State <%s>",
              tarvik_format_chassisd_issu_state(static_cast<int>(word_at(m, 0))));
  } else if (m.minor == 0) {
    out.put(" ISSU Daemon state ");
    if (show)
      out.add(" <%s> wait %d errstr %s",
              tarvik_format_daemon_issu_state(static_cast<int>(word_at(m, 0))),
              static_cast<int>(word_at(m, 4)), name_at(m, 8).s);
  }
}

void ppm_blob(Out &out, const gencfg_msg &m) {
  const char *type = tarvik_format_ppm_type(m.minor);
  if (m.minor == 0)
    out.add(" PPM minor type = %s, Key(discriminator) %u, NH-Index %u", type, word_at(m, 0),
            word_at(m, 4));
  else if (m.minor == 1 || m.minor == 2)
    out.add(" PPM minor type = %s, Key(IFL:Group:IP-Ver) %u::%u::%u, NH-Index %u", type,
            word_at(m, 0), word_at(m, 4), word_at(m, 8), word_at(m, 12));
  else
    out.add("\nPPM minor type %d [UNKNOWN ?!]", m.minor);
}

void usp_blob(Out &out, const gencfg_msg &m) {
  if (m.minor >= 160) {
    out.add(" kernel id=%d", static_cast<int>(m.kid));
    return;
  }
  char text[kScratch] = {};
  // The USP printers swap the blob to host order in place: the message is written here.
  tarvik_gencfg_format_usptype_blobinfo(m.minor, const_cast<gencfg_msg *>(&m), text);
  const char *name = tarvik_gencfg_format_usptype(m.minor);
  out.add(" Type %s %s", name != nullptr ? name : "(null)", text);
}

}  // namespace

void append_gencfg_text(Out &out, const gencfg_msg &m) {
  const tlk_hdr &h = m.gencfg_hdr;
  out.add("major type=\"%s\" minor type=%u seq %d kid=%d lrid=%d",
          tarvik_gencfg_format_majortype(m.major), static_cast<unsigned>(m.minor),
          static_cast<int>(h.tlkh_seq), static_cast<int>(m.kid), static_cast<int>(m.lrid));
  if (m.blob == nullptr || m.major < kFirstMajor || m.major > kLastMajor) return;
  switch (m.major) {
    case 2:
      return usp_blob(out, m);
    case 6:
      return out.add(" Type %s tunnel id %x spi %x", tarvik_gencfg_format_ipsectype(m.minor),
                     word_at(m, 0), word_at(m, 4));
    case 7:
      return l2tp_cos(out, m);
    case 11:
      // L2TP policer: 0 session | 4 peer session | 8 ifl | 12 filter name[64] | 76 rate, two
      // words high first | 84 exclude rate | 88 burst size | 92 encap | 96 cell
      return out.add(
          ", Ses %u/%u, ifl %u , filter %s, rate %llu, exclude rate %u, burst-size %u, encap %d, "
          "cell %u",
          word_at(m, 0), word_at(m, 4), word_at(m, 8), name_at(m, 12).s,
          static_cast<unsigned long long>(word_at(m, 76)) << 32 | word_at(m, 80), word_at(m, 84),
          word_at(m, 88), static_cast<int>(word_at(m, 92)), word_at(m, 96));
    case 8:
      return cos_blob(out, m);
    case 10:
      return out.add(" iflset name: %s, index: %u, interface name: %s, devindex %u, dynamic: %s",
                     name_at(m, 0).s, word_at(m, 64), name_at(m, 68).s, word_at(m, 132),
                     word_at(m, 136) != 0 ? "yes" : "no");
    case 13:
      return out.add(" token: 0x%x, type: %s, iflidx: %u, rtt: %d", word_at(m, 0),
                     tarvik_gencfg_format_l2token_type(static_cast<int>(word_at(m, 4))),
                     word_at(m, 8), static_cast<int>(word_at(m, 12)));
    case 15:
      return firewall_blob(out, m);
    case 16:
      return issu_blob(out, m);
    case 26: {
      const Decoded d = decode_blob<ancp_msg_global_cfg>(
          m, kMemAncp, tlv_decode_ancp_msg_global_cfg_0, tlv_release_ancp_msg_global_cfg_0,
          [&](const ancp_msg_global_cfg &r) { out.add(" instance: %d", r.instance); });
      if (d == Decoded::kBad) out.add(kBadDecodeD, m.minor);
      return;
    }
    case 40:
      return mcf_blob(out, m);
    case 43:
    case 44:
    case 45:
    case 46:
      return fpdl_blob(out, m);
    case 54:
      return out.add(" interface name %s", name_at(m, 0).s);
    case 56:
      return medge_blob(out, m);
    case 57:
      return macsec_blob(out, m);
    case 59:
      return dhcp_relay_blob(out, m);
    case 67:
      return analytics_blob(out, m);
    case 69:
      return ppm_blob(out, m);
    case 70:
      return sensor_agent_blob(out, m);
    case 72:
      return out.add("format_lldpd_gencfg_output minor %d ", m.minor);
    case 73: {
      static const char *const kVbf[] = {" flow ", " container ", " service ", " var ", " ifd "};
      if (m.minor < 5) out.put(kVbf[m.minor]);
      return;
    }
    case 74: {
      static const char *const kOiu[] = {" app: cos", " app: dfw", " app: interfaces",
                                         " app: adv-svc"};
      out.put(m.minor < 4 ? kOiu[m.minor] : "OIU type unkown");  // so spelled
      return;
    }
    case 76:
      return port_extender_blob(out, m);
    case 80:
      return satellite_blob(out, m);
    case 83:
      return evpn_blob(out, m);
    case 90:
      return mac_ip_blob(out, m);
    case 92:
      return out.add(" Slaac-Snoopd minor-type %d ", m.minor);
    case 94:
      return phone_home_blob(out, m);
    default:
      return;
  }
}

}  // namespace tlk::format
