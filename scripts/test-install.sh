#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and builds the README's host
# example against it twice, through pkg-config and through find_package;
# each build must run, make a machine with its disk, and load the module by
# its soname. The installed vrig must find the installed module by itself.
# The Debian package is made and looked into.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build/release}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" > /dev/null
pc=$(find "$prefix" -name vellumrig.pc)
libdir=$(dirname "$(dirname "$pc")")
# The example as the README shows it, so the two cannot drift apart.
sed -n '/<!-- host-example begin -->/,/<!-- host-example end -->/p' README.md |
  sed -e '1,2d' -e '$d' | sed '$d' > "$work/host.cc"
grep -q SafeOpenVirtualServer "$work/host.cc"

CXX=${CXX:-g++}
flags=(-std=c++20 -Wall -Wextra -Werror)
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$CXX" "${flags[@]}" "$work/host.cc" -o "$work/host-pkgconfig" $(pkg-config --cflags --libs vellumrig)

mkdir "$work/cmake"
cat > "$work/cmake/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(vellumrig $(sed -n 's/^project(vellumrig VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) REQUIRED)
add_executable(host ../host.cc)
target_compile_options(host PRIVATE -Wall -Wextra -Werror)
target_link_libraries(host PRIVATE vellumrig::host)
if(NOT EXISTS "\${vellumrig_MODULE}")
  message(FATAL_ERROR "no module at \${vellumrig_MODULE}")
endif()
CMAKE
cmake -S "$work/cmake" -B "$work/cmake/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build "$work/cmake/build" > /dev/null

for host in "$work/host-pkgconfig" "$work/cmake/build/host"; do
  folder=$work/vms-$(basename "$host")
  disk=$(LD_LIBRARY_PATH=$libdir "$host" "$folder" 2> "$work/host.log") || { cat "$work/host.log" >&2; exit 1; }
  [ "$(head -c 8 "$disk")" = vhdxfile ] || { echo "$host made no container: '$disk'" >&2; exit 1; }
  [ -f "$folder/Web/Web.vmc" ] || { echo "$host made no machine" >&2; exit 1; }
done

# Without the loader's help: the installed vrig finds the installed module.
env -u LD_LIBRARY_PATH -u VELLUMRIG_LIBRARY "$prefix/bin/vrig" info > /dev/null
env -u LD_LIBRARY_PATH "$prefix/bin/vrig" vhdx info "$disk" > /dev/null
# The installed plugin loads in nbdkit.
nbdkit "$(find "$prefix" -name nbdkit-vellumrig-plugin.so)" --dump-plugin | grep -q "^name=vellumrig"

# Older language modes are told what they lack instead of failing deep inside.
if echo '#include "vellumrig/vellumrig.h"' |
    "$CXX" -std=c++17 -fsyntax-only -x c++ - $(pkg-config --cflags vellumrig) 2> "$work/cxx17.log"; then
  echo "the headers compiled as C++17" >&2; exit 1
fi
grep -q "need C++20" "$work/cxx17.log"
# The Debian package: what it holds and what it needs (installing it would
# change the machine, so that is done by hand).
(cd "$build" && cpack -G DEB -B "$work/deb" > "$work/cpack.log" 2>&1) || { cat "$work/cpack.log" >&2; exit 1; }
deb=$(echo "$work"/deb/vellumrig_*.deb)
contents=$(dpkg-deb --contents "$deb")
grep -q "usr/lib/libvellumrig.so.0 -> " <<< "$contents"
grep -q "usr/lib/pkgconfig/vellumrig.pc" <<< "$contents"
grep -q "nbdkit/plugins/nbdkit-vellumrig-plugin.so" <<< "$contents"
dpkg-deb --field "$deb" Depends | grep -q "libicu.*libsqlite3.*libsystemd0"
echo "install: the host example builds and runs through pkg-config and find_package"
