#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang and runs each for its time (in
# seconds, default 30) from its seed corpus. Any crash, leak or sanitizer
# report fails the run.
#   scripts/fuzz.sh [seconds]          all harnesses
#   scripts/fuzz.sh seconds name...    only these
# The build goes to build/fuzz, or to $VELLUMRIG_FUZZ_DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true
dir=${VELLUMRIG_FUZZ_DIR:-build/fuzz}
CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELLUMRIG_FUZZ=ON -DVELLUMRIG_WERROR=ON > /dev/null
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for f in fuzz/*_fuzz.cc; do [ -e "$f" ] && names+=("$(basename "$f" .cc)"); done
fi
cmake --build "$dir" --target "${names[@]}"
export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for name in "${names[@]}"; do
  corpus=fuzz/corpus/${name%_fuzz}
  work=$dir/corpus/${name%_fuzz}
  mkdir -p "$work"
  echo "== fuzzing $name for ${seconds}s"
  # New inputs go to the scratch corpus; the seeds in the tree stay as they are.
  if ! "$dir/bin/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$dir/" -print_final_stats=1 "$work" "$corpus" > "$dir/$name.log" 2>&1; then
    tail -n 60 "$dir/$name.log"
    echo "fuzzer $name failed: see $dir/$name.log and the crash input in $dir/" >&2
    exit 1
  fi
  grep -E "^(stat::number_of_executed_units|Done)" "$dir/$name.log" || tail -n 3 "$dir/$name.log"
done
