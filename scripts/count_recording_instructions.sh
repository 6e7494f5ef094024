#!/usr/bin/env bash
# Prints how many instructions the library spends on recording one candidate, and on submitting it
# where it passes, by kind of candidate.
#
#   scripts/count_recording_instructions.sh [path of bench_recording]
#
# Method: callgrind counts the instructions of N and of 2N candidates, without those that make and
# free the records; the difference divided by N is one candidate. The counts repeat exactly.
set -euo pipefail

repository=$(cd "$(dirname "$0")/.." && pwd)
program=${1:-$repository/build/release/bin/bench_recording}
candidates=640

if ! command -v valgrind >/dev/null; then
  echo "valgrind is missing: install the package valgrind" >&2
  exit 2
fi
if [[ ! -x $program ]]; then
  echo "$program is missing: cmake --build --preset release --target bench_recording" >&2
  exit 2
fi

instructions_of() {  # kind, candidates
  valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect='*untimed_records*' \
    --collect-atstart=yes "$program" --case "$1" "$2" 2>&1 |
    sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
}

printf '%-24s %14s\n' candidates instructions
while read -r kind; do
  once=$(instructions_of "$kind" "$candidates")
  twice=$(instructions_of "$kind" $((2 * candidates)))
  if [[ -z $once || -z $twice ]]; then
    echo "$kind could not be counted: $program --case $kind 64 shows why" >&2
    exit 2
  fi
  printf '%-24s %14d\n' "$kind" $(((twice - once) / candidates))
done < <("$program" --list)
