// The per-type texts of the trace line, read from the decoded records.  A field that a record
// does not carry prints as 0, so that every line keeps the same words in the same places.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "format/message.h"
#include "format/names.h"
#include "format/text.h"
#include "tarlink.h"
#include "wire.h"

namespace tlk::format {
namespace {

constexpr size_t kScratch = 257;  // one per address or prefix a line can hold
constexpr uint32_t kSelectorMask = 0xFFFFFF;
constexpr uint32_t kRpfOption = 30;  // the route table's RPF check option

// A counted name as a C string, cut to the scratch size.
struct Name {
  char s[kScratch];
  Name(const uint8_t *data, uint32_t len) {
    const size_t n = data != nullptr ? strnlen(reinterpret_cast<const char *>(data),
                                               len < kScratch - 1 ? len : kScratch - 1)
                                     : 0;
    if (n != 0) memcpy(s, data, n);
    s[n] = 0;
  }
};

// A prefix as tarvik_format_prefix prints it in mode 0; its bytes are copied into room that
// holds at least the 32 bytes some forms read.
struct Prefix {
  char s[kScratch];
  Prefix(const uint8_t *data, uint32_t len, uint32_t bits, int af) {
    uint8_t bytes[kScratch] = {};
    const uint32_t n = len < sizeof bytes ? len : sizeof bytes;
    if (data != nullptr && n != 0) memcpy(bytes, data, n);
    const uint32_t max_bits = static_cast<uint32_t>(sizeof bytes) * 8;
    s[0] = 0;
    tarvik_format_prefix(s, sizeof s, data != nullptr ? bytes : nullptr,
                         bits < max_bits ? bits : max_bits, af, 0);
  }
};

// A 32-bit IPv4 address kept as it travels, its first byte the highest of the dotted form.
struct Ipv4 {
  char s[kScratch];
  explicit Ipv4(const void *word) : Ipv4(static_cast<const uint8_t *>(word)) {}
  explicit Ipv4(const uint8_t *b) { snprintf(s, sizeof s, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]); }
};

// A number as the text of a "%s" column whose record keeps only the number.
struct Num {
  char s[16];
  explicit Num(uint32_t v) { snprintf(s, sizeof s, "%u", v); }
};

// A list of next hop indexes as "i,j,k," in a scratch buffer, cut at its size.
struct IndexList {
  char s[kScratch];
  IndexList(const uint32_t *v, uint32_t n) {
    Text t(s, sizeof s);
    t.clear();
    for (uint32_t i = 0; v != nullptr && i < n && !t.full(); ++i) t.add("%u,", v[i]);
  }
};

const char *nexthop_word(unsigned nh) {
  // The table's last entry, for anything out of range, is no word at all; the C library prints
  // it as "(null)", and so do we without handing a null to printf.
  const char *w = kNexthopTypeWords[nh < kNexthopTypeRows - 1 ? nh : kNexthopTypeRows - 1];
  return w != nullptr ? w : "(null)";
}

// Calls `fn(selector, value)` for each attachment, the value being the first word of its body.
template <typename Fn>
void each_attachment(const tlk_hdr &h, Fn fn) {
  if (h.tlkh_info == nullptr) return;
  for (uint32_t i = 0; i < h.tlkh_info_len; ++i) {
    const tlk_msg_info *a = h.tlkh_info[i];
    if (a == nullptr) continue;
    uint32_t value;
    memcpy(&value, &a->tlkmi_u, sizeof value);
    fn(a->tlkmi_type & kSelectorMask, value, a);
  }
}

// Full selectors of the attachments whose arms hold pointers: such an arm is read only under its
// own selector, so that an attachment of another family with the same low bits is never taken
// for it.
constexpr uint32_t kDfwApplyInfo = 245;
constexpr uint32_t kNhChildNexthops = 0x2000008, kNhChildIfls = 0x2000009;
constexpr uint32_t kCompLabelBlock = 0x4000007;
constexpr uint32_t kRnhInfoRpfList = 16;  // the next hop info arm of a multicast RPF list

// A 10-byte Ethernet segment identifier, its bytes in hex and colons.
struct Esi {
  char s[32];
  explicit Esi(const uint8_t (&e)[10]) {
    snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", e[0], e[1], e[2],
             e[3], e[4], e[5], e[6], e[7], e[8], e[9]);
  }
  static bool zero(const uint8_t (&e)[10]) {
    for (uint8_t b : e)
      if (b != 0) return false;
    return true;
  }
};

// A MAC address in the six-bytes-of-hex form of a "%s" column.
struct Mac {
  char s[20];
  explicit Mac(const uint8_t (&m)[6]) {
    snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
  }
};

// The "no preempt" bit of the segment attachments' flags.
const char *preempt_word(uint8_t flags) {
  return (flags & 1) != 0 ? "no-preempt" : "";
}

// A label block (`tagp`) as the trace shows it.  Its own words: the low byte of tg_w0 is the
// operation, the next byte the offset, the high half the flags; tg_w1 is the block's own id,
// tg_w2 its parent's, tg_w3 the MTU.  Each 8-byte entry is a label and a flags word whose bytes
// are, from the lowest: the protocol, the CoS action, the CoS value, and in the highest byte the
// TTL action (low nibble) and the load balancing attribute (high nibble).  The 7-byte entries
// are policers, only counted.
struct LabelBlock {
  const tagp &t;
  unsigned opcode() const { return t.tg_w0 & 0xFF; }
  unsigned offset() const { return (t.tg_w0 >> 8) & 0xFF; }
  unsigned flags() const { return t.tg_w0 >> 16; }
  uint32_t labels() const { return t.tg_labels != nullptr ? t.tg_label_count : 0; }
  static unsigned proto(const tagp_label8 &l) { return l.tl8_flags & 0xFF; }
  static unsigned cos_action(const tagp_label8 &l) { return (l.tl8_flags >> 8) & 0xFF; }
  static unsigned cos_value(const tagp_label8 &l) { return (l.tl8_flags >> 16) & 0xFF; }
  static unsigned ttl_action(const tagp_label8 &l) { return (l.tl8_flags >> 24) & 0xF; }
  static const char *lb_attr(const tagp_label8 &l) {
    return tarvik_format_lb_attr(l.tl8_flags >> 28);
  }
};

// A filter rule applied to a device: " dfw_info[" and the rule of each record, then "]".  The
// attachment holds one rule: its index and precedence; it names no direction and no filter,
// which print as empty words.
void dfw_rules(Out &out, const dfw_apply_info &d) {
  out.put(" dfw_info[");
  out.add("%s%s %s:%u - prec %u", "", "", "", d.dai_index, static_cast<unsigned>(d.dai_state));
  out.put("]");
}

