#!/usr/bin/env bash
# Prints how many instructions the library itself spends on one candidate of a whole search with a
# host that does nothing: at generation 10, 100 and 1,000, for candidates that pass, that fail, that
# are near misses without a plan, and that are repaired.
#
#   scripts/count_search_instructions.sh [path of bench_search [last generation]]
#
# Method: as count_spine_instructions.sh has it, over five generations from each of the three on.
# Of the near misses every one is a peer of every other, so that theirs is the price of a batch of
# 64 squared.
set -euo pipefail

repository=$(cd "$(dirname "$0")/.." && pwd)
program=${1:-$repository/build/release/bin/bench_search}
last=${2:-1000}
batch=64
generations=5

if ! command -v valgrind >/dev/null; then
  echo "valgrind is missing: install the package valgrind" >&2
  exit 2
fi
if [[ ! -x $program ]]; then
  echo "$program is missing: cmake --build --preset release --target bench_search" >&2
  exit 2
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

instructions_of() {  # work, generation, candidates of a generation
  rm -f "$folder"/out*
  local end=$(($2 + generations))
  valgrind --tool=callgrind --callgrind-out-file="$folder/out" --dump-before=reached_mark \
    --toggle-collect='*untimed_graphs*' --collect-atstart=yes \
    "$program" run "$1" "$batch" "$((end + 1))" "$2" "$end" >"$folder/log" 2>&1 || {
    cat "$folder/log" >&2
    exit 2
  }
  local total
  total=$(sed -n 's/^totals: //p' "$folder/out.2")
  echo $((total / ($3 * generations)))
}

printf '%-10s %12s %14s\n' candidates generation instructions
for work in passing failing near repaired; do
  candidates=$batch
  [[ $work == repaired ]] && candidates=$((2 * batch))
  for generation in 10 100 "$last"; do
    printf '%-10s %12d %14d\n' "$work" "$generation" \
      "$(instructions_of "$work" "$generation" "$candidates")"
  done
done
