#!/bin/sh
# Builds the fuzz targets through the fuzz preset and runs each for SECONDS (default 60),
# starting from the generated seed corpora.  Findings land in build/fuzz/fuzz/findings/.
set -eu
secs=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 --target fuzz_codec fuzz_envelope fuzz_corpus
out=build/fuzz/fuzz
mkdir -p "$out/findings"
for pair in fuzz_codec:codec fuzz_envelope:envelope; do
  target=${pair%%:*}
  seeds=${pair#*:}
  mkdir -p "$out/corpus/run-$seeds"
  echo "== $target for ${secs}s"
  "$out/$target" -max_total_time="$secs" -max_len=8192 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$out/findings/" "$out/corpus/run-$seeds" "$out/corpus/$seeds"
done
