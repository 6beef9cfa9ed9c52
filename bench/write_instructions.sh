#!/usr/bin/env bash
# Instructions of one mirrored doWrite, tracing off, for each size: callgrind counts a run of N
# writes and one of 2N, and the difference over N is the cost of one write without the set-up.
# Instruction counts repeat exactly for the same binary, whatever else the machine is doing.
#
# Usage: write_instructions.sh path/to/MorvikMemory_bench [N]
set -euo pipefail
bench=$1
writes=${2:-1000}
count() {
  local out
  out=$(mktemp)
  valgrind --tool=callgrind --callgrind-out-file="$out" "$bench" --writes "$1" "$2" >/dev/null 2>&1
  grep -m1 '^summary:' "$out" | awk '{print $2}'
  rm -f "$out"
}
for size in 64 1024 4000; do
  once=$(count "$size" "$writes")
  twice=$(count "$size" $((2 * writes)))
  echo "doWrite/$size: $(( (twice - once) / writes )) instructions per call (callgrind, tracing off)"
done
