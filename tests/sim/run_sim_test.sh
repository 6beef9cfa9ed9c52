#!/usr/bin/env bash
# Runs the chassis simulator on short seeded scenarios and checks what it reports: a run with every
# kind of fault must pass and account for every corruption, the same seed must give the same run,
# a run with NOSYNC_MORVIK set must fail and say why, bad options must be refused on one line, and
# no run may leave shared memory behind.
#
# Usage: run_sim_test.sh path/to/morvik_sim scratch-dir
set -u

sim=$1
work=$2
rm -rf "$work"
mkdir -p "$work"

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The value of a JSON member, from the report's one-member-per-line layout.
field() {
  sed -n "s/^ *\"$1\": \(.*\)$/\1/p" "$2" | sed 's/,$//' | head -n 1
}

expect_field() {
  local name=$1 want=$2 file=$3 got
  got=$(field "$name" "$file")
  [ "$got" = "$want" ] || fail "$file: $name is '$got', want '$want'"
}

valid_json() {
  if command -v python3 > /dev/null; then
    python3 -m json.tool "$1" > /dev/null || fail "$1 is not valid JSON"
  elif command -v jq > /dev/null; then
    jq . "$1" > /dev/null || fail "$1 is not valid JSON"
  fi
}

# Each run gets its own simulated machine, so leftovers can be traced back to it.
vmid_base="simtest-$$"
leftovers() {
  ls /dev/shm 2> /dev/null | grep -F "ostra.$vmid_base" || true
}

# A short run with every kind of fault: 20 minutes of chassis time with 10-second audits.
scenario=(--duration 20m --audit-interval 10s --rate 100 --seed 7 --quiet)

echo "== every fault kind"
"$sim" "${scenario[@]}" --vmid "$vmid_base-a" --json --csv "$work/timeline.csv" \
  > "$work/a.json" 2> "$work/a.err"
rc=$?
[ $rc -eq 0 ] || fail "the fault scenario exited $rc: $(cat "$work/a.err")"
valid_json "$work/a.json"
expect_field passed true "$work/a.json"
expect_field copies_equal true "$work/a.json"
expect_field outstanding 0 "$work/a.json"
expect_field unexplained_repairs 0 "$work/a.json"
expect_field unaccounted_chunks 0 "$work/a.json"
injected=$(field injected "$work/a.json")
found=$(field found_by_audit "$work/a.json")
otherwise=$(field healed_otherwise "$work/a.json")
findings=$(field audit_findings "$work/a.json")
[ "${injected:-0}" -ge 5 ] || fail "only '$injected' corruptions injected"
[ "${found:-0}" -ge 1 ] || fail "the audit found no corruption"
[ $((found + otherwise)) -eq "$injected" ] ||
  fail "found ($found) and healed otherwise ($otherwise) do not add up to injected ($injected)"
[ "${findings:-0}" -le "$found" ] || fail "more findings ($findings) than corruptions found ($found)"
for event in '"corrupt ' '"standby silent ' '"standby answers ' '"standby memory away"' \
  '"standby memory back"' '"chunk size 16384"' '"chunk size 4096"' '"retry resync ' '"switchover"'; do
  grep -qF "\"text\": $event" "$work/a.json" || fail "no event $event in the report"
done
for kind in standby_return chunk_change retry_resync audit_repair; do
  grep -q "\"kind\": \"$kind\"" "$work/a.json" || fail "no $kind resync in the report"
done
[ "$(field count "$work/a.json")" -gt 0 ] || fail "no doWrite latency figures"
head -n 1 "$work/timeline.csv" | grep -q '^time_s,pending_chunks,pending_peak_chunks,bytes_mirrored' ||
  fail "the timeline has no header"
[ "$(wc -l < "$work/timeline.csv")" -gt 100 ] || fail "the timeline has too few rows"

echo "== the same seed gives the same run"
"$sim" "${scenario[@]}" --vmid "$vmid_base-b" --json > "$work/b.json" 2>&1 ||
  fail "the repeated scenario failed"
strip() { grep -vE '"(vmid|wall_seconds|wall_s|drain_longest_wall_s|pending_peak_drain_wall_s|mean|min|p50|p99|max)":' "$1"; }
diff <(strip "$work/a.json") <(strip "$work/b.json") > "$work/ab.diff" ||
  fail "two runs of seed 7 differ: $(head -n 5 "$work/ab.diff")"