// A family's filter block: the TLV encoding of a dfw_iff_apply_info_blob in the filter
// attachment.  The blob names the input and output filters; it carries no input queue filters
// and no implicit or chained filter lists, which print as 0 and empty.
void filter_block(Out &out, const dfw_apply_info &d) {
  dfw_iff_apply_info_blob b{};
  const int32_t got = tlv_decode_dfw_iff_apply_info_blob_0(&b, nullptr, d.dai_blob, d.dai_blob_len);
  if (got < 1) return out.add("Error %d decoding iffi_apply_info_blob.\n", static_cast<int>(got));
  out.add(" iffi_in %u iffi_out %u iffi_iq %u  iffi_iqpf %u implicit-in [", b.diaib_input_filter,
          b.diaib_output_filter, 0u, 0u);
  out.put(" ] implicit-prec-in [");
  out.put("] implicit-out [");
  out.put(" ] implicit-prec-out [");
  out.put("] cli-chain-in [");
  out.put(" ] cli-chain-prec-in [");
  out.put("] cli-chain-out [");
  out.put(" ] cli-chian-prec-out [");  // so spelled in the traces
  out.put("]");
}

// A device's Ethernet segment, told only when its identifier is set.  The mode prints as its
// number.
void device_esi(Out &out, const if_ether_esi_info &e) {
  if (Esi::zero(e.ieei_esi)) return;
  out.add(" ESI %s mode:%s source_bmac:%s df-type: %u pref:%d %s", Esi(e.ieei_esi).s,
          Num(e.ieei_mode).s, Mac(e.ieei_bmac).s, e.ieei_df_type, static_cast<int>(e.ieei_pref),
          preempt_word(e.ieei_flags));
}

// A logical interface's attachments, by selector.  Modes and roles print as their numbers.
void ifl_attachment(Out &out, uint32_t sel, const tlk_msg_info &a) {
  const auto &u = a.tlkmi_u;
  switch (sel) {
    case 189:
      return out.add(" copy_tos=0x%x ", u.if_tos.it_value);
    case 298: {
      // The bundle's options name one link: its device by index, its unit and its weight.
      const if_ae_intf_options &ae = u.if_ae_intf_options;
      out.put(" AE_intf_info[");
      out.add(" link %s.%u weight %u", Num(ae.iaio_value).s, static_cast<unsigned>(ae.iaio_mode),
              static_cast<unsigned>(ae.iaio_version));
      return out.put(" ]");
    }
    case 251:
      return out.add(" oam_flags=0x%x ", u.ifl_oam_lfm_flags_struct.iolfs_flags);
    case 389: {
      const if_ifl_esi_info &e = u.if_ifl_esi_info;
      return out.add(" esi %s mode:%s df-type: %u pref:%d %s", Esi(e.iiei_esi).s,
                     Num(e.iiei_mode).s, e.iiei_df_type, static_cast<int>(e.iiei_pref),
                     preempt_word(e.iiei_flags));
    }
    case 390: {
      const if_ifl_esi_df_info &e = u.if_ifl_esi_df_info;
      return out.add(" esi %s esi-df-role=%s esi-sh-label=%u ", Esi(e.iiedi_esi).s,
                     Num(e.iiedi_df_role).s, e.iiedi_sh_label);
    }
    case 420:
      return out.add(" copy_tos_transit=0x%x ", u.if_tos.it_value);
    case 425: {
      const if_ifl_esi_evi_info &e = u.if_ifl_esi_evi_info;
      return out.add(" esi=%s peer evi=%s and minimum isid = %d ", Esi(e.iieei_esi).s,
                     Num(e.iieei_peer_evi).s, static_cast<int>(e.iieei_min_isid));
    }
    case 430: {
      const if_ifl_esi_info &e = u.if_ifl_esi_info;
      return out.add(" virtual esi %s mode:%s", Esi(e.iiei_esi).s, Num(e.iiei_mode).s);
    }
    default:
      return;
  }
}

// A family's attachments, by selector: the filter block, the family's next hop, its segment, its
// multicast next hops and its mesh group (the bridge domain index it is kept as).
void iff_attachment(Out &out, uint32_t sel, const tlk_msg_info &a) {
  const auto &u = a.tlkmi_u;
  switch (sel) {
    case kDfwApplyInfo:
      return filter_block(out, u.dfw_apply_info);
    case 190:
      return out.add("iff nh idx = %d ", static_cast<int>(u.ifftlv_nh_info.ini_index));
    case 386: {
      const ifftlv_viff_esi_info &e = u.ifftlv_viff_esi_info;
      return out.add("esi=%s mode=%s df-role=%s sh-label=%u ", Esi(e.ivei_esi).s,
                     Num(e.ivei_mode).s, Num(e.ivei_df_role).s, e.ivei_sh_label);
    }
    case 426: {
      const ifftlv_viff_mcnh_info &n = u.ifftlv_viff_mcnh_info;
      return out.add("ifl_idx=%u mcnh_type=%u im nh_idx=%u sh nh_idx=%u ", n.ivmi_ifl_idx,
                     n.ivmi_mcnh_type, n.ivmi_im_nh_idx, n.ivmi_sh_nh_idx);
    }
    case 224:
      return out.add("mg-id %u ", u.iff_tlv_bd_index.itbi_value);
    default:
      return;
  }
}

// An address's subnet attachments: a status, the MAC and, for the preferred source, the IPv4
// address.
void ifa_attachment(Out &out, uint32_t sel, const tlk_msg_info &a) {
  const auto &u = a.tlkmi_u;
  switch (sel) {
    case 403: {
      const if_subnet_pref_src_ip_msg &p = u.if_subnet_pref_src_ip_msg;
      const uint8_t *mac = p.ispsi_mac;
      return out.add(" SUBNET_PREF_SRC_IP TLV, status: %d, IP: %s, MAC: %x:%x:%x:%x:%x:%x",
                     static_cast<int>(p.ispsi_status), Ipv4(p.ispsi_ip).s, mac[0], mac[1], mac[2],
                     mac[3], mac[4], mac[5]);
    }
    case 402: {
      const if_subnet_pref_src_mac_msg &p = u.if_subnet_pref_src_mac_msg;
      const uint8_t *mac = p.ispsm_mac;
      return out.add(" SUBNET_PREF_SRC_MAC TLV, status: %d, MAC: %x:%x:%x:%x:%x:%x",
                     static_cast<int>(p.ispsm_status), mac[0], mac[1], mac[2], mac[3], mac[4],
                     mac[5]);
    }
    case 401: {
      const if_subnet_proxy_msg &p = u.if_subnet_proxy_msg;
      const uint8_t *mac = p.ispm_mac;
      return out.add(" SUBNET_PROXY TLV, status: %d, MAC: %x:%x:%x:%x:%x:%x",
                     static_cast<int>(p.ispm_status), mac[0], mac[1], mac[2], mac[3], mac[4],
                     mac[5]);
    }
    default:
      return;
  }
}

// The next hop types whose info is an RPF list.
bool has_rpf_list(unsigned nh) {
  return nh == 19 || nh == 16;
}

