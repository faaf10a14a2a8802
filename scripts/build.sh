#!/usr/bin/env bash
# Configures and builds one flavour of the project.
#   scripts/build.sh [--sanitize] [--clang] [--werror] [--build-dir DIR]
# Prints the build directory on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build
options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
while [ $# -gt 0 ]; do
  case "$1" in
    --sanitize) options+=(-DMOXDEV_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug); build_dir=build-asan ;;
    --clang) options+=(-DCMAKE_CXX_COMPILER=clang++-14); build_dir=build-clang ;;
    --werror) options+=(-DMOXDEV_WERROR=ON) ;;
    --build-dir) build_dir=$2; shift ;;
    *) echo "usage: $0 [--sanitize] [--clang] [--werror] [--build-dir DIR]" >&2; exit 1 ;;
  esac
  shift
done

scripts/deps.sh >&2
cmake -S . -B "$build_dir" -G Ninja "${options[@]}" >&2
cmake --build "$build_dir" -j "$(nproc)" >&2
echo "$build_dir"