echo "== resyncs that do nothing must fail the run"
"$sim" "${scenario[@]}" --vmid "$vmid_base-c" --nosync --json > "$work/c.json" 2> "$work/c.err"
rc=$?
[ $rc -eq 1 ] || fail "the NOSYNC scenario exited $rc, want 1"
valid_json "$work/c.json"
expect_field passed false "$work/c.json"
grep -q "^morvik_sim: check failed: the audit's repair left the corruption it found in place" \
  "$work/c.err" || fail "the NOSYNC scenario does not say that the audit's repairs failed"
grep -q "NOSYNC_MORVIK is set" "$work/c.err" || fail "the NOSYNC scenario does not name the cause"
NOSYNC_MORVIK= "$sim" "${scenario[@]}" --vmid "$vmid_base-d" > "$work/d.txt" 2>&1
rc=$?
[ $rc -eq 1 ] || fail "NOSYNC_MORVIK from the environment: exited $rc, want 1"
grep -q "^Checks: FAILED" "$work/d.txt" || fail "the text report does not say FAILED"
grep -q "note: NOSYNC_MORVIK is set" "$work/d.txt" || fail "the text report does not name the cause"

echo "== bad options"
bad_cases=(
  "--bogus"
  "--duration"
  "--duration 5x"
  "--rate -3"
  "--mix small=1,huge=2"
  "--feature odd:1000"
  "--feature small:64K --chunk-sizes 4096,131072"
  "--chunk-sizes 3000"
  "--duration 10m"
  "--fault corrupt@5m,feature=nope"
  "--fault away@55m,for=10m"
  "--fault leak@5m"
  "--switchover-at 2h"
  "extra"
)
for args in "${bad_cases[@]}"; do
  # shellcheck disable=SC2086
  "$sim" $args > "$work/bad.out" 2> "$work/bad.err"
  rc=$?
  [ $rc -eq 2 ] || fail "'$args' exited $rc, want 2"
  [ ! -s "$work/bad.out" ] || fail "'$args' wrote to standard output"
  [ "$(wc -l < "$work/bad.err")" -eq 1 ] && grep -q '^morvik_sim: ' "$work/bad.err" ||
    fail "'$args' did not give one line: $(cat "$work/bad.err")"
done
grep -q "manifest refused" <("$sim" --feature odd:1000 2>&1) || fail "a bad manifest is not refused as one"
"$sim" --help > "$work/help.txt" || fail "--help failed"
for option in --duration --switchover-at --real-time --seed --feature --chunk-sizes --rate --mix \
  --small-max --locality --audit-interval --faults --corruptions --fault --nosync --json --csv \
  --plot --sample --quiet --vmid; do
  grep -q -- "$option" "$work/help.txt" || fail "--help does not explain $option"
done

echo "== plot"
if command -v gnuplot > /dev/null; then
  "$sim" --duration 15m --audit-interval 10s --quiet --vmid "$vmid_base-e" --plot "$work/t.png" \
    > /dev/null 2> "$work/e.err" || fail "the plot run failed: $(cat "$work/e.err")"
  [ "$(head -c 4 "$work/t.png" | tail -c 3)" = "PNG" ] || fail "the plot is not a PNG"
else
  echo "gnuplot is not installed; checking the error instead"
fi
PATH=/nonexistent "$sim" --plot "$work/u.png" > /dev/null 2> "$work/u.err"
rc=$?
[ $rc -eq 3 ] || fail "--plot without gnuplot exited $rc, want 3"
grep -q "needs gnuplot" "$work/u.err" || fail "--plot without gnuplot does not say so"

echo "== interrupted runs clean up"
"$sim" --real-time --duration 1h --quiet --vmid "$vmid_base-f" > "$work/f.txt" 2>&1 &
pid=$!
sleep 0.5
kill -INT $pid
wait $pid
rc=$?
[ $rc -eq 130 ] || fail "an interrupted run exited $rc, want 130"
grep -q "(interrupted)" "$work/f.txt" || fail "an interrupted run does not report it"

left=$(leftovers)
[ -z "$left" ] || fail "shared memory left behind: $left"

if [ $failures -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all simulator checks passed"
