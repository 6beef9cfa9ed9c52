#!/usr/bin/env bash
# Runs the chassis simulator on short seeded scenarios and checks what it reports: a run with every
# kind of fault must pass and account for every corruption, a run with NOSYNC_MORVIK set must fail
# and say why, bad command lines must be refused at once on one line, a killed run's shared memory
# must be reclaimed by the next run on its machine, and no run may leave shared memory behind.
#
# Usage: run_sim_test.sh path/to/morvik_sim scratch-dir [sanitizers]
set -u
sim=$1
work=$2
# A sanitized build reserves more address space than any sensible limit.
sanitized=${3:-}
rm -rf "$work"
mkdir -p "$work"
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
# Each run gets its own simulated machine, so leftovers can be traced back to it.
vmid="simtest-$$"
# 20 minutes of chassis time with 10-second audits and every kind of fault.
scenario=(--duration 20m --audit-interval 10s --rate 100 --seed 7 --quiet)

echo "== every fault kind, and the same seed gives the same run"
"$sim" "${scenario[@]}" --vmid "$vmid-a" --json --csv "$work/t.csv" > "$work/a.json" 2> "$work/a.err" ||
  fail "the fault scenario exited $?: $(cat "$work/a.err")"
"$sim" "${scenario[@]}" --vmid "$vmid-b" --json > "$work/b.json" 2> "$work/b.err" || fail "the rerun failed"
python3 - "$work/a.json" "$work/b.json" "$work/t.csv" << 'EOF' || fail "the fault scenario's report is wrong"
import json, sys
a, b = (json.load(open(name)) for name in sys.argv[1:3])
c, f = a["corruptions"], a["freshness"]
assert a["checks"]["passed"] and a["at_rest"]["copies_equal"], a["checks"]
assert c["outstanding"] == a["audit"]["unexplained_repairs"] == 0, c
assert a["switchover"]["unaccounted_chunks"] == f["unaccounted_chunks"] == 0, a["switchover"]
assert c["injected"] >= 5 and c["found_by_audit"] + c["healed_otherwise"] == c["injected"], c
# Two corruptions in one chunk make one finding.
assert c["audit_findings"] < c["found_by_audit"], c
assert f["samples"] >= 720, f
assert 0 <= f["stale_chunks"]["p50"] <= f["stale_chunks"]["p99"] <= f["stale_chunks"]["max"] > 0, f
assert f["oldest_pending_age_s"]["max"] > 0 and f["stale_bytes"]["max"] > 0, f
texts = [e["text"] for e in a["events"]]
for prefix in ("standby silent ", "retry resync "):
    assert any(t.startswith(prefix) for t in texts), (prefix, texts)
whole = {"standby memory away", "standby memory back", "chunk size 16384", "switchover"}
assert whole <= set(texts), (whole, texts)
rows = open(sys.argv[3]).read().splitlines()
assert rows[0].startswith("time_s,pending_chunks,pending_peak_chunks,bytes_mirrored"), rows[0]
assert len(rows) > 100, len(rows)
for part, name in [("corruptions", "injected"), ("corruptions", "found_by_audit"),
                   ("corruptions", "audit_findings"), ("run", "passes"),
                   ("workload", "operations"), ("mirror", "bytes_mirrored")]:
    assert a[part][name] == b[part][name], "a rerun changed " + name
assert a["events"] == b["events"], "a rerun changed the events"
EOF

echo "== resyncs that do nothing must fail the run"
NOSYNC_MORVIK= "$sim" "${scenario[@]}" --vmid "$vmid-c" > "$work/c.txt" 2>&1
rc=$?
[ $rc -eq 1 ] || fail "the NOSYNC scenario exited $rc, want 1"
grep -q "^  - the audit's repair left the corruption it found in place" "$work/c.txt" ||
  fail "the NOSYNC scenario does not say that the audit's repairs failed"
grep -q "^Checks: FAILED" "$work/c.txt" || fail "the report does not say FAILED"
grep -q "note: NOSYNC_MORVIK is set" "$work/c.txt" || fail "the report does not name the cause"

