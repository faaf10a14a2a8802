#!/usr/bin/env bash
# Builds (installing what is missing) and runs the whole test suite.
#   scripts/test.sh [--sanitize] [--clang] [--werror]
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=$(scripts/build.sh "$@" | tail -n 1)
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
