#!/usr/bin/env bash
# Builds and runs every test twice: a plain build, then one under
# AddressSanitizer and UndefinedBehaviorSanitizer, with the README's host
# example built against an install of the first; then runs each fuzz
# harness from its seed corpus. All must pass.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export ASAN_OPTIONS=detect_leaks=1
for variant in release sanitize; do
  echo "== $variant build"
  scripts/build.sh "$variant"
  ctest --test-dir "build/$variant" --output-on-failure -j2
  # The install tree and the host example built against it, once.
  if [ "$variant" = release ]; then scripts/test-install.sh; fi
done
# Text formats get 30 seconds each, the container structures 60.
scripts/fuzz.sh 30 xml_reader_fuzz xml_binary_fuzz flat_error_fuzz message_format_fuzz
scripts/fuzz.sh 60 vhdx_header_fuzz vhdx_metadata_fuzz vhdx_disk_fuzz
