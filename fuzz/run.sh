#!/bin/sh
# Builds the fuzz targets through the fuzz preset and runs each for SECONDS (default 60),
# starting from the generated seed corpora.  Findings land in build/fuzz/fuzz/findings/.
set -eu
secs=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 --target fuzz_codec fuzz_envelope fuzz_blob fuzz_capture fuzz_tarsimd fuzz_corpus
out=build/fuzz/fuzz
mkdir -p "$out/findings"
# Seeds of the blob target: a legacy filter head (first byte picks the head decoder), the
# start of a TLV one, and an opaque next hop area.
mkdir -p "$out/corpus/blob"
{ printf '\000'; head -c 296 /dev/zero | tr '\0' '\1'; } >"$out/corpus/blob/legacy-head"
printf '\000\000\000\000\002' >"$out/corpus/blob/tlv-head"
# A next hop's opaque area of one EVPN item (type 10, length 33) for the trace decoder.
{ printf '\360\012\000\041\000'; head -c 29 /dev/zero | tr '\0' '\2'; } >"$out/corpus/blob/opaque-evpn"
# A capture of two records, one each way, and a bare header.
mkdir -p "$out/corpus/capture"
{ printf 'TLKC\001\000\020\000'; head -c 8 /dev/zero
  printf '\001\000\000\000\004\000\000\000'; head -c 8 /dev/zero; printf '\004\000\000\000abcd'
  printf '\002\000\000\000\004\000\000\000\020\000\000\000\000\000\000\000\000\000\000\000'
} >"$out/corpus/capture/two-records"
{ printf 'TLKC\001\000\020\000'; head -c 8 /dev/zero; } >"$out/corpus/capture/header"
# The envelope seeds too: the capture target prints any input as one message's trace line.
cp "$out/corpus/envelope/"* "$out/corpus/capture/" 2>/dev/null || true
# tarsimd's connections: a session opened and its stats asked for; the session's name (the
# daemon's descriptor) is found by the fuzzer.
mkdir -p "$out/corpus/tarsimd"
{ printf '\001\000\000\000\377\377\377\377'; head -c 12 /dev/zero
  printf '\013\000\000\000\377\377\377\377'; head -c 12 /dev/zero; } >"$out/corpus/tarsimd/open-stats"
for pair in fuzz_codec:codec fuzz_envelope:envelope fuzz_blob:blob fuzz_capture:capture fuzz_tarsimd:tarsimd; do
  target=${pair%%:*}
  seeds=${pair#*:}
  mkdir -p "$out/corpus/run-$seeds" "$out/corpus/$seeds"
  echo "== $target for ${secs}s"
  "$out/$target" -max_total_time="$secs" -max_len=8192 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$out/findings/" "$out/corpus/run-$seeds" "$out/corpus/$seeds"
done
