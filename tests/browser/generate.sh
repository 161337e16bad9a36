#!/usr/bin/env bash
# Makes a fresh output root and fills it the way a nightly job would: a
# scan report and a quarantine page for each given day, then one range
# report over FIRST..LAST.
#   generate.sh PROGRAM ROOT LOG FIRST LAST DAY...
set -euo pipefail
program=$1 root=$2 log=$3 first=$4 last=$5
shift 5
case $root in
*/browser/output-root/) ;;
*)
  echo "generate.sh: refusing to empty $root" >&2
  exit 2
  ;;
esac
rm -rf "$root"
mkdir -p "${root}range"
for day in "$@"; do
  mkdir -p "${root}traffic/$day"
  "$program" "$log" "$day"
  "$program" Q "$log" "$day"
done
"$program" "$log" "$first" "$last"
