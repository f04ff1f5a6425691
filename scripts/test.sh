#!/usr/bin/env bash
# Builds everything and runs every test: a format check of every source, the unit tests (g++),
# the same tests under AddressSanitizer and UndefinedBehaviorSanitizer (clang), the codec tests in
# a 32-bit build, a bounded fuzz run of the decoders, the install test, and the
# benchmarks once as a smoke run.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
tarlink_install_deps clang libclang-rt-dev g++-multilib clang-format
# The 32-bit tests need qemu only where this host cannot run i386 code itself.
probe=$(mktemp -d)
if ! { echo 'int main(void) { return 0; }' | gcc -m32 -x c - -o "$probe/run32" && "$probe/run32"; } 2>/dev/null; then
  tarlink_install_deps qemu-user
fi
rm -rf "$probe"
start=$(date +%s)

# Each step's heading says how long the run has taken so far, so a slow step shows itself.
step() { printf '\n==== %s (at %d s)\n' "$*" $(( $(date +%s) - start )); }

step "format (clang-format, the style in .clang-format)"
{ git ls-files '*.c' '*.cc' '*.h' '*.hpp' 2>/dev/null ||
  find include lib sim tools tests bench fuzz examples -name '*.[ch]' -o -name '*.cc' -o -name '*.hpp'; } |
  xargs clang-format --dry-run --Werror
echo "every source is formatted"

# Optimised as always, without debug information: a good part less to compile, nothing less tested.
step "build and test (g++, -O2)"
cmake --preset default -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
  -DCMAKE_INSTALL_LIBDIR="lib/$(gcc -print-multiarch)" >/dev/null
cmake --build --preset default
ctest --preset default

step "build and test under ASan + UBSan (clang)"
cmake --preset sanitize >/dev/null
cmake --build --preset sanitize
ctest --preset sanitize

step "codec tests in the 32-bit build (the target's in-memory layout)"
cmake --preset m32 -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" >/dev/null
cmake --build --preset m32
ctest --preset m32

step "fuzz the decoders for a bounded time"
./fuzz/run.sh "${TARLINK_FUZZ_SECONDS:-5}"

step "install, then build an example against the installed package"
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build/default --prefix "$prefix" >/dev/null
tests/install/check_install.sh "$prefix"

step "benchmarks build and run (smoke, not timed)"
# A benchmark that gives up (SkipWithError) still exits 0: its report says so, and fails the step.
for b in build/default/bench/bench_*; do
  report=$(TARLINK_BENCH_SMOKE=1 "$b" --benchmark_min_time=0.01 2>/dev/null)
  if grep -q 'ERROR OCCURRED' <<<"$report"; then
    grep 'ERROR OCCURRED' <<<"$report" >&2
    echo "$b: a benchmark failed" >&2
    exit 1
  fi
done
echo "benchmarks ran"

echo
echo "all tests passed in $(( $(date +%s) - start )) s"
