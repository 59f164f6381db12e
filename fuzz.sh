#!/usr/bin/env bash
# Builds the fuzz targets and runs them all, as many side by side as there are cores, for MINUTES altogether.
#   ./fuzz.sh MINUTES          under the address and undefined-behaviour sanitizers
#   ./fuzz.sh MINUTES --plain  without them: several times the runs, which the sanitizers can then look at
# Inputs that reach more are kept in build/corpus/TARGET, and those with a finding in build/findings. A line a target;
# the status is that of a failure when something was found.
set -euo pipefail
cd "$(dirname "$0")"
. ./setup.sh
packages+=(clang)
preset=fuzz
[ "${2:-}" != --plain ] || preset=fuzz-plain
if ! [[ "${1:-}" =~ ^[1-9][0-9]*$ ]] || [ $# -gt 2 ] || { [ $# -eq 2 ] && [ "$preset" = fuzz ]; }; then
  echo "usage: ./fuzz.sh MINUTES [--plain]" >&2
  exit 2
fi
build "$preset" ztl_fuzz
mkdir -p build/corpus build/findings

# Runs one target and prints its line:  run_target TREE SECONDS TARGET
run_target() {
  local name=$3 corpus=build/corpus/$3 log=build/findings/$3.log new failed=
  new=$(mktemp -d "build/corpus/.$name.XXXXXX")
  mkdir -p "$corpus"
  "$1/fuzz/$name" "$new" "$corpus" -max_total_time="$2" -max_len=512 -timeout=20 -dict=fuzz/words.dict \
    -artifact_prefix="build/findings/$name-" -print_final_stats=1 >"$log" 2>&1 || failed=1
  # What reaches nothing more than the corpus is left out.
  "$1/fuzz/$name" -merge=1 "$corpus" "$new" >"$log.merge" 2>&1 || true
  rm -rf "$new"
  last() { sed -n "s|.*$1\([^ ]*\).*|\1|p" "$log" | tail -n 1; }
  printf '%-25s %11s runs %8s/s  coverage %5s  %s\n' "$name" "$(last 'number_of_executed_units: *')" \
    "$(last 'average_exec_per_sec: *')" "$(last ' cov: ')" \
    "${failed:+FINDING: $(last 'Test unit written to ') (see $log)}"
  [ -z "$failed" ]
}
export -f run_target

targets=(fuzz/*_fuzz.cpp)
rounds=$(((${#targets[@]} + $(nproc) - 1) / $(nproc)))
seconds=$(($1 * 60 / rounds))
printf '%s\n' "${targets[@]}" | sed 's|.*/\(.*\)\.cpp|\1|' |
  xargs -P "$(nproc)" -I {} bash -euo pipefail -c 'run_target "$@"' run_target "build/$preset" "$seconds" {}