// The RPF list of a next hop: its info's selector and length, and an entry per interface of a
// multicast RPF element list.  The list keeps only the interfaces: labels, weight, flags,
// session, type, generation, status, references and rate print as 0.
void rpf_info(Out &out, const rnh_msg &m) {
  const mcast_rpf_element_list &l = m.rnh_info.rnhi_u.mcast_rpf_element_list;
  const uint32_t n =
      m.rnh_info.rnhi_type == kRnhInfoRpfList && l.mrel_ifl != nullptr ? l.mrel_count : 0;
  out.add(" RPF info  type=%u len=%u num-elems=%u\n", m.rnh_info.rnhi_type, m.info_len, n);
  for (uint32_t i = 0; i < n; ++i)
    out.add(
        "{ifidx=%u ilbl=%u olbl=%u wt=%u flags=0x%x session id=%u type=%u gen_num=%u status=%u "
        "ref=%u minrate=%u}\n",
        l.mrel_ifl[i], 0u, 0u, 0u, 0u, 0u, 0u, 0u, 0u, 0u, 0u);
}

// A next hop's attachments, by their full selector.
void nh_attachment(Out &out, uint32_t sel, uint32_t value, const tlk_msg_info &a) {
  const auto &u = a.tlkmi_u;
  switch (sel) {
    case 0x2000003:
      return out.add(" af_fixup=%s", tarvik_format_af(u.af_fixup.af_af));
    case 0x2000004:
      return out.add(" iflidx_fixup = %d", static_cast<int>(value));
    case 0x2000005:
      return out.add(" nh_adders=0x%016llx",
                     static_cast<unsigned long long>(u.rnhtlv_adders.ra_value));
    case kNhChildNexthops: {
      const rnhtlv_cont_cnh_indices &l = u.rnhtlv_cont_cnh_indices;
      out.put("child_nh=");
      return out.put(IndexList(l.rcci_entries, l.rcci_count).s);
    }
    case kNhChildIfls: {
      const rnhtlv_cont_cifl_indices &l = u.rnhtlv_cont_cifl_indices;
      out.put("child_ifl=");
      return out.put(IndexList(l.rcci_entries, l.rcci_count).s);
    }
    case 0x2000014:
      return out.add(" oam-id = %u", u.rnhtlv_oam_session_id.rosi_value);
    case 0x2000019:
      return out.add(" nh-version id = %u\n", u.rnhtlv_version_id.rvi_value);
    case 0x200001c:
      return out.add(" sgid = %u\n", u.rnhtlv_stats_id_group_id.rsigi_value);
    default:
      return;
  }
}

// A next hop's label block, with its labels.
void mpls_data(Out &out, const tagp &t) {
  const LabelBlock b{t};
  out.add(
      "MPLS Data: opcode=%u, flags=0x%x, selfid=%u, parentid=%u, mtu=%u, lbl_count=%u, "
      "policer_count=%u ",
      b.opcode(), b.flags(), t.tg_w1, t.tg_w2, t.tg_w3, t.tg_label_count, t.tg_entry_count);
  for (uint32_t i = 0; i < b.labels(); ++i) {
    const tagp_label8 &l = t.tg_labels[i];
    out.add("label[%u]: label=%u, proto=%u, lb_attr=%s ", i, l.tl8_label, LabelBlock::proto(l),
            LabelBlock::lb_attr(l));
  }
}

// A composite's label block, with its labels.
void comp_labels(Out &out, const tagp &t) {
  const LabelBlock b{t};
  out.add(
      "opcode=%u, offset=%u, flags=0x%x, selfid=%u, parentid=%u, mtu=%u, label_count=%u, "
      "policer_count=%u ",
      b.opcode(), b.offset(), b.flags(), t.tg_w1, t.tg_w2, t.tg_w3, t.tg_label_count,
      t.tg_entry_count);
  for (uint32_t i = 0; i < b.labels(); ++i) {
    const tagp_label8 &l = t.tg_labels[i];
    out.add(
        "label_proto=%u, label_cos_action=%u, label_cos_value=%u, label=%u, label_ttl_action=%u, "
        "lb_attr=%s ",
        LabelBlock::proto(l), LabelBlock::cos_action(l), LabelBlock::cos_value(l), l.tl8_label,
        LabelBlock::ttl_action(l), LabelBlock::lb_attr(l));
  }
}

void rttable(Out &out, const rtb_msg &m) {
  const Name name(m.rtb_name, m.rtb_name_len), lr(m.lrname, m.lrname_len);
  // The table's filter pairs travel in no field of the record: they print as 0 and the implicit
  // list as empty.
  out.add(
      "%s name=%s tid=%d lrname=%s lrid=%d tenant=%d prflags 0x%x i-ftf [%d,%d] o-ftf "
      "[%d,%d] impl-i-ftf [",
      tarvik_format_af(m.af), name.s, m.tid, lr.s, m.lrid, m.tenant,
      static_cast<unsigned>(m.prflags), 0, 0, 0, 0);
  out.put("none");
  out.put("]");
  for (uint32_t i = 0; m.rtb_tlvs != nullptr && i < m.rtb_tlvs_count; ++i) {
    const rttable_tlvs &t = m.rtb_tlvs[i];
    if (t.rtbt_type != kRpfOption) continue;
    const rtb_rpf_info &rpf = t.rtbt_u.rtb_rpf_info;
    out.add(" RPF:[rpf_chk %u mode %u fltrid %u]", rpf.rtbr_type, rpf.rtbr_flags, rpf.rtbr_index);
  }
}

void route(Out &out, const rt_msg &m) {
  const tlk_hdr &h = m.rt_hdr;
  const uint8_t *bytes = m.prefix;
  uint32_t len = m.prefix_len;
  if (bytes == nullptr) {
    bytes = reinterpret_cast<const uint8_t *>(&m) + h.tlkh_fixedlen;
    len = h.tlkh_msglen > h.tlkh_fixedlen ? h.tlkh_msglen - h.tlkh_fixedlen : 0;
    if (len > (m.plen + 7u) / 8) len = (m.plen + 7u) / 8;
  }
  const Prefix pfx(bytes, len, m.plen, m.af);
  const unsigned nh = m.nh_type;
  const bool known_nh = nh < kNexthopTypeRows;
  // The RPF list's length is the element count of a multicast RPF next hop info.
  const uint32_t rpf_len =
      m.rnh_info.rnhi_type == 16 ? m.rnh_info.rnhi_u.mcast_rpf_element_list.mrel_count : 0;
  char rpf[64] = "";
  if (rpf_len != 0 || m.rt_nhiflist.idx != 0)
    snprintf(rpf, sizeof rpf, "rpf:len=%d idx=%d", static_cast<int>(rpf_len),
             static_cast<int>(m.rt_nhiflist.idx));
  out.add(
      "%s %s tid=%d plen=%d type=%s flags=0x%x nh=%s nhflags=0x%x nhidx=%d rt_nhiflist = %d "
      "altfwdnhidx=%d filtidx=%d lr_id = %d featureid=%d %s %s rt_mcast_nhiflist=%d dflags "
      "0x%x",
      tarvik_format_af(m.af), pfx.s, m.tid, m.plen,
      kRouteTypeWords[m.type < kRouteTypeRows - 1 ? m.type : kRouteTypeRows - 1],
      static_cast<unsigned>(m.flags), nexthop_word(nh),
      known_nh ? static_cast<unsigned>(m.nhflags) : 0u, static_cast<int>(m.nhidx.idx),
      static_cast<int>(m.rt_nhiflist.idx), static_cast<int>(m.altfwdnhidx.idx),
      known_nh ? m.filtidx : 0, m.lr_id, m.featureid, (h.tlkh_flags & 2) ? " req_ack" : "", rpf,
      static_cast<int>(m.rt_mcast_nhiflist.idx), m.dflags);
  each_attachment(h, [&](uint32_t sel, uint32_t value, const tlk_msg_info *) {
    if (sel == 10) out.add(" sgid = %u\n", value);
    if (sel == 8 && value != 0) out.add(" oam-id %u\n", value);
  });
}

