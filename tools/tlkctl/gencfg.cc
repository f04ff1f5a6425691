// tlkctl gencfg: stores, reads, walks and deletes configuration blobs in the embedded simulated
// kernel, with zlib as the compression pair.  One kernel lives for the whole invocation, so a
// sequence of commands (separated by "--", or one per line on standard input) works on one store.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {

namespace {

constexpr char kUsage[] =
    "usage: tlkctl gencfg [-v] COMMAND [-- COMMAND ...]\n"
    "       tlkctl gencfg [-v]            (commands from standard input, one per line)\n"
    "\n"
    "  add MAJOR MINOR KEY BLOB [--compress]   store a blob\n"
    "  get MAJOR MINOR KEY [--out FILE]        read a blob back\n"
    "  walk MAJOR MINOR                        list the blobs of MAJOR/MINOR in key order\n"
    "  delete MAJOR MINOR KEY                  remove a blob\n"
    "\n"
    "  KEY   text, or #N for a numeric key\n"
    "  BLOB  --text STRING | --file FILE | --pattern N (N bytes of compressible text)\n"
    "        | --random N (N random bytes, which no compressor shrinks)\n"
    "  -v    show the library's debug lines too\n";

// The last compressed length, for the report: zlib's compress, counted.
unsigned long g_last_compressed = 0;
int counting_compress(unsigned char *dest, unsigned long *dest_len, const unsigned char *src,
                      unsigned long src_len) {
  const int rc = compress(dest, dest_len, src, src_len);
  g_last_compressed = rc == Z_OK ? *dest_len : 0;
  return rc;
}

bool g_verbose = false;
void diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  if (level > TLK_LEVEL_DEBUG || g_verbose) print_diagnostic(cookie, arg, level, text);
}

bool parse_u16(const std::string &s, uint16_t *out) {
  char *end = nullptr;
  const unsigned long v = strtoul(s.c_str(), &end, 0);
  if (s.empty() || *end != '\0' || v > 0xFFFF) return false;
  *out = static_cast<uint16_t>(v);
  return true;
}

bool parse_size(const std::string &s, size_t *out) {
  char *end = nullptr;
  const unsigned long long v = strtoull(s.c_str(), &end, 0);
  if (s.empty() || *end != '\0' || v > (64ull << 20)) return false;
  *out = static_cast<size_t>(v);
  return true;
}

struct Target {
  uint16_t major = 0, minor = 0;
  bool numeric = false;
  uint32_t kid = 0;
  std::string key;
  std::string label() const {
    return std::to_string(major) + "/" + std::to_string(minor) + " " +
           (numeric ? "#" + std::to_string(kid) : "\"" + key + "\"");
  }
};

bool parse_target(const std::vector<std::string> &a, size_t at, bool with_key, Target *t) {
  if (a.size() < at + (with_key ? 3 : 2)) return false;
  if (!parse_u16(a[at], &t->major) || !parse_u16(a[at + 1], &t->minor)) return false;
  if (!with_key) return true;
  const std::string &k = a[at + 2];
  if (k.size() > 1 && k[0] == '#') {
    char *end = nullptr;
    const unsigned long v = strtoul(k.c_str() + 1, &end, 0);
    if (*end != '\0' || v > 0xFFFFFFFFul) return false;
    t->numeric = true;
    t->kid = static_cast<uint32_t>(v);
    return true;
  }
  t->key = k;
  return !k.empty();
}

gencfg_t record_for(Target &t) {
  gencfg_t r{};
  r.major = t.major;
  r.minor = t.minor;
  if (t.numeric) {
    r.flags = TLK_GENCFG_KID;
    r.kid = t.kid;
  } else {
    r.flags = TLK_GENCFG_KEY;
    r.key = reinterpret_cast<uint8_t *>(t.key.data());
    r.key_len = static_cast<uint16_t>(t.key.size());
  }
  return r;
}

std::string describe(int err) {
  if (err == EOPNOTSUPP) return "not found (the kernel refused with a raw tlk-err)";
  if (err > 0) return strerror(err);
  return "compression failed, zlib's result " + std::to_string(err) +
         (err == Z_BUF_ERROR ? " (the blob does not shrink)" : "");
}

std::string preview(const uint8_t *p, size_t n) {
  std::string s;
  for (size_t i = 0; i < n && s.size() < 40; ++i) {
    const char ch = static_cast<char>(p[i]);
    s += (ch >= 0x20 && ch < 0x7F) ? ch : '.';
  }
  return s;
}

class Gencfg {
 public:
  Gencfg(tarsim::Kernel &kernel, tarvik_cookie *c) : kernel_(kernel), c_(c) {}

