#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs vrig on a demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
vrig=build/release/bin/vrig
demo=$(mktemp -d)
trap 'rm -rf "$demo"' EXIT

echo
echo "== vrig info: the server's properties, read through the loaded module"
"$vrig" info

echo
echo "== a machine in $demo"
vmc=$("$vrig" vm create "$demo" "Demo machine")
echo "created $vmc"
"$vrig" vm set "$vmc" Memory 2147483648
"$vrig" vm set "$vmc" FirmwareType 1
"$vrig" vm show "$vmc"
vmc=$("$vrig" vm rename "$vmc" "Renamed machine")
echo "renamed to $vmc"
echo "found: $("$vrig" vm find "$demo" "Renamed machine")"
"$vrig" vm rm "$vmc"
echo "removed; left in $demo: $(ls -A "$demo" | wc -l) entries"

echo
echo "== a container in $demo"
"$vrig" vhdx create "$demo/disk.vhdx" 64M
printf 'Hello from vellumrig.%491s' '' | "$vrig" vhdx write "$demo/disk.vhdx" 2048
head -c 3M /dev/urandom > "$demo/random.raw"
"$vrig" vhdx import "$demo/random.raw" "$demo/imported.vhdx"
"$vrig" vhdx info "$demo/disk.vhdx"
echo "sector 2048 reads: $("$vrig" vhdx read "$demo/disk.vhdx" 2048 1 | tr -d '\0' | head -c 21)"
"$vrig" vhdx export "$demo/imported.vhdx" "$demo/exported.raw"
cmp "$demo/random.raw" "$demo/exported.raw" && echo "import then export gives the same bytes"
if command -v qemu-img > /dev/null; then
  qemu-img check -q -f vhdx "$demo/disk.vhdx" && echo "qemu-img check: no errors"
fi
"$vrig" vhdx rm "$demo/disk.vhdx"
"$vrig" vhdx rm "$demo/imported.vhdx"
echo "removed; left in $demo: $(ls "$demo")"
