#!/usr/bin/env bash
# Builds the fuzz targets and lets each loose on its kind of text: no crash, no leak, a clear error.
#
#   scripts/run_fuzzers.sh [SECONDS [TARGET...]]
#
# Each target runs for SECONDS, 30 unless told, as many at once as there are processors, and begins
# with the texts of tests/fuzz/corpus and with what earlier runs found, under build/fuzz/found. An
# input that breaks a target is left in build/fuzz/failures; "build/asan/bin/fuzz_NAME FILE" runs it
# again.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
seconds=${1:-30}
shift || true
targets=("$@")
if ((${#targets[@]} == 0)); then
  for source in tests/fuzz/fuzz_*.cpp; do
    name=${source##*/fuzz_}
    targets+=("${name%.cpp}")
  done
fi

cmake --preset asan --log-level=WARNING
cmake --build --preset asan --target "${targets[@]/#/fuzz_}"
mkdir -p build/fuzz/failures

fuzz() {  # target
  local found=build/fuzz/found/$1 log=build/fuzz/$1.log
  mkdir -p "$found"
  if build/asan/bin/fuzz_"$1" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="build/fuzz/failures/$1-" "$found" "tests/fuzz/corpus/$1" >"$log" 2>&1; then
    echo "$1: $(grep -o 'Done [0-9]* runs' "$log"), nothing found"
    return 0
  fi
  echo "$1: broken, see below and build/fuzz/failures" >&2
  tail -n 60 "$log" >&2
  return 1
}
export -f fuzz
export seconds

printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} bash -c 'set -euo pipefail; fuzz {}'
