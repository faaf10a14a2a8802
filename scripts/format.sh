#!/usr/bin/env bash
# Formats every C++ source of the project with clang-format (.clang-format),
# or with --check only reports the files that are not formatted and fails.
#   scripts/format.sh [--check]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh clang-format-14 >&2
mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.inc')
if [ "${1:-}" = --check ]; then
  clang-format-14 --dry-run --Werror "${files[@]}"
  echo "formatted: ${#files[@]} files"
else
  clang-format-14 -i "${files[@]}"
fi