echo "== bad command lines: exit 2 at once, in bounded memory, one line naming the option"
# The words of a command line, then what its message must name.
while IFS='|' read -r args named; do
  read -ra words <<< "$args"
  (
    [ -n "$sanitized" ] || ulimit -v 1000000
    exec timeout 10 "$sim" "${words[@]}"
  ) > "$work/bad.out" 2> "$work/bad.err"
  rc=$?
  [ $rc -eq 2 ] || fail "'$args' exited $rc, want 2"
  [ ! -s "$work/bad.out" ] || fail "'$args' wrote to standard output"
  [ "$(wc -l < "$work/bad.err")" -eq 1 ] && grep -qF -- "$named" "$work/bad.err" ||
    fail "'$args' did not name '$named' on one line: $(cat "$work/bad.err")"
done << 'TABLE'
--duration 1e-9 --faults none|--duration '1e-9': want a time from 1.0 s
--duration 1e300|--duration
--duration 100000h --rate 0|--duration
--duration 10m|at least 15m00s for the default faults
--switchover-at 2h|--switchover-at
--audit-interval 1e300|--audit-interval '1e300'
--duration 2h --audit-interval 0.5s|at most 10000 audit ticks
--mix small=1e308,table=1e308,set=1e308,copy=1e308|--mix small '1e308'
--mix small=0,table=0,set=0,copy=0|--mix
--mix huge=1|--mix
--seed 0x10|--seed
--seed 18446744073709551616|--seed
--rate -1|--rate
--rate nan|--rate
--rate 100000 --duration 24h|at most 100000000 operations
--locality 1.5|--locality
--small-max 12abc|--small-max
--corruptions 5000|--corruptions
--sample 1h|720 to 100000 samples
--feature odd:1000|--feature odd
--feature a:64K --feature a:64K|--feature 'a'
--feature a:1G --feature b:1G|--feature
--chunk-sizes 3000|--chunk-sizes
--feature small:64K --chunk-sizes 4096,131072|--chunk-sizes
--fault corrupt@1m,|--fault 'corrupt@1m,'
--fault leak@5m|--fault
--fault corrupt@5m,set=1|--fault
--fault corrupt@5m,feature=nope|--fault
--fault away@55m,for=10m|--fault
--fault silent@2h|--fault
--csv /tmp|--csv '/tmp'
--plot /tmp|--plot '/tmp'
--csv /nonexistent/t.csv|--csv
--vmid|--vmid
--json=1|json
--bogus|--bogus
extra|extra
TABLE
SIMULATION_VMID="two words" "$sim" > /dev/null 2> "$work/bad.err"
[ $? -eq 2 ] && grep -q "SIMULATION_VMID 'two words'" "$work/bad.err" ||
  fail "a bad SIMULATION_VMID is not refused: $(cat "$work/bad.err")"
"$sim" --help > "$work/help.txt" || fail "--help failed"
for option in --duration --switchover-at --real-time --seed --feature --chunk-sizes --rate --mix \
  --small-max --locality --audit-interval --faults --corruptions --fault --nosync --json --csv \
  --plot --sample --quiet --vmid; do
  grep -q -- "$option" "$work/help.txt" || fail "--help does not explain $option"
done

echo "== a killed run's regions are reclaimed; a live run's machine is refused"
"$sim" --real-time --duration 1h --faults none --quiet --vmid "$vmid-k" > /dev/null 2>&1 &
runner=$!
for _ in $(seq 50); do
  [ -e "/dev/shm/ostra.$vmid-k.MorvikLocal" ] && break
  sleep 0.1
done
"$sim" --duration 1m --faults none --vmid "$vmid-k" > /dev/null 2> "$work/k.err"
rc=$?
[ $rc -eq 3 ] && grep -q "process $runner (morvik_sim) holds its region" "$work/k.err" ||
  fail "a machine in use was not refused naming its process (exit $rc): $(cat "$work/k.err")"
kill -KILL $runner
wait $runner 2> /dev/null
[ -e "/dev/shm/ostra.$vmid-k.MorvikLocal" ] || fail "the killed run left no regions to reclaim"
"$sim" --duration 1m --faults none --quiet --vmid "$vmid-k" > /dev/null 2> "$work/k.err" ||
  fail "the killed run's machine was not reclaimed: $(cat "$work/k.err")"

left=$(ls /dev/shm 2> /dev/null | grep -F "ostra.$vmid" || true)
[ -z "$left" ] || fail "shared memory left behind: $left"
[ $failures -eq 0 ] || { echo "$failures check(s) failed" && exit 1; }
echo "all simulator checks passed"
