#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when missing.
# Run as root on Debian 12; does nothing when everything is there.
set -euo pipefail

packages=(
  g++            # compiler
  cmake          # build
  ninja-build    # build
  libicu-dev     # Processor::String and text handling
  libgtest-dev   # tests
  libbenchmark-dev  # bench/: the engine benchmark (scripts/bench.sh)
  libsqlite3-dev # the host library's file tracker keeps its records in SQLite
  libsystemd-dev # the logging library writes to the systemd journal
  pkg-config     # finds libsystemd for the build
  libzip-dev     # reading the resource archive (loaded at run time; headers at build)
  clang          # fuzz harnesses
  libclang-rt-14-dev  # libFuzzer and the sanitizer runtimes for clang
  qemu-utils     # qemu-img, qemu-io: VHDX files to test against, run as black boxes
  libvhdi-utils  # vhdiinfo: a second opinion on VHDX headers in the tests
  jq             # the tests read vrig's --json back with a parser of its own
  dpkg-dev       # cpack -G DEB finds the package's dependencies with dpkg-shlibdeps
  nbdkit         # serves containers over NBD through tools/nbdkit
  nbdkit-plugin-dev  # the plugin's header
  libnbd-bin     # nbdinfo: the tests read the served extents with it
  python3        # scripts/mutate.py: what a test suite catches
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
