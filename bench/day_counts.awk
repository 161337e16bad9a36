# One day's result counts and top-ten lists from a scan log, the way an
# administrator would get them without scanreport: the yardstick for the
# single-day report in bench/run.
#   mawk -v day=31-12-2023 -f bench/day_counts.awk scan.log
BEGIN { FS = ",," }
$2 == day {
  result = toupper($6)
  virus = ""
  key = ""
  if (result == "CLEAN") {
    file = $7; key = "clean"
  } else if (result == "INFECTED") {
    action = toupper($7); virus = $8; file = $9
    if (action == "DELETED") key = "deleted"
    else if (action == "QUARANTINED") key = "quarantined"
    else if (action == "ACTION ERROR") key = "acterror"
    else if (action == "ACCESS DENIED") key = "denied"
  } else if (result == "CURED") {
    virus = $7; file = $8; key = "cured"
  } else if (result == "ERROR" || result == "EXCLUDED") {
    file = $8; key = tolower(result)
  } else {
    next
  }
  if (key != "") tally[key]++
  clients[$4 "[" $5 "]"]++
  files[file]++
  if (virus != "") viruses[virus]++
}
function top_ten(title, table,    shown, best, name, n) {
  print "[" title "]"
  for (shown = 0; shown < 10; shown++) {
    best = ""; n = -1
    for (name in table) if (table[name] > n) { best = name; n = table[name] }
    if (n < 0) break
    print best "=" n
    delete table[best]
  }
}
END {
  print "[Summary]"
  split("acterror clean cured deleted denied error excluded quarantined", keys, " ")
  for (i = 1; i <= 8; i++) print keys[i] "=" (tally[keys[i]] + 0)
  top_ten("Top 10 Client", clients)
  top_ten("Top 10 Virus", viruses)
  top_ten("Top 10 File", files)
}
