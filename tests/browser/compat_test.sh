#!/usr/bin/env bash
# Pages in the field show a report by including "report.php" with PHP.
# This runs PHP on generated pages and checks that they print what those
# pages expect: the twelve header lines, every row of each included
# "report.txt" (double slash and all) and "</table>". It also shows why the
# example page never includes them: PHP code in a file name is run.
#   compat_test.sh PROGRAM ROOT PHP
set -euo pipefail
program=$1 root=$2 php=$3
here=$(cd "$(dirname "$0")" && pwd)
"$here/generate.sh" "$program" "$root" "$here/data/compat.log" \
  20240305 20240307 20240305 20240307 20240308

passed=0 failed=0
check() { # name, then the command that must succeed
  local name=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAIL: $name" >&2
  fi
}

header() { # the title text after "Report Table "
  cat <<'HEAD'
<table class=tabledata  border=1  cellspacing=1 cellpadding=4 align="center" style="font-size:9pt" valign=top >
HEAD
  printf "<tr><td nowrap colspan='9' align='center'><b>Report Table %s\n" "$1"
  cat <<'HEAD'
<tr bgcolor='#AACCDD'>
<th align='left'><input type='checkbox' id='selall'></th>
<th align='left' >Date/Time</th>
<th align='left' >Client</th>
<th align='left' >File</th>
<th align='left' >Result</th>
<th align='left' >Virus/Remark</th>
<th align='left' >Action</th>
<th align='left' >Quarantine</th>
</tr>
HEAD
}

# PHP as a web page runs it; warnings go to stderr, apart from the page.
run_php() { (cd "$(dirname "$1")" && "$php" -n -d display_errors=stderr "$1"); }

same() { # name, expected file, actual file
  if cmp -s "$2" "$3"; then return 0; fi
  echo "--- $1: expected vs actual" >&2
  diff "$2" "$3" >&2 || true
  return 1
}

rows_of() { grep -c "id='chk_sel_" "$1" || true; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
traffic=${root}traffic

# One day: the include line ends the last line, followed by "</table>".
day=$traffic/20240305
{
  header "as on 05-03-2024"
  cat "$day/report.txt"
  echo "</table>"
} >"$work/day.expected"
run_php "$day/report.php" >"$work/day.actual" 2>"$work/day.err"
check "day page prints header, rows and end" \
  same day "$work/day.expected" "$work/day.actual"
check "day page has its three rows" test "$(rows_of "$work/day.actual")" = 3
check "day page include path has the double slash" \
  grep -qF "traffic//20240305/report.txt\") ?></table>" "$day/report.php"
check "day page runs without a warning" test ! -s "$work/day.err"

# A range: one include line per day; 20240306 has no files and adds
# nothing but a warning on stderr.
{
  header "from 05-03-2024 to 07-03-2024"
  cat "$traffic/20240305/report.txt" "$traffic/20240307/report.txt"
  echo "</table>"
} >"$work/range.expected"
run_php "${root}range/report.php" >"$work/range.actual" 2>"$work/range.err"
check "range page prints header, every day's rows and end" \
  same range "$work/range.expected" "$work/range.actual"
check "range page has the five rows of its days" \
  test "$(rows_of "$work/range.actual")" = 5
check "range page has three include lines" \
  test "$(grep -c '^<?php include(' "${root}range/report.php")" = 3
check "missing day is only a warning" grep -q 20240306 "$work/range.err"

# The hazard: a file name holding PHP is run by the include.
day=$traffic/20240308
check "the rows keep the name byte for byte" \
  grep -qF '/srv/drop/<?php echo "PHP-RAN"; ?>.txt' "$day/report.txt"
{
  header "as on 08-03-2024"
  sed 's/<?php echo "PHP-RAN"; ?>/PHP-RAN/g' "$day/report.txt"
  echo "</table>"
} >"$work/hazard.expected"
run_php "$day/report.php" >"$work/hazard.actual" 2>/dev/null
check "including the page runs PHP from a file name" \
  same hazard "$work/hazard.expected" "$work/hazard.actual"

echo "php compatibility: $passed passed, $failed failed"
((failed == 0))
