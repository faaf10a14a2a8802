#!/usr/bin/env bash
# Builds the benchmark in Release and prints its one table of ratios.
#   bench/run.sh [--build-dir DIR] [Google Benchmark flags...]
# The build goes to standard error, so standard output is the table alone.
# Exit status: 0 every goal met, 3 a goal missed, other values a failure.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build-bench
if [ "${1:-}" = "--build-dir" ]; then
  build_dir=$2
  shift 2
fi

scripts/deps.sh >&2
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMOXDEV_BUILD_TESTS=OFF \
  -DMOXDEV_BUILD_BENCH=ON >&2
cmake --build "$build_dir" -j "$(nproc)" --target moxdev_bench >&2

# Debug output would be measured along with the queries.
exec env -u MOXDEV_ENABLE_GRAMMAR_DEBUG -u MOXDEV_DEBUG_LEVEL -u MOX_SUPPORT_EXT_SPI_DEV_DEBUG \
  "$build_dir/bin/moxdev_bench" "$@"
