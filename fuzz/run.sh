#!/usr/bin/env bash
# Builds the fuzz flavour and runs every fuzz target (or the ones named) for
# SECONDS each, then prints the executions and coverage of each run.
#   fuzz/run.sh SECONDS [TARGET...]
# Environment:
#   FUZZ_BUILD_DIR  the fuzz build (default build-fuzz)
#   FUZZ_WORK_DIR   corpora, logs and crash inputs (default FUZZ_BUILD_DIR/fuzz-work);
#                   a target's corpus grows from run to run
#   FUZZ_JOBS       targets run at the same time (default 1)
#   FUZZ_NO_BUILD   set to 1 to use the build as it is
# Exits non-zero when a target found something; its input is kept in
# FUZZ_WORK_DIR/artifacts/ and its log in FUZZ_WORK_DIR/logs/.
set -euo pipefail
cd "$(dirname "$0")/.."

[ $# -ge 1 ] && [[ $1 =~ ^[0-9]+$ ]] || { echo "usage: $0 SECONDS [TARGET...]" >&2; exit 1; }
seconds=$1
shift
all_targets=(device_database flash_database device_csv flash_csv part_list flash_sources user_flash_value
             user_parameter_file user_records grammar_image opn_image validating_parse sfdp documents)
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all_targets[@]}")

build=${FUZZ_BUILD_DIR:-build-fuzz}
if [ "${FUZZ_NO_BUILD:-0}" != 1 ]; then
  scripts/build.sh --fuzz --build-dir "$build" > /dev/null
fi
build=$(cd "$build" && pwd)
work=${FUZZ_WORK_DIR:-$build/fuzz-work}
mkdir -p "$work/logs" "$work/artifacts" "$work/corpus"
work=$(cd "$work" && pwd)
rm -rf "$work/seeds"
fuzz/make_seeds.sh "$build" "$work/seeds" > /dev/null

run_target() {
  local target=$1
  local binary=$build/fuzz/fuzz_$target
  [ -x "$binary" ] || { echo "no fuzz target $target" > "$work/logs/$target.log"; return 1; }
  mkdir -p "$work/corpus/$target" "$work/seeds/$target"
  # Output of the library is thrown away (-close_fd_mask); libFuzzer's own
  # lines and any sanitizer report still reach the log. One input may take at
  # most 10 s and no allocation may exceed 512 MiB.
  "$binary" -max_total_time="$seconds" -print_final_stats=1 -close_fd_mask=3 -timeout=10 \
    -rss_limit_mb=2048 -malloc_limit_mb=512 -artifact_prefix="$work/artifacts/$target-" \
    "$work/corpus/$target" "$work/seeds/$target" > "$work/logs/$target.log" 2>&1
}

jobs=${FUZZ_JOBS:-1}
pids=()
for target in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
    sleep 1
  done
  run_target "$target" &
  pids+=($!)
done
status=0
failed=()
for i in "${!pids[@]}"; do
  if ! wait "${pids[$i]}"; then
    status=1
    failed+=("${targets[$i]}")
  fi
done

printf '%-22s %12s %8s %8s %8s  %s\n' target executions exec/s cov ft result
for target in "${targets[@]}"; do
  log=$work/logs/$target.log
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  line=$(grep -E '^#[0-9]+' "$log" | grep -E ' cov: ' | tail -n 1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<< "$line")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<< "$line")
  result=ok
  [[ " ${failed[*]:-} " == *" $target "* ]] && result="FAILED (see $log)"
  printf '%-22s %12s %8s %8s %8s  %s\n' "$target" "${execs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "$result"
done
exit $status
