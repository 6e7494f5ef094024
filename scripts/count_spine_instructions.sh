#!/usr/bin/env bash
# Prints how many instructions the library itself spends on one candidate, from the composed batch
# to the recorded result, beside the budget and beside a plain baseline. Fails when a budget is
# exceeded.
#
#   scripts/count_spine_instructions.sh [path of bench_spine [last generation]]
#
# Method: callgrind counts the instructions between the starts of two generations of one run;
# divided by the candidates between them, they are the figure. Set-up, the end of the run and the
# making and freeing of the graphs lie outside. The counts repeat exactly. The last generation, 1000
# unless told, is where a candidate must cost what it costs at the start; counting there takes
# minutes.
set -euo pipefail

repository=$(cd "$(dirname "$0")/.." && pwd)
program=${1:-$repository/build/release/bin/bench_spine}
last=${2:-1000}

if ! command -v valgrind >/dev/null; then
  echo "valgrind is missing: install the package valgrind" >&2
  exit 2
fi
if [[ ! -x $program ]]; then
  echo "$program is missing: cmake --build --preset release --target bench_spine" >&2
  exit 2
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

instructions_of() {  # work, batch size, first generation, generation after the last
  rm -f "$folder"/out*
  valgrind --tool=callgrind --callgrind-out-file="$folder/out" --dump-before=reached_mark \
    --toggle-collect='*untimed_graphs*' --collect-atstart=yes \
    "$program" run "$1" "$2" "$(($4 + 1))" "$3" "$4" >"$folder/log" 2>&1 || {
    cat "$folder/log" >&2
    exit 2
  }
  # The dump at the second mark holds what was counted since the first.
  local total
  total=$(sed -n 's/^totals: //p' "$folder/out.2")
  echo $((total / ($2 * ($4 - $3))))
}

over_budget=0
row() {  # work, batch size, first generation, generation after the last, budget
  local count mark=""
  count=$(instructions_of "$1" "$2" "$3" "$4")
  if [[ -n $5 ]] && ((count > $5)); then
    mark=" over budget"
    over_budget=1
  fi
  printf '%-10s %6d %6d to %-6d %14d %10s%s\n' "$1" "$2" "$3" "$4" "$count" "${5:--}" "$mark"
  latest=$count
}

printf '%-10s %6s %-16s %14s %10s\n' candidates batch '   generations' instructions budget
for candidates in "failing 60000" "passing 90000"; do
  read -r work budget <<<"$candidates"
  row "$work" 64 3 23 "$budget"
  early=$latest
  row "$work" 64 "$((last - 20))" "$last" "$((early + early / 20))"  # Flat, within a twentieth.
  row "$work" 1024 3 6 "$((early * 2))"
done
row baseline 64 3 23 ""
row baseline 1024 3 6 ""
exit "$over_budget"
