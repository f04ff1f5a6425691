#!/usr/bin/env bash
# Builds libtarlink and runs the main job: `tlkctl demo` against the embedded simulated kernel.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/deps.sh
tarlink_install_deps
cmake --preset default >/dev/null
cmake --build --preset default --target tlkctl
exec ./build/default/tools/tlkctl/tlkctl demo "$@"