  int run(const std::vector<std::string> &a) {
    if (a.empty()) return 0;
    if (a[0] == "add") return add(a);
    if (a[0] == "get") return get(a);
    if (a[0] == "walk") return walk(a);
    if (a[0] == "delete") return remove(a);
    fprintf(stderr, "tlkctl gencfg: unknown command '%s'\n%s", a[0].c_str(), kUsage);
    return 2;
  }

 private:
  // The size of the last frame the library wrote, and of the last one the kernel queued.
  size_t last_frame(bool to_kernel) const {
    const auto &rec = kernel_.recorded();
    for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
      if (it->to_kernel == to_kernel) return it->bytes.size();
    }
    return 0;
  }

  int add(const std::vector<std::string> &a) {
    Target t;
    if (!parse_target(a, 1, true, &t) || a.size() < 5) return usage();
    std::vector<uint8_t> blob;
    bool packed = false;
    for (size_t i = 4; i < a.size(); ++i) {
      size_t n = 0;
      if (a[i] == "--compress") {
        packed = true;
      } else if (a[i] == "--text" && i + 1 < a.size()) {
        blob.assign(a[i + 1].begin(), a[i + 1].end());
        ++i;
      } else if (a[i] == "--file" && i + 1 < a.size()) {
        std::ifstream in(a[i + 1], std::ios::binary);
        if (!in) {
          fprintf(stderr, "tlkctl gencfg: cannot read %s\n", a[i + 1].c_str());
          return 1;
        }
        blob.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        ++i;
      } else if (a[i] == "--pattern" && i + 1 < a.size() && parse_size(a[i + 1], &n)) {
        blob = pattern_blob(n);
        ++i;
      } else if (a[i] == "--random" && i + 1 < a.size() && parse_size(a[i + 1], &n)) {
        std::mt19937 rng(7);
        blob.resize(n);
        for (auto &b : blob) b = static_cast<uint8_t>(rng());
        ++i;
      } else {
        return usage();
      }
    }
    gencfg_t r = record_for(t);
    r.blob = blob.data();
    r.blob_len = static_cast<uint32_t>(blob.size());
    if (packed) r.flags |= TLK_GENCFG_COMPRESSED;
    g_last_compressed = 0;
    const int err = tarvik_gencfg_add(c_, &r);
    if (err != 0) {
      printf("add %s: %s\n", t.label().c_str(), describe(err).c_str());
      return 1;
    }
    if (packed) {
      printf("add %s: %zu bytes, compressed to %lu; frame on the wire %zu bytes\n",
             t.label().c_str(), blob.size(), g_last_compressed, last_frame(true));
    } else {
      printf("add %s: %zu bytes; frame on the wire %zu bytes\n", t.label().c_str(), blob.size(),
             last_frame(true));
    }
    return 0;
  }

  // A blob of a type the trace printer knows, as the trace line shows it: what the line holds
  // beyond its head.  The printer may swap the blob in place, so this comes after the crc.
  void print_decoded(const gencfg_t &r) {
    gencfg_msg m{};
    m.gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
    m.gencfg_hdr.tlkh_op = TLK_OP_GET;
    m.major = r.major;
    m.minor = r.minor;
    m.kid = r.kid;
    m.lrid = r.lrid;
    char head[2048];
    char full[2048];
    if (tarvik_format_output(c_, head, sizeof head, 0, &m) != 0) return;
    m.blob = r.blob;
    m.blob_len = r.blob_len;
    if (tarvik_format_output(c_, full, sizeof full, 0, &m) != 0) return;
    const size_t n = strlen(head) - 1;  // without the line feed
    if (strlen(full) > n + 1) printf("  decoded:%s", full + n);
  }

  int get(const std::vector<std::string> &a) {
    Target t;
    if (!parse_target(a, 1, true, &t)) return usage();
    std::string out_file;
    for (size_t i = 4; i < a.size(); ++i) {
      if (a[i] == "--out" && i + 1 < a.size()) {
        out_file = a[++i];
      } else {
        return usage();
      }
    }
    gencfg_t r = record_for(t);
    void *msg = nullptr;
    const int err = tarvik_gencfg_get(c_, &r, TLK_OP_GET, &msg, nullptr);
    if (err != 0) {
      printf("get %s: %s\n", t.label().c_str(), describe(err).c_str());
      if (msg != nullptr) tarvik_msg_free(c_, msg);
      return 1;
    }
    const bool packed = (r.flags & TLK_GENCFG_COMPRESSED) != 0;
    printf("get %s: %u bytes%s, frame on the wire %zu bytes, crc32 %08lx \"%s\"\n",
           t.label().c_str(), r.blob_len, packed ? " after decompression" : "", last_frame(false),
           crc32(0, r.blob, r.blob_len), preview(r.blob, r.blob_len).c_str());
    print_decoded(r);
    int result = 0;
    if (!out_file.empty()) {
      std::ofstream out(out_file, std::ios::binary);
      out.write(reinterpret_cast<const char *>(r.blob), r.blob_len);
      if (!out) {
        fprintf(stderr, "tlkctl gencfg: cannot write %s\n", out_file.c_str());
        result = 1;
      }
    }
    tarvik_msg_free(c_, msg);
    return result;
  }

  int walk(const std::vector<std::string> &a) {
    Target t;
    if (!parse_target(a, 1, false, &t) || a.size() != 3) return usage();
    gencfg_t r{};
    r.major = t.major;
    r.minor = t.minor;
    r.flags = 0;  // no key: from the beginning, byte keys and numeric keys alike
    std::string from;
    unsigned n = 0;
    printf("walk %u/%u:\n", t.major, t.minor);
    for (;;) {
      void *msg = nullptr;
      const int err = tarvik_gencfg_get(c_, &r, TLK_OP_GETNEXT, &msg, nullptr);
      if (err != 0) {
        if (msg != nullptr) tarvik_msg_free(c_, msg);
        break;  // the kernel refuses the getnext after the last blob
      }
      ++n;
      const bool packed = (r.flags & TLK_GENCFG_COMPRESSED) != 0;
      if (r.flags & TLK_GENCFG_KEY) {
        from.assign(reinterpret_cast<const char *>(r.key), r.key_len);
        printf("  \"%s\"  %u bytes%s\n", from.c_str(), r.blob_len,
               packed ? " (stored compressed)" : "");
        r.key = reinterpret_cast<uint8_t *>(from.data());  // the next request starts here
      } else {
        printf("  #%u  %u bytes%s\n", r.kid, r.blob_len, packed ? " (stored compressed)" : "");
      }
      r.blob = nullptr;
      r.blob_len = 0;
      tarvik_msg_free(c_, msg);
    }
    printf("  %u blob%s\n", n, n == 1 ? "" : "s");
    return 0;
  }

  int remove(const std::vector<std::string> &a) {
    Target t;
    if (!parse_target(a, 1, true, &t) || a.size() != 4) return usage();
    gencfg_t r = record_for(t);
    const bool was =
        kernel_.gencfg().find(
            t.numeric ? tarsim::Gencfg::numeric_key(t.major, t.minor, t.kid)
                      : tarsim::Gencfg::bytes_key(t.major, t.minor,
                                                  {reinterpret_cast<const uint8_t *>(t.key.data()),
                                                   t.key.size()})) != nullptr;
    const int err = tarvik_gencfg_delete(c_, &r);
    if (err != 0) {
      printf("delete %s: %s\n", t.label().c_str(), describe(err).c_str());
      return 1;
    }
    // A delete has no reply; the kernel's store says whether there was anything to remove.
    printf("delete %s: %s\n", t.label().c_str(), was ? "removed" : "nothing stored under it");
    return 0;
  }

  static int usage() {
    fputs(kUsage, stderr);
    return 2;
  }

  tarsim::Kernel &kernel_;
  tarvik_cookie *c_;
};