void ifdev(Out &out, const ifdev_msg &m) {
  const Name name(m.ifdm_name, m.ifdm_name_len);
  const ifmedia *md = m.ifdm_media_len != 0 ? m.ifdm_media : nullptr;
  const ifmedia none{};
  const ifmedia &me = md != nullptr ? *md : none;
  // The media record has no "use max queues" flag: it prints as 0.
  out.add(
      "%s mtu=%d dflags=0x%x flags=0x%x sflags=0x%x idx=%d, gen=%d, i2c-id=%d, ifm-hw-qs=%d, "
      "ifm-use-max-qs=%d, ifm-flags=%d, linkflags %x, priv_flags %x  snmpid=%u, "
      "hier-levels=%d, l2-count=%d, l3-count=%d",
      name.s, static_cast<int>(me.ifm_mtu), m.ifdm_devflags, m.ifdm_flags, m.ifdm_sflags,
      m.ifdm_index, static_cast<int>(m.ifdm_generation), me.ifm_i2c_id, me.ifm_cos.ifdc_queues, 0,
      me.ifm_cos.ifdc_flags, me.ifm_linkflags, me.ifm_priv_flags, m.ifdm_snmp_id.idx,
      me.ifm_hier_levels, static_cast<int>(me.ifm_l2_count), me.ifm_l3_count);
  each_attachment(m.ifdm_hdr, [&](uint32_t sel, uint32_t value, const tlk_msg_info *a) {
    switch (sel) {
      case 378:
        out.add(" fpc_i2c_id_type 0x%x", value);
        break;
      case 379:
        out.add(" is_ready 0x%x", a->tlkmi_u.ifd_vcp_resync_ready.ivrr_enable);
        break;
      case 427:
        out.add(" fib-ready %u", a->tlkmi_u.pfe_fib_ready.pfr_enable);
        break;
      case 428:
        out.add(" cis_flags 0x%x", a->tlkmi_u.if_core_isolation_state.icis_value);
        break;
      case 245:
        if (a->tlkmi_type == kDfwApplyInfo) dfw_rules(out, a->tlkmi_u.dfw_apply_info);
        break;
      case 326:  // the anchor point's device, by its index
        out.add(" anchor-point %s", Num(a->tlkmi_u.if_pfe_ps_options.ippo_value).s);
        break;
      case 385:
        device_esi(out, a->tlkmi_u.if_ether_esi_info);
        break;
      default:
        break;
    }
  });
}

void ifl(Out &out, const ifl_msg &m) {
  const Name name(m.iflm_name, m.iflm_name_len);
  const char *kind = (m.iflm_flags & 0x80000) ? "L2" : (m.iflm_flags & 0x100000) ? "L3" : "default";
  out.add(
      "%s.%u flags=0x%x idx=%u, gen=%d lr=%d, pifd=%u, uidx=%u, privf=0x%x snmpid=%u, "
      "iflsetidx=%d, ifl_type=%s tenant=%d",
      name.s, m.iflm_unit, m.iflm_flags, m.iflm_index.idx, static_cast<int>(m.iflm_generation),
      m.iflm_lr, m.iflm_pifd, m.iflm_uidx.idx, static_cast<unsigned>(m.iflm_privflags),
      m.iflm_snmp_id.idx, static_cast<int>(m.iflm_iflsetidx.idx), kind, m.iflm_tenant);
  each_attachment(m.iflm_hdr, [&](uint32_t sel, uint32_t, const tlk_msg_info *a) {
    ifl_attachment(out, sel, *a);
  });
}

void iffamily(Out &out, const iff_msg &m) {
  // The record carries neither the family's MTU, its table nor a type byte: MTU and table print
  // as 0 and the type as "default".
  out.add("%s mtu=%d ", tarvik_format_af(m.iffm_af), 0);
  out.add("flags=0x%llx iflidx=%u subunit=%u, gen=%d tbl=%d , iff_type=%s ",
          static_cast<unsigned long long>(m.iffm_flags), m.iffm_iflidx.idx, m.iffm_unit,
          static_cast<int>(m.iffm_generation), 0, "default");
  each_attachment(m.iffm_hdr, [&](uint32_t sel, uint32_t, const tlk_msg_info *a) {
    if (sel == kDfwApplyInfo && a->tlkmi_type != kDfwApplyInfo) return;
    iff_attachment(out, sel, *a);
  });
}

void ifaddr(Out &out, const ifa_msg &m) {
  const Prefix local(m.ifam_local.prefix, m.ifam_local.prefix_len, m.ifam_local.plen, m.ifam_af);
  const Prefix dest(m.ifam_dest.prefix, m.ifam_dest.prefix_len, m.ifam_dest.plen, m.ifam_af);
  out.add("%s local=%s dest=%s idx=%u, gen=%d, flag=0x%x", tarvik_format_af(m.ifam_af), local.s,
          dest.s, m.ifam_iflidx.idx, static_cast<int>(m.ifam_generation), m.ifam_flags);
  each_attachment(m.ifam_hdr, [&](uint32_t sel, uint32_t, const tlk_msg_info *a) {
    ifa_attachment(out, sel, *a);
  });
}

