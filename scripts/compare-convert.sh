#!/usr/bin/env bash
# Measures vrig's import, export and NBD serving against its peers, pair by
# pair in one run: each pair runs A B A B ... (RUNS times each, default 5),
# and the table gives both medians and their ratio. Both sides do the same
# work, a flush of what they wrote included:
#   import   vrig vhdx import      vs qemu-img convert -O vhdx, and cp
#   export   vrig vhdx export      vs qemu-img convert -O raw,  and cp
#   NBD      nbdkit + our plugin   vs qemu-nbd, 1 MiB reads in order (nbdcopy)
# on a fully allocated 1 GiB image, a mixed one (stretches of random data
# and zeros), and a sparse 20 GiB container with one written sector. cp
# copies the same bytes (the raw image, or the container) with
# --sparse=never, then syncs the copy. qemu-img convert does not flush a raw
# output, and a VHDX output only as its driver updates the headers, so its
# side ends with the same sync. Checks that the outputs agree byte
# for byte first. Builds the release variant; BUILD_DIR picks another,
# already configured build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -n "${BUILD_DIR:-}" ]; then
  cmake --build "$BUILD_DIR" --target vrig nbdkit-vellumrig-plugin
else
  BUILD_DIR=build/release
  scripts/build.sh release
fi
vrig=$PWD/$BUILD_DIR/bin/vrig
plugin=$PWD/$BUILD_DIR/lib/nbdkit-vellumrig-plugin.so
runs=${RUNS:-5}
for tool in qemu-img qemu-nbd nbdkit nbdcopy; do
  command -v "$tool" >/dev/null || { echo "$tool is missing (scripts/install-deps.sh installs it)" >&2; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/compare-convert-XXXXXX")
servers=()
cleanup() {
  for pid in "${servers[@]}"; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"

# The images. full: 1 GiB of random data. mixed: 48 random stretches of 1
# to 16 MiB at fixed places, the rest zero. sparse: 20 GiB, one sector.
head -c 1G /dev/urandom > full.raw
truncate -s 1G mixed.raw
for i in $(seq 0 47); do
  dd if=/dev/urandom of=mixed.raw bs=1M seek=$(( (i * 2654435761) % 1008 )) count=$(( 1 + (i * 7) % 16 )) \
    conv=notrunc status=none
done
truncate -s 20G sparse.raw
dd if=/dev/urandom of=sparse.raw bs=512 seek=123456 count=1 conv=notrunc status=none
for image in full mixed sparse; do "$vrig" vhdx import $image.raw $image.vhdx 2>/dev/null; done
sync

# Wall seconds of one command; the output of the step before is removed,
# and what it left dirty written out, first, so that no step pays for
# another's output. The page cache stays warm for both sides alike.
seconds() {
  local start end
  rm -f out.raw out.vhdx
  sync
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.4f", b - a }'
}
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# pair <label> <command A> <command B>: A is vrig's side. Each command is
# one string run by bash.
rows=()
pair() {
  local label=$1 a=$2 b=$3 ta=() tb=()
  for _ in $(seq "$runs"); do
    ta+=("$(seconds bash -c "$a")")
    tb+=("$(seconds bash -c "$b")")
  done
  local ma mb
  ma=$(printf '%s\n' "${ta[@]}" | median)
  mb=$(printf '%s\n' "${tb[@]}" | median)
  rows+=("$(printf '| %-44s | %8.3f | %8.3f | %5.2f |' "$label" "$ma" "$mb" "$(awk -v a="$ma" -v b="$mb" 'BEGIN { print a / b }')")")
}

status=0
same() { cmp -s "$1" "$2" || { echo "DIFFERENT: $1 $2" >&2; status=1; }; }

for image in full mixed sparse; do
  # Outputs agree before anything is timed.
  "$vrig" vhdx export $image.vhdx $image.vrig.raw 2>/dev/null
  qemu-img convert -f vhdx -O raw $image.vhdx $image.qemu.raw
  same $image.raw $image.vrig.raw
  same $image.raw $image.qemu.raw
  rm -f $image.vrig.raw $image.qemu.raw
  qemu-img check -q -f vhdx $image.vhdx || status=1

  pair "import $image: vrig / qemu-img convert" \
    "$vrig vhdx import $image.raw out.vhdx" \
    "qemu-img convert -f raw -O vhdx $image.raw out.vhdx && sync --data out.vhdx"

  pair "export $image: vrig / qemu-img convert" \
    "$vrig vhdx export $image.vhdx out.raw" \
    "qemu-img convert -f vhdx -O raw $image.vhdx out.raw && sync --data out.raw"
  # cp of a sparse 20 GiB image writes 20 GiB of zeros: the sparse export
  # has an absolute goal instead (its median against qemu-img above).
  [ $image = sparse ] && continue
  pair "export $image: vrig / cp --sparse=never + sync" \
    "$vrig vhdx export $image.vhdx out.raw" \
    "cp --sparse=never $image.raw out.raw && sync --data out.raw"
  pair "import $image: vrig / cp --sparse=never + sync" \
    "$vrig vhdx import $image.raw out.vhdx" \
    "cp --sparse=never $image.vhdx out.vhdx && sync --data out.vhdx"
done
rm -f out.raw out.vhdx

# NBD: the same dynamic container served both ways, read in order in 1 MiB
# requests, one at a time, to nowhere.
nbdkit --unix "$work/ours.sock" --pidfile "$work/ours.pid" "$plugin" file="$work/full.vhdx" readonly=true
# The plugin holds a read lock on the whole file, which qemu's own lock
# bytes would take for a writer; qemu-nbd only reads, so it goes without.
qemu-nbd --read-only --persistent --socket="$work/qemu.sock" --pid-file="$work/qemu.pid" \
  --image-opts "driver=vhdx,file.driver=file,file.filename=$work/full.vhdx,file.locking=off" &
for _ in $(seq 50); do [ -s "$work/ours.pid" ] && [ -s "$work/qemu.pid" ] && break; sleep 0.1; done
servers=("$(cat "$work/ours.pid")" "$(cat "$work/qemu.pid")")
copy="nbdcopy --connections=1 --requests=1 --request-size=1048576 --no-extents"
same <(nbdcopy "nbd+unix:///?socket=$work/ours.sock" - | sha256sum) <(sha256sum < full.raw)
pair "NBD 1 MiB reads in order: plugin / qemu-nbd" \
  "$copy 'nbd+unix:///?socket=$work/ours.sock' null:" \
  "$copy 'nbd+unix:///?socket=$work/qemu.sock' null:"

echo "Medians of $runs runs each, taken pair by pair; seconds; ratio = vrig / peer (below 1: vrig is faster)."
echo
echo "| pair                                         | vrig s   | peer s   | ratio |"
echo "|----------------------------------------------|----------|----------|-------|"
printf '%s\n' "${rows[@]}"
exit $status
