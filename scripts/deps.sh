#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, only those that are missing.
# Sourced by demo.sh and test.sh.
set -euo pipefail

tarlink_install_deps() {
  # The benchmarks' peers (netlink, protobuf) are optional: their parts are compiled out when the
  # packages are absent.
  local bench=(libmnl-dev libprotobuf-dev protobuf-compiler)
  local wanted=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev nettle-dev "${bench[@]}" "$@")
  local missing=()
  for p in "${wanted[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}
