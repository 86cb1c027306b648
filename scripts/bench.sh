#!/usr/bin/env bash
# Builds the release variant and runs the engine benchmarks. Arguments go to
# the benchmark (e.g. --benchmark_filter=read/). BUILD_DIR picks another,
# already configured build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -n "${BUILD_DIR:-}" ]; then
  cmake --build "$BUILD_DIR" --target vhdx_bench change_query_bench
else
  BUILD_DIR=build/release
  scripts/build.sh release
fi
if [ ! -x "$BUILD_DIR/bin/vhdx_bench" ]; then
  echo "no vhdx_bench in $BUILD_DIR: is libbenchmark-dev installed (scripts/install-deps.sh)?" >&2
  exit 1
fi
"$BUILD_DIR/bin/vhdx_bench" "$@"
"$BUILD_DIR/bin/change_query_bench" "$@"
