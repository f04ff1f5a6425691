#!/usr/bin/env bash
# Builds the examples against an installed libtarlink, once through the CMake package and once
# through pkg-config, and runs them against the simulated kernel.
set -euo pipefail
prefix=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DEXAMPLES_DIR="$here/../../examples" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$work/cmake/raw_request" --sim

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
cc -std=c99 -Wall -Werror "$here/../../examples/raw_request.c" -o "$work/raw_request_pc" \
  $(pkg-config --cflags --libs tarsim)
LD_LIBRARY_PATH="$prefix/lib" "$work/raw_request_pc" --sim
echo "install test passed"
