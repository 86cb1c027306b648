#!/usr/bin/env bash
# Configures and builds one variant into build/<variant>:
#   release   optimised with debug information (the default)
#   sanitize  AddressSanitizer and UndefinedBehaviorSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
variant=${1:-release}
case "$variant" in
  release)  flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELLUMRIG_SANITIZE=OFF) ;;
  sanitize) flags=(-DCMAKE_BUILD_TYPE=Debug -DVELLUMRIG_SANITIZE=ON) ;;
  *) echo "unknown variant: $variant (release or sanitize)" >&2; exit 2 ;;
esac
cmake -S . -B "build/$variant" -G Ninja "${flags[@]}" -DVELLUMRIG_WERROR=ON > /dev/null
cmake --build "build/$variant"
