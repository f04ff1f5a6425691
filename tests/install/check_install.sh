#!/usr/bin/env bash
# Checks an installed libtarlink: its exports against its headers, then builds the examples
# against it, once through the CMake package and once through pkg-config, and runs them against
# the simulated kernel.
set -euo pipefail
prefix=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Every name that an installed header declares with TLK_EXPORT (the record header included),
# one a line.  Comments and preprocessor lines are dropped, the rest is cut into declarations at
# ';', '{' and '}', and the declared name is taken from each declaration that says TLK_EXPORT:
# a function's name stands before its first '(', a function pointer's inside "(*name)", an
# object's before its '[' or '=' or at the end.
declared_exports() {
  awk '
    {
      line = $0; out = ""
      while (line != "") {
        if (in_comment) {
          end = index(line, "*/")
          if (end == 0) { line = ""; break }
          line = substr(line, end + 2); in_comment = 0; continue
        }
        block = index(line, "/*"); rest = index(line, "//")
        if (rest > 0 && (block == 0 || rest < block)) { out = out substr(line, 1, rest - 1); break }
        if (block == 0) { out = out line; break }
        out = out substr(line, 1, block - 1) " "; line = substr(line, block + 2); in_comment = 1
      }
      if (continued) { continued = (out ~ /\\$/); next }
      if (out ~ /^[ \t]*#/) { continued = (out ~ /\\$/); next }
      text = text " " out
    }
    END {
      n = split(text, decls, /[;{}]/)
      for (i = 1; i <= n; i++) {
        d = decls[i]
        if (d !~ /(^|[^A-Za-z0-9_])TLK_EXPORT([^A-Za-z0-9_]|$)/) continue
        sub(/.*TLK_EXPORT/, "", d)
        paren = index(d, "(")
        if (paren > 0) {
          after = substr(d, paren + 1)
          if (after ~ /^[ \t]*\*/) {
            sub(/^[ \t]*\*[ \t]*/, "", after)
            match(after, /^[A-Za-z_][A-Za-z0-9_]*/)
            name = substr(after, RSTART, RLENGTH)
          } else {
            before = substr(d, 1, paren - 1)
            match(before, /[A-Za-z_][A-Za-z0-9_]*[ \t]*$/)
            name = substr(before, RSTART, RLENGTH)
          }
        } else {
          cut = index(d, "["); if (cut > 0) d = substr(d, 1, cut - 1)
          cut = index(d, "="); if (cut > 0) d = substr(d, 1, cut - 1)
          match(d, /[A-Za-z_][A-Za-z0-9_]*[ \t]*$/)
          name = substr(d, RSTART, RLENGTH)
        }
        gsub(/[ \t]/, "", name)
        if (name == "") { print "unreadable declaration:" d > "/dev/stderr"; bad = 1; continue }
        print name
      }
      exit bad
    }' "$@"
}

# The names that the shared library defines and exports (the version node itself left out).
defined_exports() {
  nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }'
}

# Prints the names of the first list that the second lacks.
missing_from() {
  awk 'NR == FNR { have[$0] = 1; next } !($0 in have)' "$2" "$1"
}

check_exports() {
  local include=$prefix/include lib
  lib=$(find "$prefix" -name libtarlink.so -print -quit)
  if [[ -z $lib ]]; then
    echo "no libtarlink.so under $prefix" >&2
    return 1
  fi
  declared_exports "$include/tarlink.h" "$include"/tarlink/*.h "$include/tarlink_platform.h" \
    "$include/tarlink_records.h" | sort -u >"$work/declared"
  defined_exports "$lib" | sort -u >"$work/defined"
  missing_from "$work/declared" "$work/defined" >"$work/not_exported"
  missing_from "$work/defined" "$work/declared" >"$work/not_declared"
  local failed=0
  if [[ -s $work/not_exported ]]; then
    echo "declared with TLK_EXPORT in the installed headers, not exported by $lib:" >&2
    sed 's/^/  /' "$work/not_exported" >&2
    failed=1
  fi
  if [[ -s $work/not_declared ]]; then
    echo "exported by $lib, not declared with TLK_EXPORT in the installed headers:" >&2
    sed 's/^/  /' "$work/not_declared" >&2
    failed=1
  fi
  if ((failed)); then
    return 1
  fi
  echo "exports match the headers: $(wc -l <"$work/declared") names"
}

check_exports
# The simulator's library exports its API only: no standard-library instantiations, no internals.
"$here/check_tarsim_exports.sh" "$(find "$prefix" -name libtarsim.so -print -quit)"

# The library directory may be multiarch (lib/x86_64-linux-gnu): take it from where the library is.
libdir=$(dirname "$(find "$prefix" -name libtarlink.so -print -quit)")
cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLES_DIR="$here/../../examples" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/raw_request" --sim

# pkg-config finds the prefix from where its files stand.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
test "$(pkg-config --variable=libdir tarlink)" -ef "$libdir"
cc -std=c99 -Wall -Werror "$here/../../examples/raw_request.c" -o "$work/raw_request_pc" \
  $(pkg-config --cflags --libs tarsim)
LD_LIBRARY_PATH="$libdir" "$work/raw_request_pc" --sim
echo "install test passed"
