#!/usr/bin/env bash
# The nightly helper end to end, with the test builds of scanreport-nightly
# and of the program (both write under the test output root and take
# today from SCANREPORT_TEST_TODAY). Each layout of `layouts` is built
# from the sample log, and the reports the helper writes from it are
# compared, file by file, with the program's own from the log never
# rotated. Then: a day rotated away, a catch-up, a run killed mid-day, a
# long line inside a day, the lock, the log path, a foreign day directory.
#   nightly_test.sh HELPER NIGHTLY PROGRAM ROOT WORK
set -euo pipefail
helper=$1 nightly=$2 program=$3 root=${4%/} work=$5
here=$(cd "$(dirname "$0")" && pwd)
sample=$here/../data/sample/scan.log
case $work in */nightly-work) ;; *) echo "refusing to empty $work" >&2 && exit 2 ;; esac
umask 022
rm -rf "$work" && mkdir -p "$work"
export SCANREPORT_NIGHTLY=$nightly SCANREPORT_DEFAULTS=$work/no-defaults
export SCANREPORT_STATE_DIR=$work/state SCANREPORT_TEST_TODAY=20240308 TZ=UTC
passed=0 failed=0
check() { if eval "$2"; then ((++passed)); else ((++failed)) && echo "FAIL: $1" >&2; fi; } # name, test

fresh_root() { rm -rf "$root" && mkdir -p "$root/traffic" "$root/range"; }
fresh_state() { rm -rf "$work/state"; }
# run LOG ARGS...: the helper's status, and its output in $work/out, err.
run() {
  local status=0
  SCANREPORT_LOG=$1 "$helper" "${@:2}" >"$work/out" 2>"$work/err" || status=$?
  return $status
}
same_as() { diff -r "$1" "$root/traffic" >"$work/diff" 2>&1; } # reference tree

# The reference: the program's reports of each day from the whole log.
reference() { # LOG DIR
  fresh_root
  for day in 20240304 20240305 20240306 20240307; do
    mkdir "$root/traffic/$day"
    "$program" "$1" $day && "$program" Q "$1" $day
  done
  mv "$root/traffic" "$2"
}
reference "$sample" "$work/reference"

# build LAYOUT-FILES... into $work/log, oldest first by modification time.
build() {
  rm -rf "$work/log" && mkdir "$work/log"
  local part name range time=1700000000
  for part in "$@"; do
    name=${part%%=*} range=${part#*=}
    local file=$work/log/$name
    if [[ -n $range ]]; then
      range=${range/-/,}
      sed -n "${range%!}p" "$sample" >"$file.plain"
      [[ $range == *! ]] && truncate -s -1 "$file.plain"
    else
      : >"$file.plain"
    fi
    case $name in
    *.gz) gzip -c "$file.plain" >"$file" ;;
    *.xz) xz -c "$file.plain" >"$file" ;;
    *.zst) zstd -qc "$file.plain" >"$file" ;;
    *.bz2) bzip2 -c "$file.plain" >"$file" ;;
    *) cp "$file.plain" "$file" ;;
    esac
    rm "$file.plain"
    touch -d "@$((time += 3600))" "$file"
  done
}

