#!/bin/sh
# Builds the codec fuzz target through the fuzz preset and runs it for SECONDS (default 60),
# starting from the generated seed corpus.  Findings land in build/fuzz/fuzz/findings/.
set -eu
secs=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 --target fuzz_codec fuzz_corpus
out=build/fuzz/fuzz
mkdir -p "$out/findings" "$out/corpus/run"
for target in fuzz_codec; do
  echo "== $target for ${secs}s"
  "$out/$target" -max_total_time="$secs" -max_len=8192 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$out/findings/" "$out/corpus/run" "$out/corpus/codec"
done
