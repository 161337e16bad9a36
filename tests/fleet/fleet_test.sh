#!/usr/bin/env bash
# The fleet end to end: the nightly helper writes a day with infections
# and a clean day, each with its scanreport.prom in a textfile directory of
# its own; a node exporter per directory stands for a host; Prometheus
# scrapes both every second with the shipped rules. Checked through
# Prometheus's HTTP API: the counts equal each day's summary.txt, hostile
# virus names are single series, ScanreportInfections fires for the
# infected host only, and ScanreportDayCut for a cut day. Ports
# 127.0.0.1:19010-19012; every process started here is stopped by its pid.
#   fleet_test.sh HELPER NIGHTLY METRICS_PROGRAM ROOT
# with PROMTOOL, PROMETHEUS, NODE_EXPORTER, RULES and DASHBOARD in the
# environment.
set -euo pipefail
helper=$1 nightly=$2 metrics_program=$3 root=$4
data=$(cd "$(dirname "$0")/data" && pwd)
case $root in */fleet/output-root/) ;; *) echo "refusing to empty $root" >&2 && exit 2 ;; esac
readonly prometheus_port=19010 infected_port=19011 clean_port=19012
work=$(mktemp -d /tmp/scanreport-fleet.XXXXXX)
pids=()
stop_all() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work" "$root"
}
trap stop_all EXIT
passed=0 failed=0
check() { if eval "$2"; then ((++passed)); else ((++failed)) && echo "FAIL: $1" >&2; fi; } # name, test

# The two hosts' days, written by the helper as the nightly run does.
umask 022
rm -rf "$root" && mkdir -p "$root/traffic" "$root/range" "$work/infected" "$work/clean"
export TZ=UTC SCANREPORT_NIGHTLY=$nightly SCANREPORT_DEFAULTS=$work/default
for host in infected clean; do
  export SCANREPORT_STATE_DIR=$work/state-$host
  day=$([[ $host == infected ]] && echo 20240301 || echo 20240302)
  printf 'SCANREPORT_LOG=%s\nSCANREPORT_METRICS_DIR=%s\n' "$data/fleet.log" "$work/$host" >"$SCANREPORT_DEFAULTS"
  check "the helper writes $day and its metrics" '"$helper" "$day" >/dev/null'
  check "promtool accepts the metrics of $day" '"$PROMTOOL" check metrics <"$work/$host/scanreport.prom"'
  check "nothing but scanreport.prom in $host's directory" '[[ $(ls -A "$work/$host") == scanreport.prom ]]'
done

"$NODE_EXPORTER" --collector.disable-defaults --collector.textfile \
  --collector.textfile.directory="$work/infected" \
  --web.listen-address=127.0.0.1:$infected_port >"$work/infected.log" 2>&1 &
pids+=($!)
"$NODE_EXPORTER" --collector.disable-defaults --collector.textfile \
  --collector.textfile.directory="$work/clean" \
  --web.listen-address=127.0.0.1:$clean_port >"$work/clean.log" 2>&1 &
pids+=($!)
cat >"$work/prometheus.yml" <<EOF
global: {scrape_interval: 1s, evaluation_interval: 1s}
rule_files: ['$RULES']
scrape_configs:
  - job_name: node
    static_configs:
      - {targets: ['127.0.0.1:$infected_port'], labels: {host: infected}}
      - {targets: ['127.0.0.1:$clean_port'], labels: {host: clean}}
EOF
"$PROMETHEUS" --config.file="$work/prometheus.yml" \
  --storage.tsdb.path="$work/data" \
  --web.listen-address=127.0.0.1:$prometheus_port >"$work/prometheus.log" 2>&1 &
pids+=($!)

# query EXPR JQ: the instant query's result through the jq filter.
query() {
  curl -sf --get --data-urlencode "query=$1" \
    "http://127.0.0.1:$prometheus_port/api/v1/query" | jq -r "$2"
}
# await SECONDS EXPR JQ WANT: until the query gives WANT, or the time is up.
await() {
  local i
  for ((i = 0; i < $1 * 2; i++)); do
    [[ $(query "$2" "$3" 2>/dev/null) == "$4" ]] && return 0
    sleep 0.5
  done
  return 1
}
samples='.data.result[] | "\(.metric.host) \(.metric.key // .metric.virus // "") \(.value[1])"'
check "Prometheus scrapes both hosts" \
  'await 60 "count(up == 1) + count(scanreport_day_timestamp_seconds)" ".data.result[0].value[1]" 4'
check "the collector took both files without error" \
  '[[ $(query "node_textfile_scrape_error" "$samples" | sort | xargs) == "clean 0 infected 0" ]]'

