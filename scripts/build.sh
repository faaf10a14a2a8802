#!/usr/bin/env bash
# Configures and builds one flavour of the project.
#   scripts/build.sh [--sanitize] [--clang] [--werror] [--fuzz] [--tsan] [--coverage] [--build-dir DIR]
#   --fuzz  the libFuzzer targets (fuzz/), everything instrumented, with Clang
#   --tsan  everything built with ThreadSanitizer, of the tests only the threading test
#   --coverage  everything built unoptimised with gcc --coverage (scripts/coverage.sh)
# Prints the build directory on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build
options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
fuzz=
while [ $# -gt 0 ]; do
  case "$1" in
    --sanitize) options+=(-DMOXDEV_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug); build_dir=build-asan ;;
    --clang) options+=(-DCMAKE_CXX_COMPILER=clang++-14); build_dir=build-clang ;;
    --werror) options+=(-DMOXDEV_WERROR=ON) ;;
    --fuzz) options+=(-DMOXDEV_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++-14 -DMOXDEV_BUILD_TESTS=OFF -DMOXDEV_BUILD_BENCH=OFF)
            build_dir=build-fuzz; fuzz=1 ;;
    --tsan) options+=(-DMOXDEV_TSAN=ON -DMOXDEV_BUILD_TESTS=OFF -DMOXDEV_BUILD_BENCH=OFF); build_dir=build-tsan ;;
    --coverage) options+=(-DMOXDEV_COVERAGE=ON -DCMAKE_BUILD_TYPE=Debug -DMOXDEV_BUILD_BENCH=OFF)
                build_dir=build-coverage ;;
    --build-dir) build_dir=$2; shift ;;
    *) echo "usage: $0 [--sanitize] [--clang] [--werror] [--fuzz] [--tsan] [--coverage] [--build-dir DIR]" >&2; exit 1 ;;
  esac
  shift
done

# The fuzzer's run-time library comes with Clang's run-time package.
extras=()
[ -n "$fuzz" ] && extras=(libclang-rt-14-dev)
scripts/deps.sh "${extras[@]}" >&2
cmake -S . -B "$build_dir" -G Ninja "${options[@]}" >&2
cmake --build "$build_dir" -j "$(nproc)" >&2
echo "$build_dir"