void nexthop(Out &out, int mode, const rnh_msg &m) {
  out.add("%s", tarvik_format_af(m.af));
  if (m.rnh_f18 != nullptr && m.rnh_f18_count != 0 && m.rnh_f18[0].sai_addr != nullptr) {
    char addr[kScratch];
    const uint8_t *sa = m.rnh_f18[0].sai_addr;
    tarvik_format_sockaddr(addr, sizeof addr, sa, sa[0], (mode & 4) != 0 ? 1 : 0);
    out.add(" addr=%s", addr);
  }
  // The next hop record has no logical router: lr_id prints as 0.
  out.add(" nh=%s flags=0x%x uflags=0x%x idx=%u ifidx=%u filteridx=%d tid=%u lr_id=%d %s %s",
          nexthop_word(m.nh), static_cast<unsigned>(m.flags), static_cast<unsigned>(m.uflags),
          m.idx.idx, m.ifidx.idx, static_cast<int>(m.filteridx), m.tid, 0,
          (m.rnh_hdr.tlkh_flags & 2) ? " req_ack" : "", "");
  if (has_rpf_list(m.nh)) rpf_info(out, m);
  each_attachment(m.rnh_hdr, [&](uint32_t, uint32_t value, const tlk_msg_info *a) {
    nh_attachment(out, a->tlkmi_type, value, *a);
  });
  for (uint32_t i = 0; m.rnh_f24 != nullptr && i < m.rnh_f24_count; ++i)
    mpls_data(out, m.rnh_f24[i]);
}

void mgroup(Out &out, const mgr_msg &m) {
  const Prefix group(m.group.prefix, m.group.prefix_len, m.group.plen, m.af);
  out.add("af %d tid %d group %s nhidx %d", m.af, m.tid, group.s,
          static_cast<int>(m.mgr_nhidx.idx));
}

void firewall(Out &out, const dfw_msg &m) {
  // The filter record carries its index and total length, not its name.
  out.add("name=%s af=%d idx=%d fulllen=%d", "", m.af, static_cast<int>(m.filter),
          static_cast<int>(m.dfw_total));
}

void rt_class(Out &out, const ntbl_msg &m) {
  const Name name(m.ntbl_name, m.ntbl_name_len);
  out.add("name=%s table_id=%d class_id=%d flags=%d", name.s, 0, m.idx, 0);
}

// The composite's items, each with its text: its function, tunnel, downstream, component and
// derived next hop lists, filter and group.
void composite(Out &out, const rnhc_msg &m) {
  out.add("nh=%s idx=%d refcnt=%u, af=%s, tid=%u hw_token=%u subnh=%u ", nexthop_word(m.nh),
          static_cast<int>(m.idx.idx), 0u, tarvik_format_af(m.af), 0u, 0u, m.child_count);
  // Selectors by their low 24 bits (the composite family's items are 0x4000000 and up).
  each_attachment(m.rnhc_hdr, [&](uint32_t sel, uint32_t value, const tlk_msg_info *a) {
    switch (sel) {
      case 0x000002: {  // the function, by number
        char fn[16];
        snprintf(fn, sizeof fn, "%u", value);
        return out.add("fn=%s ", fn);
      }
      case 0x00001b: {
        const nh_comp_tunnel_params_idl &t = a->tlkmi_u.nh_comp_tunnel_params_idl;
        char kind[16];
        snprintf(kind, sizeof kind, "%u", t.tuntype);
        out.add("tuntype %s encapid %u  decapid %u tunid %u  flags 0x%x anchor_id %u ", kind,
                t.encapid, t.decapid, t.tunid, t.flags, t.anchor_id);
        out.add("srcip 0x%x destip 0x%x ", t.srcip, t.destip);
        out.add("grekey %u ", t.grekey);
        return out.add("antispoof 0x%x ", t.antispoof);
      }
      case 0x00001d: {
        const nh_comp_dlnh_params_idl &d = a->tlkmi_u.nh_comp_dlnh_params_idl;
        out.add("dlnh_flags 0x%x dlnh_list_len %u ", d.dlnh_flags, d.dlnh_list_len);
        return out.add("dlnh-list=%s ", IndexList(d.dlnh_list, d.dlnh_list_len).s);
      }
      case 0x000001: {
        const nh_comp_nh_list_idl &l = a->tlkmi_u.nh_comp_nh_list_idl;
        return out.add("comp=%s ", IndexList(l.ncnli_entries, l.ncnli_count).s);
      }
      case 0x000003: {
        const nh_comp_derived_nh_list_idl &l = a->tlkmi_u.nh_comp_derived_nh_list_idl;
        return out.add("derv=%s ", IndexList(l.ncdnl_entries, l.ncdnl_count).s);
      }
      case 0x000005:
        return out.add("filter %u ", value);
      case 0x000011:  // the service group
        return out.add("sgid=%u ", value);
      case 0x000007:
        if (a->tlkmi_type == kCompLabelBlock) comp_labels(out, a->tlkmi_u.tagp);
        return;
      case 0x000008:  // the composite's label, a number
        return out.add("comp label: %s ", Num(a->tlkmi_u.msg_tagp.mt_value).s);
      default:
        return;
    }
  });
}

void marker(Out &out, const tlk_marker_msg &m) {
  out.add("cookie=0x%x seq-no=0x%x alias_seq-no=0x%x flags=0x%x ", m.tlkmk_cookie, m.tlkmk_seq,
          m.tlkmk_alias_seq, m.tlkmk_flags);
}

// The kernel's refusal of a request, a raw message: behind the 24-byte header the function that
// refused (32 bytes, NUL-padded), its line, and the refused message's sequence, type, op and
// sender, then the two errors:
//
//   24            56     60       64   65   66       68          72          76
//   | function     | line | seq_no | ty | op | sender | mproc_err | final_err |
//
// What the message's length does not cover reads as zero.
void tlk_err(Out &out, const void *message) {
  constexpr size_t kBody = TLK_RAW_HDR_LEN, kSize = 52;
  uint8_t b[kSize] = {};
  const auto *m = static_cast<const uint8_t *>(message);
  const uint32_t msglen = wire::load_u32(m + wire::kMsglenAt);
  if (msglen > kBody) memcpy(b, m + kBody, msglen - kBody < kSize ? msglen - kBody : kSize);
  char function[33];
  memcpy(function, b, 32);
  function[32] = 0;
  const uint32_t final_err = wire::load_u32(b + 48);
  out.add(
      "function=%s line=%u seq_no=%u rtm_type=%s rtm_op=%s sender_id=%s mproc_err=%u "
      "final_err=%u:%s",
      function[0] != 0 ? function : "unknown", wire::load_u32(b + 32), wire::load_u32(b + 36),
      rtm_types[b[40] < 110 ? b[40] : 110], rtm_ops[b[41] < 10 ? b[41] : 10],
      tarvik_format_msg_sender_id(wire::load_u16(b + 42)), wire::load_u32(b + 44), final_err,
      strerror(static_cast<int>(final_err)));
}

// A raw message's fixed part as the layout `Body` (header included), copied only as far as
// tlkh_msglen covers it: the rest reads as zero.
template <typename Body>
Body raw_body(const void *message) {
  Body b{};
  const uint32_t msglen = wire::load_u32(static_cast<const uint8_t *>(message) + wire::kMsglenAt);
  memcpy(&b, message, msglen < sizeof b ? msglen : sizeof b);
  return b;
}

void cos_info(Out &out, const void *message) {
  out.add("num FCs = %u", raw_body<tarvik_cos_info_body>(message).num_fcs);
}

void cos_fabric(Out &out, const void *message) {
  out.add("entries=%u", raw_body<tarvik_cos_fabric_body>(message).entries);
}