for host in infected clean; do
  day=$([[ $host == infected ]] && echo 20240301 || echo 20240302)
  got=$(query "scanreport_day_objects{host=\"$host\"}" "$samples" | sort)
  echo "scanreport_day_objects of $host ($day):" $got
  summary=$(tail -n 8 "$root/traffic/$day/summary.txt" | sed "s/^/$host /; s/=/ /" | sort)
  check "$host's counts equal the final section of $day's summary.txt" '[[ $got == "$summary" ]]'
done
# By hand from fleet.log: files named "[S", "quarantined=-1000" and
# "clean=99999" are three clean objects and nothing else.
check "the infected day's counts are the log's" '[[ $(query "scanreport_day_objects{host=\"infected\"}" "$samples" | sort | xargs) == "infected acterror 0 infected clean 3 infected cured 1 infected deleted 2 infected denied 1 infected error 1 infected excluded 0 infected quarantined 2" ]]'
check "the clean day's counts are the log's" '[[ $(query "scanreport_day_objects{host=\"clean\"}" "$samples" | sort | xargs) == "clean acterror 0 clean clean 3 clean cured 0 clean deleted 0 clean denied 0 clean error 0 clean excluded 1 clean quarantined 0" ]]'
check "each day's start, UTC" '[[ $(query "scanreport_day_timestamp_seconds" "$samples" | sort | xargs) == "clean 1709337600 infected 1709251200" ]]'

viruses=$(query 'scanreport_day_virus_objects' "$samples" | sort)
echo "scanreport_day_virus_objects:"
echo "$viruses"
long="infected $(printf 'L%.0s' {1..188})...#"
expected=$(cat <<'EOF'
infected B\x5Cad 1
infected EICAR-Test 1
infected Q"} 9 1
infected bad\xFF 1
infected rtl\xE2\x80\xAEgpj.exe 1
EOF
)
check "hostile virus names are one series each, shown escaped" \
  '[[ $(grep -v "^$long" <<<"$viruses") == "$expected" ]]'
check "a long name is cut with its hash" \
  '[[ $(grep -c "^$long[0-9a-f]\{8\} 1$" <<<"$viruses") == 1 ]]'

firing='ALERTS{alertstate="firing",alertname=~"ScanreportInfections|ScanreportDayCut"}'
alerts='[.data.result[] | "\(.metric.alertname) \(.metric.host)"] | sort | join(", ")'
check "ScanreportInfections fires for the infected host" \
  'await 30 "$firing" "$alerts" "ScanreportInfections infected"'
sleep 3
echo "firing:" "$(query "$firing" "$alerts")"
curl -sf "http://127.0.0.1:$prometheus_port/api/v1/alerts" |
  jq -r '.data.alerts[] | "alert: \(.labels.alertname) \(.labels.host) \(.state) value=\(.value): \(.annotations.summary)"'
check "and stays silent for the clean one" \
  '[[ $(query "$firing" "$alerts") == "ScanreportInfections infected" ]]'

# The dashboard's queries as Prometheus runs them.
while IFS= read -r expr; do
  check "the dashboard's query $expr runs" \
    '[[ $(curl -sf --get --data-urlencode "query=$expr" "http://127.0.0.1:$prometheus_port/api/v1/query" | jq -r .status) == success ]]'
done < <(jq -r '.panels[].targets[].expr' "$DASHBOARD")
check "the dashboard's top viruses across the fleet" \
  '[[ $(query "$(jq -r ".panels[1].targets[0].expr" "$DASHBOARD")" ".data.result | length") == 6 ]]'

# The clean host's day turns out cut: the nightly run says how many lines
# it left out.
check "scanreport-metrics rewrites the clean host's file" \
  '"$metrics_program" "$work/clean" 20240302 --last-success "$(date +%s)" --lines-left-out 7'
check "ScanreportDayCut fires for it" \
  'await 30 "$firing" "$alerts" "ScanreportDayCut clean, ScanreportInfections infected"'
echo "firing:" "$(query "$firing" "$alerts")"

# A summary cut short is refused and the last good file stays.
cp "$work/clean/scanreport.prom" "$work/last-good.prom"
truncate -s -5 "$root/traffic/20240302/summary.txt"
check "a cut summary is refused" \
  '! "$metrics_program" "$work/clean" 20240302 2>"$work/refused.err" && grep -q "cut short" "$work/refused.err"'
check "and the last good file stays" \
  'cmp -s "$work/clean/scanreport.prom" "$work/last-good.prom" && [[ $(ls -A "$work/clean") == scanreport.prom ]]'

echo "fleet: $passed passed, $failed failed"
((failed == 0))
