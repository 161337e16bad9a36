#!/usr/bin/env bash
# The nightly helper run end to end into the test output root with the test
# build of the program. What it leaves, with a range report, hand-written
# summaries and planted files, is what console_test.mjs shows.
#   daily_test.sh HELPER PROGRAM ROOT
# shellcheck disable=SC2016,SC2034,SC2015  # check() evals its test text
set -euo pipefail
helper=$1 program=$2 root=$3
data=$(cd "$(dirname "$0")/data" && pwd)
case $root in */browser/output-root/) ;; *) echo "refusing to empty $root" >&2 && exit 2 ;; esac
outside=${root%/}-outside
rm -rf "$root" "$outside" && mkdir -p "$root/traffic" "$root/range" "$outside"
export SCANREPORT_DEFAULTS=$outside/default SCANREPORT_PROGRAM=$program SCANREPORT_ROOT=$root
passed=0 failed=0
check() { if eval "$2"; then ((++passed)); else ((++failed)) && echo "FAIL: $1" >&2; fi; } # name, test

echo 'SCANREPORT_LOG=' >"$SCANREPORT_DEFAULTS"
said=$("$helper" 20240301 2>&1)
check "without a log it says so in one line and writes nothing" \
  '[[ $said == *"no scan log set"* && $(wc -l <<<"$said") == 1 && -z $(ls "$root/traffic") ]]'
echo "SCANREPORT_LOG=$data/hostile.log" >"$SCANREPORT_DEFAULTS"
for bad in 2024030 20240230 29990101 "20240302 20240301" "1 2 3"; do
  check "refuses '$bad'" '! "$helper" $bad 2>/dev/null'
done
mkdir "$outside/day" && ln -s "$outside/day" "$root/traffic/20240303"
check "refuses a day directory that is a link" \
  '! "$helper" 20240303 2>/dev/null && [[ -z $(ls "$outside/day") ]]'
rm "$root/traffic/20240303"

# A run by hand waits while another run holds the lock.
exec 9<"$root/traffic"
flock 9
"$helper" 20240301 20240302 >"$outside/run.out" 2>"$outside/run.err" &
for _ in {1..100}; do grep -q waiting "$outside/run.err" && break || sleep 0.1; done
check "a second run waits for the lock" \
  'grep -q waiting "$outside/run.err" && [[ ! -e $root/traffic/20240301 ]]'
flock -u 9 && exec 9<&-
check "and then runs" 'wait $! && [[ $(wc -l <"$outside/run.out") == 2 ]]'
files="quarantine.htm report.php report.txt summary.htm summary.txt"
check "both days have their reports" '[[ $(cd "$root/traffic" && ls 20240301 20240302 | xargs) == "20240301: $files 20240302: $files" ]]'

# The rest of the tree the console test shows.
"$program" "$data/hostile.log" 20240301 20240303
for file in "$data"/summaries/*.txt; do
  day=$(basename "$file" .txt)
  mkdir "$root/traffic/$day" && cp "$file" "$root/traffic/$day/summary.txt"
done
printf '[Summary]\nclean=1000\n' >"$outside/summary.txt"
mkdir "$root/traffic/20240314" "$root/traffic/20240315" && mkfifo "$root/traffic/20240314/summary.txt"
ln -s "$outside/summary.txt" "$root/traffic/20240315/summary.txt"
planted=$root/traffic/20240228
mkdir -p "$planted/linked" "$planted/fifo"
echo "<tr><td>OUTSIDE-ROOT</td></tr>" >"$outside/report.txt"
ln -s "$outside/report.txt" "$planted/linked/report.txt"
mkfifo "$planted/fifo/report.txt" "$planted/summary.htm"
printf '<?php include("%s") ?>\n' "$outside/report.txt" "$planted/linked/report.txt" \
  "$planted/fifo/report.txt" "${root}traffic/20240301/../../../output-root-outside/report.txt" >"$planted/report.php"
printf '%s\n' '<table>' '<tr>' "<td align='left'>cut short" 'a line <b id=x> of its own' >"$planted/quarantine.htm"

echo "daily helper: $passed passed, $failed failed"
((failed == 0))
