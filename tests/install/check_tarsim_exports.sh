#!/usr/bin/env bash
# Checks what libtarsim exports: the C face (tarsim_*) and the C++ API (tarsim::...), and nothing
# else: no instantiation of the standard library, no internal class or helper.  Only defined
# symbols count; what the library imports (from libstdc++ among others) is not an export.
# Usage: check_tarsim_exports.sh path/to/libtarsim.so
set -euo pipefail
lib=${1:?usage: check_tarsim_exports.sh path/to/libtarsim.so}
if [ ! -f "$lib" ]; then
  echo "check_tarsim_exports: no such file: $lib" >&2
  exit 2
fi

# "address type name", the name demangled and without its version suffix.
names=$(nm -DC --defined-only "$lib" | cut -d' ' -f3- | sed 's/@@*TARSIM_[0-9A-Z_]*$//')
status=0

forbidden=$(grep -E 'std::|Impl|internal' <<<"$names" || true)
if [ -n "$forbidden" ]; then
  echo "check_tarsim_exports: $lib exports standard-library or internal symbols:" >&2
  echo "$forbidden" >&2
  status=1
fi

foreign=$(grep -vE '^(tarsim::|tarsim_|TARSIM_[0-9A-Z_]*$)' <<<"$names" || true)
if [ -n "$foreign" ]; then
  echo "check_tarsim_exports: $lib exports names outside tarsim:: and tarsim_*:" >&2
  echo "$foreign" >&2
  status=1
fi

# The entry points every user needs must be there: an empty export list passes nothing.
for want in 'tarsim_start' 'tarsim::Kernel::Kernel()' 'tarsim::Kernel::devices()'; do
  if ! grep -qxF "$want" <<<"$names"; then
    echo "check_tarsim_exports: $lib does not export $want" >&2
    status=1
  fi
done

if [ "$status" -eq 0 ]; then
  echo "check_tarsim_exports: $(wc -l <<<"$names") symbols, all tarsim's API"
fi
exit "$status"
