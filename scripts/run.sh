#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs vrig on a demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
vrig=build/release/bin/vrig

echo
echo "== vrig info: the server's properties, read through the loaded module"
"$vrig" info
