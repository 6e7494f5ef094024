#!/usr/bin/env bash
# Prints the instructions of one walk over a 20-node graph beside its budget and beside what a plain
# implementation takes. Fails when a budget is exceeded.
#
#   scripts/count_instructions.sh [path of bench_structural_key]
#
# Method: callgrind counts the instructions of N and of 2N repetitions; the difference divided by N
# is one repetition without what the program does besides. The counts repeat exactly.
set -euo pipefail

repository=$(cd "$(dirname "$0")/.." && pwd)
program=${1:-$repository/build/release/bin/bench_structural_key}
repetitions=500

if ! command -v valgrind >/dev/null; then
  echo "valgrind is missing: install the package valgrind" >&2
  exit 2
fi
if [[ ! -x $program ]]; then
  echo "$program is missing: cmake --build --preset release --target bench_structural_key" >&2
  exit 2
fi

instructions_of() {  # case, repetitions
  valgrind --tool=callgrind --callgrind-out-file=/dev/null "$program" --case "$1" "$2" 2>&1 |
    sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
}

over_budget=0
printf '%-16s %14s %10s %10s\n' case instructions budget plain
while read -r name budget plain; do
  once=$(instructions_of "$name" "$repetitions")
  twice=$(instructions_of "$name" $((2 * repetitions)))
  if [[ -z $once || -z $twice ]]; then
    echo "$name could not be counted: $program --case $name 1 shows why" >&2
    exit 2
  fi
  count=$(((twice - once) / repetitions))
  mark=""
  if ((count > budget)); then
    mark=" over budget"
    over_budget=1
  fi
  printf '%-16s %14d %10d %10d%s\n' "$name" "$count" "$budget" "$plain" "$mark"
done <<'TABLE'
plain_copy 10000 40000
deep_copy 10000 40000
structural_key 6000 22000
canonical_text 18000 58000
TABLE
exit "$over_budget"