std::vector<std::string> split_words(const std::string &line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

}  // namespace

std::vector<uint8_t> pattern_blob(size_t n) {
  static const char *const kWords[] = {"interface ", "unit ",  "family ", "inet ", "address ",
                                       "filter ",    "input ", "term ",   "then ", "accept "};
  std::mt19937 rng(3);
  std::string s;
  s.reserve(n + 64);
  for (unsigned line = 0; s.size() < n; ++line) {
    s += "set " + std::to_string(line) + " ";
    for (int w = 0; w < 5; ++w) s += kWords[rng() % 10];
    s += ";\n";
  }
  s.resize(n);
  return std::vector<uint8_t>(s.begin(), s.end());
}

int run_gencfg(int argc, char **argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && args[0] == "-v") {
    g_verbose = true;
    args.erase(args.begin());
  }
  if (!args.empty() && (args[0] == "-h" || args[0] == "--help")) {
    fputs(kUsage, stdout);
    return 0;
  }
  // The commands: the arguments split at "--", or the lines of standard input.
  std::vector<std::vector<std::string>> commands(1);
  if (args.empty()) {
    for (std::string line; std::getline(std::cin, line);) {
      std::vector<std::string> words = split_words(line);
      if (!words.empty() && words[0][0] != '#') commands.push_back(std::move(words));
    }
  } else {
    for (const std::string &a : args) {
      if (a == "--") {
        commands.emplace_back();
      } else {
        commands.back().push_back(a);
      }
    }
  }

  tarsim::Kernel kernel;
  kernel.record(true);
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl gencfg: cannot open a session\n");
    return 1;
  }
  tarvik_init_blob_compression(c, counting_compress, uncompress);
  Gencfg g(kernel, c);
  int result = 0;
  for (const auto &cmd : commands) {
    const int r = g.run(cmd);
    if (r > result) result = r;
    kernel.clear_recorded();
  }
  tarvik_close(c);
  return result;
}

}  // namespace tlkctl
