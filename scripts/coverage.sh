#!/usr/bin/env bash
# Measures how much of the library, the host services and the tools the test
# suite runs: builds with gcc --coverage (build-coverage/), runs the whole suite
# and prints line and function coverage for moxdev/, host/, tools/ and together.
#   scripts/coverage.sh [--html DIR]   also writes a browsable report to DIR
set -euo pipefail
cd "$(dirname "$0")/.."

html=
case "${1:-}" in
  --html) html=${2:?usage: $0 [--html DIR]} ;;
  "") ;;
  *) echo "usage: $0 [--html DIR]" >&2; exit 1 ;;
esac

scripts/deps.sh gcovr >&2

# -O0 keeps every source line its own counted line; the counts of a previous
# run are cleared so that the figures are this run's alone.
build_dir=$(scripts/build.sh --coverage | tail -n 1)
find "$build_dir" -name '*.gcda' -delete
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" >&2

# One pass over the counts into a trace file, then a summary per folder from it.
trace=$build_dir/coverage.json
gcovr --root . --object-directory "$build_dir" --filter 'moxdev/' --filter 'host/' --filter 'tools/' --json "$trace" >/dev/null
printf '%-10s %22s %22s\n' folder lines functions
for folder in moxdev host tools all; do
  filter=("--filter" "$folder/")
  [ "$folder" = all ] && filter=(--filter 'moxdev/' --filter 'host/' --filter 'tools/')
  gcovr --root . --add-tracefile "$trace" "${filter[@]}" --print-summary |
    awk -v folder="$folder/" '
      function figure() { gsub(/[()]/, ""); return sprintf("%s of %s  %6s", $3, $6, $2) }
      /^lines:/     { lines = figure() }
      /^functions:/ { functions = figure() }
      END { if (folder == "all/") folder = "together"; printf "%-10s %22s %22s\n", folder, lines, functions }'
done
if [ -n "$html" ]; then
  mkdir -p "$html"
  gcovr --root . --add-tracefile "$trace" --html-details "$html/index.html"
  echo "report: $html/index.html"
fi
