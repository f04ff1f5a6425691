// Schema reader: one record per block, one field per line.  See lib/libtarlink/idl/schema/README.md.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "schema.h"

namespace idlgen {
namespace {

struct Ctx {
  std::string file;
  int line = 0;
  bool ok = true;
  void error(const std::string &msg) {
    std::fprintf(stderr, "%s:%d: error: %s\n", file.c_str(), line, msg.c_str());
    ok = false;
  }
};

bool parse_u32(const std::string &s, uint32_t &out) {
  if (s.empty()) return false;
  char *end = nullptr;
  unsigned long long v = std::strtoull(s.c_str(), &end, 0);
  if (*end != '\0' || v > 0xFFFFFFFFull) return false;
  out = static_cast<uint32_t>(v);
  return true;
}

bool valid_ident(const std::string &s) {
  if (s.empty() || !(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_')) return false;
  for (char c : s) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
  }
  return true;
}

// Splits "key=value" options off a token list; bare words go to `flags`.
struct Opts {
  std::map<std::string, std::string> kv;
  std::set<std::string> flags;
};

Opts split_opts(const std::vector<std::string> &toks, size_t from) {
  Opts o;
  for (size_t i = from; i < toks.size(); ++i) {
    auto eq = toks[i].find('=');
    if (eq == std::string::npos)
      o.flags.insert(toks[i]);
    else
      o.kv[toks[i].substr(0, eq)] = toks[i].substr(eq + 1);
  }
  return o;
}

int scalar_width(const std::string &t, bool &is_signed) {
  static const std::map<std::string, int> widths = {{"u8", 1}, {"u16", 2}, {"u32", 4}, {"u64", 8},
                                                    {"s8", 1}, {"s16", 2}, {"s32", 4}, {"s64", 8}};
  auto it = widths.find(t);
  if (it == widths.end()) return 0;
  is_signed = t[0] == 's';
  return it->second;
}

// Takes the known keys and flags; anything left over is an error.
bool no_leftovers(Ctx &cx, Opts &o, const std::set<std::string> &keys,
                  const std::set<std::string> &flags) {
  bool good = true;
  for (auto &[k, v] : o.kv) {
    if (!keys.count(k)) {
      cx.error("unknown option '" + k + "='");
      good = false;
    }
  }
  for (auto &f : o.flags) {
    if (!flags.count(f)) {
      cx.error("unknown word '" + f + "'");
      good = false;
    }
  }
  return good;
}

bool parse_field(Ctx &cx, const std::vector<std::string> &t, Record &rec) {
  Field f;
  f.file = cx.file;
  f.line = cx.line;
  const std::string &kw = t[0];
  size_t name_at = 1;
  bool sg = false;
  if (scalar_width(kw, sg) != 0) {
    f.kind = FieldKind::kScalar;
    f.type = kw;
    f.width = static_cast<uint32_t>(scalar_width(kw, f.is_signed));
  } else if (kw == "grow64" || kw == "growlong") {
    f.kind = FieldKind::kGrow64;
    f.width = 8;
    f.word_sized = kw == "growlong";
  } else if (kw == "af") {
    f.kind = FieldKind::kAf;
    f.width = 1;
  } else if (kw == "storage") {
    f.kind = FieldKind::kStorage;
    if (t.size() < 3) {
      cx.error("storage needs a name and a width (u8, u16, u32, u64)");
      return false;
    }
    f.name = t[1];
    f.width = static_cast<uint32_t>(scalar_width(t[2], sg));
    if (f.width == 0 || sg) {
      cx.error("storage width must be u8, u16, u32 or u64, not '" + t[2] + "'");
      return false;
    }
    f.type = t[2];
    if (t.size() > 3) {
      cx.error("unexpected words after storage");
      return false;
    }
    rec.fields.push_back(f);
    return true;
  } else if (kw == "reserve") {
    // Room in the in-memory record that never travels: no tag, no map bit.
    f.kind = FieldKind::kStorage;
    if (t.size() != 3 || !valid_ident(t[1]) || !parse_u32(t[2], f.count) || f.count == 0) {
      cx.error("reserve needs a name and a byte count");
      return false;
    }
    f.name = t[1];
    rec.fields.push_back(f);
    return true;
  } else if (kw == "bits") {
    f.kind = FieldKind::kBits;
  } else if (kw == "bytes") {
    f.kind = FieldKind::kBytes;
  } else if (kw == "blob") {
    f.kind = FieldKind::kBlob;
  } else if (kw == "array") {
    f.kind = FieldKind::kArray;
    if (t.size() < 2 || scalar_width(t[1], f.is_signed) == 0) {
      cx.error("array needs an element type (u8, u16, u32, u64, s8..s64)");
      return false;
    }
    f.type = t[1];
    f.width = static_cast<uint32_t>(scalar_width(t[1], f.is_signed));
    name_at = 2;
  } else if (kw == "recarray" || kw == "list" || kw == "nested" || kw == "choice") {
    f.kind = kw == "recarray" ? FieldKind::kRecArray
             : kw == "list"   ? FieldKind::kList
             : kw == "nested" ? FieldKind::kNested
                              : FieldKind::kChoice;
    if (t.size() < 2) {
      cx.error(kw + " needs a record type");
      return false;
    }
    f.type = t[1];
    name_at = 2;
  } else {
    cx.error("unknown field kind '" + kw + "'");
    return false;
  }
  if (t.size() <= name_at) {
    cx.error("field name missing");
    return false;
  }
  std::string name = t[name_at];
  // NAME[N] for byte arrays and record arrays.
  auto br = name.find('[');
  if (br != std::string::npos) {
    if (f.kind != FieldKind::kBytes && f.kind != FieldKind::kRecArray) {
      cx.error("only bytes and recarray fields take a bound");
      return false;
    }
    if (name.back() != ']' || !parse_u32(name.substr(br + 1, name.size() - br - 2), f.count)) {
      cx.error("bad bound in '" + name + "'");
      return false;
    }
    name = name.substr(0, br);
  } else if (f.kind == FieldKind::kBytes || f.kind == FieldKind::kRecArray) {
    cx.error(kw + " field '" + name + "' needs a bound: NAME[N]");
    return false;
  }
  if ((f.kind == FieldKind::kBytes || f.kind == FieldKind::kRecArray) &&
      (f.count == 0 || f.count > 65535)) {
    cx.error("bound of '" + name + "' must be 1 to 65535");
    return false;
  }
  if (!valid_ident(name)) {
    cx.error("bad field name '" + name + "'");
    return false;
  }
  f.name = name;
  Opts o = split_opts(t, name_at + 1);
  std::set<std::string> keys = {"tag"}, flags;
  if (!o.kv.count("tag") || !parse_u32(o.kv["tag"], f.tag)) {
    cx.error("field '" + name + "' needs tag=N");
    return false;
  }
  if (f.tag == 0) {
    cx.error("tag 0 is reserved (decoders skip it)");
    return false;
  }
  if (f.tag > 65535) {
    cx.error("tag " + o.kv["tag"] + " does not fit 16 bits");
    return false;
  }
  if (f.kind == FieldKind::kBlob || f.kind == FieldKind::kArray || f.kind == FieldKind::kList) {
    keys.insert("count");
    flags.insert("countfirst");
    if (!o.kv.count("count") || !valid_ident(o.kv["count"])) {
      cx.error("counted field '" + name + "' needs count=NAME");
      return false;
    }
    f.count_name = o.kv["count"];
    f.count_first = o.flags.count("countfirst") != 0;
  }
  if (f.kind == FieldKind::kList) {
    flags.insert("byptr");
    f.by_ptr = o.flags.count("byptr") != 0;
  }
  if (f.kind == FieldKind::kBits) {
    keys.insert({"in", "at", "width"});
    if (!o.kv.count("in") || !parse_u32(o.kv["at"], f.bit_off) ||
        !parse_u32(o.kv["width"], f.bit_width)) {
      cx.error("bits field '" + name + "' needs in=STORAGE at=N width=N");
      return false;
    }
    f.storage = o.kv["in"];
    const Field *st = nullptr;
    for (auto &g : rec.fields) {
      if (g.kind == FieldKind::kStorage && !g.type.empty() && g.name == f.storage) st = &g;
    }
    if (st == nullptr) {
      cx.error("storage word '" + f.storage + "' is not declared before '" + name + "'");
      return false;
    }
    if (f.bit_width == 0 || f.bit_width > 32 || f.bit_off + f.bit_width > st->width * 8) {
      cx.error("bits '" + name + "' (at " + std::to_string(f.bit_off) + ", width " +
               std::to_string(f.bit_width) + ") do not fit their " + std::to_string(st->width * 8) +
               "-bit storage word");
      return false;
    }
    f.width = st->width;
  }
  if (!no_leftovers(cx, o, keys, flags)) return false;
  rec.fields.push_back(f);
  return true;
}

bool parse_header(Ctx &cx, const std::vector<std::string> &t, Record &rec) {
  if (t.size() < 3) {
    cx.error(t[0] + " needs a name and a wire form (host or net)");
    return false;
  }
  rec.name = t[1];
  if (!valid_ident(rec.name)) {
    cx.error("bad record name '" + rec.name + "'");
    return false;
  }
  if (t[2] == "net")
    rec.net = true;
  else if (t[2] != "host") {
    cx.error("wire form must be host or net, not '" + t[2] + "'");
    return false;
  }
  Opts o = split_opts(t, 3);
  std::set<std::string> keys = {"size32", "map32"},
                        flags = {"tlvonly", "alloc", "inner", "tagonly"};
  rec.has_idr = !o.flags.count("tlvonly");
  rec.inner = o.flags.count("inner") != 0;
  rec.tag_only = o.flags.count("tagonly") != 0;
  rec.force_alloc = o.flags.count("alloc") != 0;
  if (o.kv.count("size32") && !parse_u32(o.kv["size32"], rec.size32)) {
    cx.error("bad size32");
    return false;
  }
  if (o.kv.count("map32") && !parse_u32(o.kv["map32"], rec.map32)) {
    cx.error("bad map32");
    return false;
  }
  if (t[0] == "choice") {
    rec.is_choice = true;
    keys.insert({"sel", "resv", "arm", "marker", "idrmarker", "armbytes", "mapbytes"});
    flags.insert({"byptr", "checkmarker"});
    if (!o.kv.count("sel") || !valid_ident(o.kv["sel"])) {
      cx.error("choice needs sel=NAME");
      return false;
    }
    rec.sel_name = o.kv["sel"];
    rec.resv_name = o.kv.count("resv") ? o.kv["resv"] : "";
    rec.arm_name = o.kv.count("arm") ? o.kv["arm"] : rec.name + "_u";
    rec.by_ptr = o.flags.count("byptr") != 0;
    rec.check_marker = o.flags.count("checkmarker") != 0;
    if (o.kv.count("marker") && !parse_u32(o.kv["marker"], rec.tlv_marker)) {
      cx.error("bad marker");
      return false;
    }
    rec.idr_marker = rec.tlv_marker;
    if (o.kv.count("idrmarker") && !parse_u32(o.kv["idrmarker"], rec.idr_marker)) {
      cx.error("bad idrmarker");
      return false;
    }
    if (o.kv.count("armbytes") && !parse_u32(o.kv["armbytes"], rec.arm_bytes)) {
      cx.error("bad armbytes");
      return false;
    }
    if (o.kv.count("mapbytes") && !parse_u32(o.kv["mapbytes"], rec.map_bytes)) {
      cx.error("bad mapbytes");
      return false;
    }
  } else if (t[0] == "record") {
    keys.insert({"mapspare", "system"});
    if (o.kv.count("system")) rec.system = o.kv["system"];
    if (o.kv.count("mapspare") &&
        (!parse_u32(o.kv["mapspare"], rec.map_spare) || rec.map_spare == 0 || rec.map_spare > 64)) {
      cx.error("mapspare must be 1 to 64 words");
      return false;
    }
  } else if (t[0] == "custom") {
    rec.custom = true;
    keys.insert({"wraps", "field", "ptr"});
    if (!o.kv.count("wraps") || !o.kv.count("field") || !o.kv.count("ptr")) {
      cx.error("custom needs wraps=CHOICE field=NAME ptr=NAME");
      return false;
    }
    rec.wraps = o.kv["wraps"];
    rec.ptr_name = o.kv["ptr"];
    Field f;
    f.kind = FieldKind::kChoice;
    f.type = rec.wraps;
    f.name = o.kv["field"];
    f.tag = 1;
    f.file = cx.file;
    f.line = cx.line;
    rec.fields.push_back(f);
  }
  return no_leftovers(cx, o, keys, flags);
}

}  // namespace

bool parse_file(const std::string &path, bool imported, Schema &schema) {
  std::ifstream in(path);
  Ctx cx;
  cx.file = path;
  if (!in) {
    std::fprintf(stderr, "%s: error: cannot read the schema file\n", path.c_str());
    return false;
  }
  std::string text;
  Record *cur = nullptr;
  int cur_line = 0;
  while (std::getline(in, text)) {
    ++cx.line;
    auto hash = text.find('#');
    if (hash != std::string::npos) text.resize(hash);
    std::istringstream ls(text);
    std::vector<std::string> t;
    for (std::string w; ls >> w;) t.push_back(w);
    if (t.empty()) continue;
    // "choice" opens a choice record outside a record, and is a field kind inside one.
    const bool opens = t[0] == "record" || t[0] == "custom" || (t[0] == "choice" && cur == nullptr);
    if (opens) {
      if (cur != nullptr) {
        cx.error("record '" + cur->name + "' (line " + std::to_string(cur_line) +
                 ") lacks its 'end'");
        return false;
      }
      Record rec;
      rec.file = path;
      rec.line = cx.line;
      rec.imported = imported;
      if (!parse_header(cx, t, rec)) continue;
      if (schema.index.count(rec.name)) {
        const Record &old = schema.records[schema.index[rec.name]];
        cx.error("record '" + rec.name + "' is already defined at " + old.file + ":" +
                 std::to_string(old.line));
        continue;
      }
      schema.index[rec.name] = schema.records.size();
      schema.records.push_back(rec);
      cur = rec.custom ? nullptr : &schema.records.back();
      cur_line = cx.line;
      continue;
    }
    if (cur == nullptr) {
      cx.error("'" + t[0] + "' outside a record");
      continue;
    }
    if (t[0] == "end") {
      if (!cur->is_choice && cur->fields.empty())
        cx.error("record '" + cur->name + "' has no fields");
      cur = nullptr;
      continue;
    }
    if (cur->is_choice) {
      uint32_t sel;
      if (t[0] != "arm" || t.size() != 3 || !parse_u32(t[1], sel)) {
        cx.error("a choice holds only 'arm SELECTOR RECORD' lines");
        continue;
      }
      for (auto &a : cur->arms) {
        if (a.selector == sel)
          cx.error("selector " + t[1] + " already has an arm (line " + std::to_string(a.line) +
                   ")");
      }
      cur->arms.push_back({sel, t[2], cx.line});
      continue;
    }
    if (!parse_field(cx, t, *cur)) continue;
    const Field &nf = cur->fields.back();
    for (size_t i = 0; i + 1 < cur->fields.size(); ++i) {
      const Field &g = cur->fields[i];
      if (g.name == nf.name || (!g.count_name.empty() && g.count_name == nf.name)) {
        cx.error("duplicate field name '" + nf.name + "' (line " + std::to_string(g.line) + ")");
      }
      if (nf.kind != FieldKind::kStorage && g.kind != FieldKind::kStorage && g.tag == nf.tag) {
        cx.error("duplicate tag " + std::to_string(nf.tag) + ": '" + nf.name + "' and '" + g.name +
                 "' (line " + std::to_string(g.line) + ")");
      }
    }
  }
  if (cur != nullptr) {
    cx.error("record '" + cur->name + "' (line " + std::to_string(cur_line) + ") lacks its 'end'");
  }
  return cx.ok;
}

bool check(Schema &schema) {
  bool ok = true;
  auto err = [&](const std::string &file, int line, const std::string &msg) {
    std::fprintf(stderr, "%s:%d: error: %s\n", file.c_str(), line, msg.c_str());
    ok = false;
  };
  for (auto &r : schema.records) {
    for (auto &f : r.fields) {
      if (f.kind == FieldKind::kRecArray || f.kind == FieldKind::kList ||
          f.kind == FieldKind::kNested || f.kind == FieldKind::kChoice) {
        const Record *s = schema.find(f.type);
        if (s == nullptr) {
          err(f.file, f.line, "unknown record type '" + f.type + "'");
          continue;
        }
        if (f.kind == FieldKind::kChoice && !s->is_choice)
          err(f.file, f.line, "'" + f.type + "' is not a choice");
        if (f.kind != FieldKind::kChoice && s->is_choice && f.kind != FieldKind::kList)
          err(f.file, f.line, "'" + f.type + "' is a choice: use 'choice'");
        if (r.has_idr && !s->has_idr)
          err(f.file, f.line, "'" + f.type + "' has no IDR form but '" + r.name + "' has");
      }
    }
    for (auto &a : r.arms) {
      const Record *s = schema.find(a.rec);
      if (s == nullptr)
        err(r.file, a.line, "unknown arm record '" + a.rec + "'");
      else if (r.has_idr && !s->has_idr)
        err(r.file, a.line, "arm '" + a.rec + "' has no IDR form");
    }
  }
  if (!ok) return false;
  // Inline containment must not loop (pointers may).
  std::map<std::string, int> state;
  std::function<bool(const Record &)> visit = [&](const Record &r) -> bool {
    int &s = state[r.name];
    if (s == 2) return true;
    if (s == 1) {
      err(r.file, r.line, "record '" + r.name + "' contains itself");
      return false;
    }
    s = 1;
    for (auto &f : r.fields) {
      if (f.kind == FieldKind::kNested || f.kind == FieldKind::kRecArray ||
          f.kind == FieldKind::kChoice) {
        if (!visit(*schema.find(f.type))) return false;
      }
    }
    if (r.is_choice && !r.by_ptr) {
      for (auto &a : r.arms) {
        if (!visit(*schema.find(a.rec))) return false;
      }
    }
    state[r.name] = 2;
    return true;
  };
  for (auto &r : schema.records) {
    if (!visit(r)) return false;
  }
  return ok;
}

}  // namespace idlgen