void cos_class(Out &out, const void *message) {
  const auto b = raw_body<tarvik_cos_class_body>(message);
  out.add("ifl=%u table=%u type=%u entries=%u", b.ifl, b.table, b.type, b.entries);
}

void cos_red(Out &out, const void *message) {
  const auto b = raw_body<tarvik_cos_red_body>(message);
  out.add("id=%u, num entries=%u, datasize=%u", b.id, b.num_entries, b.datasize);
}

void cos_rewrite(Out &out, const void *message) {
  const auto b = raw_body<tarvik_cos_rewrite_body>(message);
  out.add("ifl=%u, id=%u, type=%u, num=%u, size=%u", b.ifl, b.id, b.type, b.num, b.size);
}

void cos_rate(Out &out, const void *message) {
  const auto b = raw_body<tarvik_cos_policer_body>(message);
  out.add("ifl=%u, bandwidth=%u, burst=%u", b.ifl, b.bandwidth, b.burst);
}

void cos_fragmap(Out &out, const void *message) {
  const auto b = raw_body<tarvik_cos_fragmap_body>(message);
  out.add("ifl=%u, frag_map_id=%u, entries=%u, data-size %u", b.ifl, b.frag_map_id, b.entries,
          b.data_size);
}

// An association: its fixed part (96 bytes) and the name, the first section behind it, of the
// length at 73.  The direction is sa_byte0 (48), the protocol sa_byte1 (49), the index sa_id (32),
// the interface sa_value (40), the SPI at 36.
void sa_info(Out &out, const void *message) {
  constexpr size_t kFixed = 96, kNameMax = 255;
  uint8_t b[kFixed + kNameMax + 1] = {};
  const auto *m = static_cast<const uint8_t *>(message);
  const uint32_t msglen = wire::load_u32(m + wire::kMsglenAt);
  memcpy(b, m, msglen < sizeof b - 1 ? msglen : sizeof b - 1);
  const Name name(b + kFixed, b[73]);
  const char *direction = b[48] == TARVIK_SA_INBOUND    ? "inbound"
                          : b[48] == TARVIK_SA_OUTBOUND ? "outbound"
                                                        : "none";
  out.add("sadb name=%s direc=%s spi=%d proto=%d idx=%d iflidx=%d", name.s, direction,
          static_cast<int>(wire::load_u32(b + 36)), b[49], static_cast<int>(wire::load_u32(b + 32)),
          static_cast<int>(wire::load_u32(b + 40)));
}

void ifdest(Out &out, const ifdest_msg &m) {
  const Name name(m.idm_ifd_name, m.idm_ifd_name_len);
  const Prefix pfx(m.idm_prefix.prefix, m.idm_prefix.prefix_len, m.idm_prefix.plen, m.idm_af);
  // The word after the family's number is the family's name.
  out.add("%s.%u, af %d, %s, pfx %s/%u", name.s, m.idm_unit, m.idm_af, tarvik_format_af(m.idm_af),
          pfx.s, static_cast<unsigned>(m.idm_prefix.plen));
}

void ifmismatch(Out &out, const res_msg_evo &m) {
  const Prefix pfx(m.rme_prefix.prefix, m.rme_prefix.prefix_len, m.rme_prefix.plen, m.rme_af);
  out.add("%s ifidx=%u plen=0x%x prefix=%s", tarvik_format_af(m.rme_af), m.rme_ifidx, m.rme_plen,
          pfx.s);
}

void ifvc(Out &out, const ifvc_msg &m) {
  const Name ifd(m.ivm_ifd, m.ivm_ifd_len);
  out.add("ifd=%s vpci=0x%x ipdst=%s ifl_index=%d, flags=0x%x, flap-cnt=%d", ifd.s, m.ivm_vpci,
          Ipv4(&m.ivm_ipdst).s, static_cast<int>(m.ivm_ifl_index), m.ivm_flags,
          static_cast<int>(m.ivm_flap_cnt));
}

void sampling(Out &out, const sample_msg &m) {
  const Name inst(m.smm_inst_name, sizeof m.smm_inst_name);
  out.add(
      "proto=%d, rate=%d, max-pps=%d, NH-index=%d, class=%d, run-len=%d, num_ingr_ifl %d, "
      "num_egr_ifl %d, num_ingr_vlan %d, num_egr_vlan %d, ifd-index=%d, op_bd_id %d, inst_id=%d, "
      "inst_name=%s, flags=%#x",
      m.smm_proto, static_cast<int>(m.smm_rate), static_cast<int>(m.smm_max_pps),
      static_cast<int>(m.smm_nh_index), m.smm_class, static_cast<int>(m.smm_run_len),
      m.smm_num_ingr_ifl, m.smm_num_egr_ifl, m.smm_num_ingr_vlan, m.smm_num_egr_vlan,
      static_cast<int>(m.smm_ifd_index), static_cast<int>(m.smm_op_bd_id),
      static_cast<int>(m.smm_inst_id), inst.s, m.smm_flags);
}

void ifvp(Out &out, const ifvp_msg &m) {
  out.add("ifdev index %d, vpi %d, flags %d", static_cast<int>(m.ivp_ifdev_index),
          static_cast<int>(m.ivp_vpi), static_cast<int>(m.ivp_flags));
}

void commit(Out &out, const tlk_commit_msg &m) {
  out.add("peer_type=%u peer_index=%u peer_slot=%u cp_seq_num=%#x commit_flags=%#x",
          m.tcm_peer_type, m.tcm_peer_index, m.tcm_peer_slot, m.tcm_cp_seq_num, m.tcm_commit_flags);
}

void pic(Out &out, const pic_msg &m) {
  out.add("pic idx 0x%x id 0x%x flags 0x%x seq %d ", m.picm_idx, m.picm_id, m.picm_flags,
          static_cast<int>(m.picm_seq));
}

void ksync(Out &out, const ksync_msg &m) {
  // The record keeps no sequence of its own: "seq" is the header's.
  out.add("seqno 0x%x cp cookie 0x%x flags 0x%x seq %d ", m.ksm_seqno, m.ksm_cp_cookie,
          m.ksync_flags, static_cast<int>(m.ksm_hdr.tlkh_seq));
}

void stp(Out &out, const stp_msg &m) {
  // The interface is known when the instance block came with the message (its length is set);
  // the record names it by its logical interface index, which stands for the name.
  if (m.stpm_inst_len != 0)
    out.add("if %s instance %u ", Num(m.stpm_inst.sii_ifl_index).s, m.stpm_inst.sii_instance);
  out.add(
      "STP idx=%u, state=%u, action=%u, epoch=%u, latest clear epoch=%u HW-lrn=%utc-generation="
      "%ustp-peer-ip=%u",
      m.stpm_idx, m.stpm_state, m.stpm_action, m.stpm_epoch, m.stpm_clear_epoch, m.stpm_hw_learn,
      m.stpm_tc_generation, m.stpm_peer_ip);
}

