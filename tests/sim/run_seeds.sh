#!/usr/bin/env bash
# Runs the chassis simulator's default scenario for every seed from first to last, and fails, naming
# the seeds and what their checks said, when any run does not pass: a check that fails a healthy run
# is as grave as one that misses a loss.
#
# Usage: run_seeds.sh path/to/morvik_sim first last
set -u
sim=$1
first=$2
last=$3
failed=0
for seed in $(seq "$first" "$last"); do
  if ! report=$("$sim" --seed "$seed" --quiet 2>&1); then
    echo "seed $seed failed:"
    grep -E '^  - |^morvik_sim: ' <<< "$report"
    failed=$((failed + 1))
  fi
done
[ $failed -eq 0 ] || { echo "$failed of the seeds $first to $last failed" && exit 1; }
echo "seeds $first to $last passed"
