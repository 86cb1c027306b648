#!/usr/bin/env bash
# Times whole-image conversion by vrig against qemu-img on one 1 GiB raw
# image of mixed content (random data in some stretches, zeros elsewhere):
# raw to VHDX, and VHDX back to raw from the same container, which vrig
# made. Checks that the outputs agree byte for byte, then prints the times
# and how vrig's compare. Builds the release variant first; BUILD_DIR picks
# another, already configured build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -n "${BUILD_DIR:-}" ]; then
  cmake --build "$BUILD_DIR" --target vrig
else
  BUILD_DIR=build/release
  scripts/build.sh release
fi
vrig=$PWD/$BUILD_DIR/bin/vrig
command -v qemu-img >/dev/null || { echo "qemu-img is missing (scripts/install-deps.sh installs it)" >&2; exit 1; }

work=$(mktemp -d /tmp/compare-convert-XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$work"

# 1 GiB: 48 random stretches of 1 to 16 MiB at fixed places, the rest zero.
truncate -s 1G image.raw
for i in $(seq 0 47); do
  mib=$(( (i * 2654435761) % 1008 ))
  len=$(( 1 + (i * 7) % 16 ))
  dd if=/dev/urandom of=image.raw bs=1M seek="$mib" count="$len" conv=notrunc status=none
done
# A stretch that starts and ends inside sectors and blocks.
dd if=/dev/urandom of=image.raw bs=1 seek=$(( 600 * 1048576 + 4097 )) count=9000 conv=notrunc status=none
sync

# The page cache stays warm, but what an earlier step left dirty is written
# out first, so that no step pays for another's writes.
seconds() {  # runs the command, prints its wall time in seconds
  local start end
  sync
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }'
}

t_vrig_import=$(seconds "$vrig" vhdx import image.raw vrig.vhdx)
t_qemu_import=$(seconds qemu-img convert -f raw -O vhdx image.raw qemu.vhdx)
t_vrig_export=$(seconds "$vrig" vhdx export vrig.vhdx vrig.raw)
t_qemu_export=$(seconds qemu-img convert -f vhdx -O raw vrig.vhdx qemu.raw)

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

status=0
same() {
  if cmp -s "$1" "$2"; then echo "identical: $1 $2"; else echo "DIFFERENT: $1 $2"; status=1; fi
}
same image.raw vrig.raw
same image.raw qemu.raw
# Each tool reads the other's container the same way.
qemu-img convert -f vhdx -O raw qemu.vhdx qemu-from-qemu.raw
same image.raw qemu-from-qemu.raw
"$vrig" vhdx export qemu.vhdx vrig-from-qemu.raw 2>/dev/null
same image.raw vrig-from-qemu.raw
qemu-img check -q -f vhdx vrig.vhdx && echo "qemu-img check: vrig.vhdx has no errors" || status=1

echo
printf '%-34s %8s %8s %14s\n' "1 GiB, mixed content" "vrig s" "qemu s" "vrig/qemu time"
printf '%-34s %8.3f %8.3f %14.2f\n' "raw -> vhdx (import)" "$t_vrig_import" "$t_qemu_import" \
  "$(ratio "$t_vrig_import" "$t_qemu_import")"
printf '%-34s %8.3f %8.3f %14.2f\n' "vhdx -> raw (export)" "$t_vrig_export" "$t_qemu_export" \
  "$(ratio "$t_vrig_export" "$t_qemu_export")"
printf 'container sizes: vrig %s bytes, qemu %s bytes\n' "$(stat -c %s vrig.vhdx)" "$(stat -c %s qemu.vhdx)"
exit $status