void vlan(Out &out, const vlan_msg &m) {
  out.add("Vlan Inst=%u Index=%u, Tag=%u, HW Token=%u", m.vlm_inst, m.vlm_index, m.vlm_tag,
          m.vlm_hw_token);
}

void mesh_group(Out &out, const mesh_group_msg &m) {
  const Name name(m.mgm_name, m.mgm_name_len);
  // The group's index is its key.
  out.add("Meshgroup %s af=%u rtb_id=%u index=%u flags=%u\n", name.s, m.mgm_af, m.mgm_rtb_id,
          m.mgm_key.mgi_index, m.mgm_flags);
}

void analyzer(Out &out, const analyzer_msg &m) {
  out.add(
      "an_index=%u op_nh=%u num_ingr_ifl=%u num_egr_ifl=%u num_ingr_vlan=%u num_egr_vlan=%u "
      "op_vlan_id=%u",
      m.anm_index, m.anm_op_nh, m.anm_num_ingr_ifl, m.anm_num_egr_ifl, m.anm_num_ingr_vlan,
      m.anm_num_egr_vlan, m.anm_op_vlan_id);
}

void bridge_domain(Out &out, const bd_msg &m) {
  const Name name(m.bdm_name, m.bdm_name_len);
  out.add(
      "Bridge Domain %s, index %u, flags %u, cfg flags %u, rtb %u, vlan %d IRB IFL %u, vlan token "
      "0x%x\n",
      name.s, m.bdm_index, m.bdm_flags, m.bdm_cfg_flags, m.bdm_rtb, m.bdm_vlan_id, m.bdm_irb_ifl,
      m.bdm_vlan_token);
}

void ifbd(Out &out, const ifbd_msg &m) {
  // The index type travels as a number, and prints as one.
  out.add("index %u index-type %sBridge Domain %u VLAN ID %uISID %uSTP Index %u \n", m.ibm_index,
          Num(m.ibm_index_type).s, m.ibm_bd_index, m.ibm_vlan_id, m.ibm_isid, m.ibm_stp_index);
}

void fc_fabric(Out &out, const fc_fabric_msg &m) {
  const Name name(m.fcm_name, m.fcm_name_len);
  out.add("Fabric %s Inst=%u Index=%u, Tag=%u, Flag=%u", name.s, m.fcm_inst, m.fcm_fabric_index,
          m.fcm_tag, m.fcm_flags);
}

// An injected packet.  The record carries the outgoing interface and the packet itself: the
// protocol is the frame's ethertype, the id the interface, the sequence the header's, and the
// two lengths those of the packet and its metadata.  An ARP frame is a packet with addresses:
//
//   0        12        14          22          28         32          38        42
//   | dst, src | ethertype | ARP head | sender MAC | sender IP | target MAC | target IP |
void pkt_inject(Out &out, const pktinject_msg &m) {
  constexpr uint32_t kEtherHead = 14, kArpBody = 28, kEthertypeArp = 0x0806;
  const uint8_t *p = m.pim_packet;
  const uint32_t len = p != nullptr ? m.pim_packet_len : 0;
  const int proto = len >= kEtherHead ? (p[12] << 8 | p[13]) : 0;
  const int id = static_cast<int>(m.pim_ifl), seq = static_cast<int>(m.pim_hdr.tlkh_seq);
  const int plen = static_cast<int>(m.pim_packet_len), dlen = static_cast<int>(m.pim_meta_len);
  if (proto != kEthertypeArp || len < kEtherHead + kArpBody) {
    out.add("proto=%d id=%d seq-no=%d plen=%d dlen=%d", proto, id, seq, plen, dlen);
    return;
  }
  char smac[32], tmac[32];
  const uint8_t *s = p + 22, *t = p + 32;
  snprintf(smac, sizeof smac, "%02x:%02x:%02x:%02x:%02x:%02x", s[0], s[1], s[2], s[3], s[4], s[5]);
  snprintf(tmac, sizeof tmac, "%02x:%02x:%02x:%02x:%02x:%02x", t[0], t[1], t[2], t[3], t[4], t[5]);
  out.add("proto=%d id=%d seq-no=%d plen=%d dlen=%d l2=%d l3=%d sip=%s smac=%s tip=%s tmac=%s",
          proto, id, seq, plen, dlen, static_cast<int>(kEtherHead), static_cast<int>(kArpBody),
          Ipv4(p + 28).s, smac, Ipv4(p + 38).s, tmac);
}

// A next hop notification: its count, then the version changes and the OAM key changes.
void notify(Out &out, const notify_msg &m) {
  out.add("nh entries = %d\n", static_cast<int>(m.ntm_entries));
  const notify_nh_vid_data &v = m.ntm_vid;
  for (uint32_t i = 0; v.nnvd_entries != nullptr && i < v.nnvd_entries_count; ++i)
    out.add("nh_idx = %u version-id = %u\n", v.nnvd_entries[i].nnvc_nh_idx,
            v.nnvd_entries[i].nnvc_version_id);
  const notify_nh_keyid_change_data &k = m.ntm_keyid;
  for (uint32_t i = 0; k.nnkd_entries != nullptr && i < k.nnkd_entries_count; ++i)
    out.add("nh_idx = %u oam id = %u\n", k.nnkd_entries[i].nnkc_nh_idx,
            k.nnkd_entries[i].nnkc_oam_id);
}

// Interface statistics: the interface index at 32, the received and sent counters at 72 and 80,
// printed as their low 32 bits.
void iflstats(Out &out, const void *message) {
  const auto b = raw_body<tarvik_iflstats_body>(message);
  out.add("iflidx=%u, txpkts=%u rxpkts=%u", b.iflidx, static_cast<unsigned>(b.tx_packets),
          static_cast<unsigned>(b.rx_packets));
}

// Device alarms: the name, where the reply carries one behind its 52 bytes, and the words.
void ifdalarm(Out &out, const void *message) {
  constexpr size_t kBody = sizeof(tarvik_ifdalarm_body);
  const auto b = raw_body<tarvik_ifdalarm_body>(message);
  const auto *m = static_cast<const uint8_t *>(message);
  const uint32_t msglen = wire::load_u32(m + wire::kMsglenAt);
  const uint32_t avail = msglen > kBody ? msglen - static_cast<uint32_t>(kBody) : 0;
  const Name name(avail != 0 ? m + kBody : nullptr, b.name_len < avail ? b.name_len : avail);
  out.add("name=%s idx=%d alarms=0x%x mask=0x%x type=%d", name.s, b.index, b.alarms, b.mask,
          b.type);
}

// An address of a monitoring entry, by its family: four bytes for inet, sixteen otherwise.
struct MonAddr {
  char s[kScratch];
  MonAddr(const uint8_t *bytes, uint8_t af) {
    s[0] = 0;
    tarvik_format_prefix(s, sizeof s, bytes, af == TLK_AF_INET ? 32 : 128, af, 0);
    if (char *slash = strchr(s, '/')) *slash = 0;  // an address, not a prefix
  }
};

