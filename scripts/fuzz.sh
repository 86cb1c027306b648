#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang and runs each for its time (in
# seconds, default 30) from its seed corpus. Any crash, leak or sanitizer
# report fails the run.
#   scripts/fuzz.sh [seconds]          all harnesses
#   scripts/fuzz.sh seconds name...    only these
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELLUMRIG_FUZZ=ON > /dev/null
cmake --build build/fuzz
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for f in fuzz/*_fuzz.cc; do [ -e "$f" ] && names+=("$(basename "$f" .cc)"); done
fi
export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for name in "${names[@]}"; do
  corpus=fuzz/corpus/${name%_fuzz}
  work=build/fuzz/corpus/${name%_fuzz}
  mkdir -p "$work"
  echo "== fuzzing $name for ${seconds}s"
  # New inputs go to the scratch corpus; the seeds in the tree stay as they are.
  build/fuzz/bin/"$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix=build/fuzz/ -print_final_stats=1 "$work" "$corpus" 2>&1 | tail -n 12
  status=${PIPESTATUS[0]}
  if [ "$status" -ne 0 ]; then
    echo "fuzzer $name failed (exit $status)" >&2
    exit 1
  fi
done
