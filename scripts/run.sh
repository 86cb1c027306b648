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
