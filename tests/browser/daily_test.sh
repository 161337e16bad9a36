#!/usr/bin/env bash
# The nightly helper run end to end into the test output root with the test
# build of the program. What it leaves, with a range report, hand-written
# summaries and planted files, is what console_test.mjs shows.
#   daily_test.sh HELPER NIGHTLY PROGRAM ROOT GEN_SCANLOG
# shellcheck disable=SC2016,SC2034,SC2015  # check() evals its test text
set -euo pipefail
helper=$1 nightly=$2 program=$3 root=$4 gen_scanlog=$5
data=$(cd "$(dirname "$0")/data" && pwd)
case $root in */browser/output-root/) ;; *) echo "refusing to empty $root" >&2 && exit 2 ;; esac
outside=${root%/}-outside
rm -rf "$root" "$outside" && mkdir -p "$root/traffic" "$root/range" "$outside"
export SCANREPORT_DEFAULTS=$outside/default SCANREPORT_NIGHTLY=$nightly
export SCANREPORT_STATE_DIR=$outside/state
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
lock=$SCANREPORT_STATE_DIR/lock
mkdir -p "$SCANREPORT_STATE_DIR" && chmod 0755 "$SCANREPORT_STATE_DIR"
[[ -e $lock ]] || (umask 077 && : >"$lock")
exec 9<"$lock"
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

# A full scan's day of a million rows, from a generated log.
"$gen_scanlog" --days 1 --lines 1000000 --start 20240320 --seed 7 --output "$outside/big.log"
mkdir "$root/traffic/20240320" && "$program" "$outside/big.log" 20240320
# Days the console refuses: a pipe and a sparse 4 GiB file as report.php,
# a day directory of another user's, one its group may write, a future one.
mkdir "$root/traffic/20240318" "$root/traffic/20240319" "$root/traffic/20240321" \
  "$root/traffic/20240322" "$root/traffic/20991230"
mkfifo "$root/traffic/20240318/report.php" "$root/traffic/20240318/summary.htm"
truncate -s 4G "$root/traffic/20240319/report.php"
chown nobody "$root/traffic/20240321" && chmod g+w "$root/traffic/20240322"
cp "$data/summaries/20240310.txt" "$root/traffic/20991230/summary.txt"
# The race: a day directory and a link to a directory whose summary.htm
# links to /etc/passwd trade places while the console reads the day.
mkdir "$root/traffic/20240317" "$outside/swapped"
cp "$root/traffic/20240301/summary.htm" "$root/traffic/20240317/"
ln -s /etc/passwd "$outside/swapped/summary.htm"
ln -s "$outside/swapped" "$root/traffic/swapped"

echo "daily helper: $passed passed, $failed failed"
((failed == 0))
