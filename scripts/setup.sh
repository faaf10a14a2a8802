#!/usr/bin/env bash
# Fresh machine to working tool: installs what is missing, builds, and shows
# the device information database built from the shipped device table.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=$(scripts/build.sh "$@" | tail -n 1)
"$build_dir/bin/moxdev" device list