# Layouts of the sample log, then of each log that a `log FILE` line names.
log=$sample ref=$work/reference
while read -r name files; do
  [[ -z $name || $name == \#* ]] && continue
  if [[ $name == log ]]; then
    log=$here/$files ref=$work/reference-$files
    reference "$log" "$ref"
    continue
  fi
  sample=$log build $files
  fresh_root && fresh_state
  check "$name: exit status 0" 'run "$work/log/scan.log" 20240304 20240307'
  check "$name: one line per day" '[[ $(grep -c "^scanreport-daily: reports of 2024030[4-7] written from" "$work/out") == 4 && ! -s $work/err ]]'
  check "$name: every report as from the log never rotated" \
    'same_as "$ref"'
done <"$here/layouts"
build scan.log.3.gz=1-38 scan.log.2.gz=39-95 scan.log.1=96-141 scan.log=142-174
check "the journal line says what was read" \
  'run "$work/log/scan.log" 20240306 && grep -qx "scanreport-daily: reports of 20240306 written from scan.log.2.gz, scan.log.1: 46 lines of the day, 7 infected" "$work/out"'

check "a link to the log finds the rotated files beside the log" \
  'ln -s "$work/log/scan.log" "$work/link.log" && run "$work/link.log" 20240306 && grep -q "from scan.log.2.gz, scan.log.1:" "$work/out"'

# A day rotated away: nothing written, one line, failure.
rm "$work/log/scan.log.3.gz"
fresh_root && fresh_state
check "a day rotated away fails" '! run "$work/log/scan.log" 20240304'
check "and says so in one line, writing nothing" \
  '[[ $(cat "$work/err") == "scanreport-daily: 20240304 is gone: the oldest line the logs still hold is of 20240305; nothing written for it" && -z $(ls "$root/traffic") ]]'

# Three missed days made up by the next run, which reads the state.
build scan.log.3.gz=1-38 scan.log.2.gz=39-95 scan.log.1=96-141 scan.log=142-174
fresh_root && fresh_state && mkdir -p "$work/state"
printf 'last_day=20240303\nlast_success_end=1709294400\nlines_left_out=0\n' >"$work/state/state"
check "a catch-up after three missed days" \
  'SCANREPORT_TEST_TODAY=20240307 run "$work/log/scan.log" && [[ $(wc -l <"$work/out") == 3 ]]'
check "makes them as from the log never rotated" \
  'mkdir "$root/traffic/20240307" && cp -a "$work/reference/20240307/." "$root/traffic/20240307" && same_as "$work/reference"'
check "and records the last day and the end of the run" \
  '[[ $(cat "$work/state/state") == $'"'"'last_day=20240306\nlast_success_end=1709812800\nlines_left_out=0'"'"' ]]'
check "the next run finds nothing due" \
  'SCANREPORT_TEST_TODAY=20240307 run "$work/log/scan.log" && grep -q "nothing is due" "$work/out"'

# A machine off for long: the days beyond 31 are skipped, with one line.
printf 'last_day=20231231\n' >"$work/state/state"
run "$work/log/scan.log" || true
check "a catch-up of more than 31 days says what it skipped" \
  'grep -qx "scanreport-daily: skipped 20240101 to 20240205: more than 31 days behind; make them by hand with scanreport-daily 20240101 20240205" "$work/out"'
check "and settles the days it made" 'grep -qx last_day=20240307 "$work/state/state"'

# A run killed in the middle of a day leaves it half-written and the state
# before it; the next run makes that day again, whole.
fresh_root && fresh_state && mkdir -p "$work/state" "$root/traffic/20240306"
printf 'last_day=20240305\n' >"$work/state/state"
head -c 100 "$work/reference/20240306/report.txt" >"$root/traffic/20240306/report.txt"
: >"$root/traffic/20240306/report.php"
check "a day cut off by a killed run is made again" \
  'SCANREPORT_TEST_TODAY=20240307 run "$work/log/scan.log" && diff -r "$work/reference/20240306" "$root/traffic/20240306"'

# A line longer than the reader's buffer inside a day: the reports are the
# program's, and the helper says where they stop and what they leave out.
long=$work/long.log
{ sed -n 1,110p "$sample"; printf 'ODS01,,06-03-2024,,13:00:00,,fs01,,192.168.1.10,,CLEAN,,/%03000d\n' 0; sed -n '111,$p' "$sample"; } >"$long"
reference "$long" "$work/reference-long"
sample=$long build scan.log.2.gz=1-95 scan.log.1=96-142 scan.log=143-175
fresh_root && fresh_state
check "a day cut at a long line fails" '! run "$work/log/scan.log" 20240306 20240307'
check "its reports are the program's" 'diff -r "$work/reference-long/20240306" "$root/traffic/20240306"'
check "the next day is whole: the long line is no part of it" \
  'diff -r "$work/reference/20240307" "$root/traffic/20240307"'
check "and the journal says where and how many lines are left out" \
  '[[ $(cat "$work/err") == "scanreport-daily: reports of 20240306 are cut: line 16 of scan.log.1 is longer than 2047 bytes, and they leave out 32 of the day'"'"'s lines from there on" ]]'
check "the state keeps the count" 'grep -qx lines_left_out=32 "$work/state/state"'

# The lock is a root-only file; a run that cannot have it gives up in time.
exec 8>>"$work/state/lock" && flock 8
check "a held lock makes a run give up after its wait" \
  '! SCANREPORT_LOCK_WAIT=1 run "$work/log/scan.log" 20240305 && grep -q "giving up" "$work/err" && [[ ! -e $root/traffic/20240305 ]]'
exec 8>&-
check "the lock is root's alone" '[[ $(stat -c %a "$work/state/lock") == 600 ]]'

# A relative log path is refused, whatever it begins with.
fresh_root
check "a relative log path is refused" \
  '! (cd "$work/log" && run Qscan.log 20240306) && grep -q "not an absolute path" "$work/err" && [[ -z $(ls "$root/traffic") ]]'

# A day directory that someone else made is never written into.
mkdir "$root/traffic/20240306" && chown 65534 "$root/traffic/20240306"
check "a foreign day directory gets nothing" \
  '! run "$work/log/scan.log" 20240306 && grep -q "not root" "$work/err" && [[ -z $(ls "$root/traffic/20240306") ]]'
check "the helper makes the day directory root's, mode 0755" \
  'run "$work/log/scan.log" 20240305 && [[ $(stat -c %U:%a "$root/traffic/20240305") == root:755 ]]'

[[ $failed != 0 ]] || rm -rf "$work" "$root"
echo "nightly helper: $passed passed, $failed failed"
((failed == 0))