// Monitoring: the interface name (the first section behind the 280 bytes) and unit, the timers
// and, where the entry has them, its destination and source with the group name (the second
// section).
void monitoring(Out &out, const void *message) {
  constexpr size_t kFixed = sizeof(tarvik_mon_body), kNameMax = 255;
  uint8_t b[kFixed + 2 * (kNameMax + 4)] = {};
  const auto *m = static_cast<const uint8_t *>(message);
  const uint32_t msglen = wire::load_u32(m + wire::kMsglenAt);
  memcpy(b, m, msglen < sizeof b ? msglen : sizeof b);
  tarvik_mon_body mon;
  memcpy(&mon, b, sizeof mon);
  const uint32_t name_len = mon.name_len < kNameMax ? mon.name_len : kNameMax;
  const uint32_t group_len = mon.group_len < kNameMax ? mon.group_len : kNameMax;
  const Name name(b + kFixed, name_len);
  const Name group(b + kFixed + wire::round4(name_len), group_len);
  out.add("%s.%d, af=%d, at=%u, it=%d, agg int=%d, serv %d, aggr 0x%x", name.s,
          static_cast<int>(mon.unit), mon.af, mon.active, static_cast<int>(mon.inactive),
          static_cast<int>(mon.agg_int), static_cast<int>(mon.mon_a), mon.aggr);
  if ((mon.set & TARVIK_MON_DST) != 0)
    out.add(" dst (%s:%u)", MonAddr(mon.dst, mon.af).s, mon.dst_port);
  if ((mon.set & TARVIK_MON_SRC) != 0)
    out.add(" src (%s:%u) group (%s)", MonAddr(mon.src, mon.af).s, mon.src_port, group.s);
}

// Service PIC configuration: the PIC at 42, the type at 40, the index at 24.
void asp_config(Out &out, const void *message) {
  const auto b = raw_body<tarvik_asp_body>(message);
  out.add("picidx=%d, cfgtype=%d, cfgidx=%d", b.asp_a, b.asp_kind, static_cast<int>(b.asp_id));
}

template <typename T>
const T &as(const void *message) {
  return *static_cast<const T *>(message);
}

}  // namespace

void append_type_text(Out &out, int type, int mode, const void *message) {
  switch (type) {
    case TLK_MSG_RTTABLE:
      return rttable(out, as<rtb_msg>(message));
    case TLK_MSG_ROUTE:
      return route(out, as<rt_msg>(message));
    case TLK_MSG_IFDEV:
      return ifdev(out, as<ifdev_msg>(message));
    case TLK_MSG_IFLOGICAL:
      return ifl(out, as<ifl_msg>(message));
    case TLK_MSG_IFFAMILY:
      return iffamily(out, as<iff_msg>(message));
    case TLK_MSG_IFADDR:
      return ifaddr(out, as<ifa_msg>(message));
    case TLK_MSG_NEXTHOP:
      return nexthop(out, mode, as<rnh_msg>(message));
    case TLK_MSG_MGROUP:
      return mgroup(out, as<mgr_msg>(message));
    case TLK_MSG_FIREWALL:
      return firewall(out, as<dfw_msg>(message));
    case TLK_MSG_RT_CLASS:
      return rt_class(out, as<ntbl_msg>(message));
    case TLK_MSG_NH_COMP:
      return composite(out, as<rnhc_msg>(message));
    case TLK_MSG_MARKER:
      return marker(out, as<tlk_marker_msg>(message));
    case TLK_MSG_TLK_ERR:
      return tlk_err(out, message);
    case TLK_MSG_GENCFG:
      return append_gencfg_text(out, as<gencfg_msg>(message));
    case TLK_MSG_IFSTATE: {
      char line[514];
      line[0] = 0;
      (void)tarvik_ifsm_print(message, line, sizeof line, mode);
      return out.put(line);
    }
    case TLK_MSG_COS_INFO:
      return cos_info(out, message);
    case TLK_MSG_COS_FABRIC:
      return cos_fabric(out, message);
    case TLK_MSG_COS_CLASS:
      return cos_class(out, message);
    case TLK_MSG_COS_RED:
      return cos_red(out, message);
    case TLK_MSG_COS_REWRT:
      return cos_rewrite(out, message);
    case TLK_MSG_COS_POLICER:
    case TLK_MSG_COS_SHAPER:
      return cos_rate(out, message);
    case TLK_MSG_SA_INFO:
      return sa_info(out, message);
    case TLK_MSG_COS_FRAGMAP:
      return cos_fragmap(out, message);
    case TLK_MSG_IFDEST:
      return ifdest(out, as<ifdest_msg>(message));
    case TLK_MSG_IFMISMATCH:
      return ifmismatch(out, as<res_msg_evo>(message));
    case TLK_MSG_IFVC:
      return ifvc(out, as<ifvc_msg>(message));
    case TLK_MSG_SAMPLING:
      return sampling(out, as<sample_msg>(message));
    case TLK_MSG_IFVP:
      return ifvp(out, as<ifvp_msg>(message));
    case TLK_MSG_COMMIT:
      return commit(out, as<tlk_commit_msg>(message));
    case TLK_MSG_PIC:
      return pic(out, as<pic_msg>(message));
    case TLK_MSG_KSYNC:
      return ksync(out, as<ksync_msg>(message));
    case TLK_MSG_STP:
      return stp(out, as<stp_msg>(message));
    case TLK_MSG_VLAN:
      return vlan(out, as<vlan_msg>(message));
    case TLK_MSG_IFSCLINFO: {
      char line[257];
      line[0] = 0;
      (void)tarvik_ifsclim_print(message, line, sizeof line);
      return out.put(line);
    }
    case TLK_MSG_MESH_GROUP:
      return mesh_group(out, as<mesh_group_msg>(message));
    case TLK_MSG_ANALYZER:
      return analyzer(out, as<analyzer_msg>(message));
    case TLK_MSG_BRIDGE_DOMAIN:
      return bridge_domain(out, as<bd_msg>(message));
    case TLK_MSG_IFBDMESG:
      return ifbd(out, as<ifbd_msg>(message));
    case TLK_MSG_FC_FABRIC:
      return fc_fabric(out, as<fc_fabric_msg>(message));
    case TLK_MSG_PKT_INJECT:
      return pkt_inject(out, as<pktinject_msg>(message));
    case TLK_MSG_NOTIFY_MSG:
      return notify(out, as<notify_msg>(message));
    case TLK_MSG_IFLSTATS:
      return iflstats(out, message);
    case TLK_MSG_IFDALARM:
      return ifdalarm(out, message);
    case TLK_MSG_MONITORING:
      return monitoring(out, message);
    case TLK_MSG_ASP_CONFIG:
      return asp_config(out, message);
    default:
      return;  // the common columns say all there is for the other types
  }
}

}  // namespace tlk::format
