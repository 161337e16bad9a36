#!/usr/bin/env bash
# The console through the Apache snippet the package installs, in a private
# Apache with mod_php on 127.0.0.1, over the tree that daily_test.sh left.
#   apache_test.sh SNIPPET WEB ROOT APACHE PORT
# SNIPPET is packaging/apache2.conf.in configured for WEB and ROOT. Apache's
# children run as www-data, which may not reach into the checkout (cloned
# under a /root of mode 0700, say): they serve copies in a directory of
# their own, and the snippet is pointed at the copies; nothing else in it
# changes. ROOT's copy is linked file by file, so owners and modes stay,
# and its report.php pages include from the copy, as the program built for
# that root would have written them.
# shellcheck disable=SC2016,SC2034,SC2015  # check() evals its test text
set -euo pipefail
snippet=$1 web=$2 root=$3 apache=$4 port=$5
tmp=$(mktemp -d) && chmod 0755 "$tmp"
pid=
stop() { [[ -z $pid ]] || { kill "$pid" && wait "$pid" || true; }; rm -rf "$tmp"; }
trap stop EXIT
cp -r "$web" "$tmp/web" && cp -al "$root" "$tmp/root"
# A machine whose / the web server's account cannot enter (a chroot made
# with mktemp, say) can serve nothing to anybody: skipped, not failed.
if ! runuser -u www-data -- test -r "$tmp/web/index.php"; then
  echo "skipped: www-data cannot reach $tmp"
  exit 77
fi
grep -rlIZ "$root" "$tmp/root" | xargs -0r sed -i "s|$root|$tmp/root/|g"
echo '<?php echo "allow_url_fopen=", ini_get("allow_url_fopen") ?: "off";' >"$tmp/web/probe.php"
mkdir -m 0700 "$tmp/cache" && chown www-data "$tmp/cache"
sed "s|$root|$tmp/root/|g; s|$web|$tmp/web|g" "$snippet" >"$tmp/scanreport.conf"
modules=/usr/lib/apache2/modules
php_module=$(echo "$modules"/libphp*.so)
{
  for module in mpm_prefork authz_core authz_host alias dir env mime; do
    echo "LoadModule ${module}_module $modules/mod_$module.so"
  done
  cat <<EOF
LoadModule php_module $php_module
ServerRoot $tmp
ServerName 127.0.0.1
Listen 127.0.0.1:$port
PidFile $tmp/apache.pid
DefaultRuntimeDir $tmp
ErrorLog $tmp/error.log
TypesConfig /etc/mime.types
User www-data
Group www-data
DocumentRoot $tmp/root
SetEnv SCANREPORT_CACHE_DIR $tmp/cache
<FilesMatch "\.php$">
    SetHandler application/x-httpd-php
</FilesMatch>
Include $tmp/scanreport.conf
EOF
} >"$tmp/apache2.conf"
# Its own session: stopping, Apache signals its whole process group.
setsid "$apache" -f "$tmp/apache2.conf" -DFOREGROUND &
pid=$!
base=http://127.0.0.1:$port
for _ in {1..100}; do curl -sf -o /dev/null "$base/scanreport/style.css" && break || sleep 0.1; done

passed=0 failed=0
check() { if eval "$2"; then ((++passed)); else ((++failed)) && echo "FAIL: $1" >&2; fi; } # name, test
get() { curl -s -o "$tmp/body" -w '%{http_code} %{time_total}\n' "$base$1"; } # status, seconds
# The million-row day (the latest, so the first page) opens on its
# infected rows, counted here from its log; the cold request builds the
# row index.
infected=$(awk -F,, '$6 == "INFECTED"' "${root%/}-outside/big.log" | wc -l)
read -r status cold < <(get /scanreport/)
read -r _ warm < <(get /scanreport/)
echo "# first page of the million-row day: ${cold}s, again ${warm}s"
shown=$(grep -o 'Rows 1&ndash;250 of [0-9,]*' "$tmp/body" || true)
check "the first page shows the infected rows of the latest day" \
  '[[ $status == 200 && ${shown//,/} == "Rows 1&ndash;250 of $infected" ]]'
read -r status _ < <(get '/scanreport/?day=20240320&all=1&page=3999')
check "a page near the end of all rows" '[[ $status == 200 ]] &&
  grep -q "Rows 999,501&ndash;999,750 of 1,000,000" "$tmp/body" && grep -q chk_sel_999500 "$tmp/body"'
for query in '?day=2024' '?page=0' '?result=FOO'; do
  check "a bad query: $query" '[[ $(get "/scanreport/index.php$query") == 400* ]]'
done
for path in /scanreport/files.php /scanreport/rows.php /traffic/20240301/report.php \
  /traffic/20240301/report.txt /range/report.php; do
  check "$path is not served" '[[ $(get "$path") == 403* ]]'
done
check "the snippet turns allow_url_fopen off" \
  '[[ $(get /scanreport/probe.php) == 200* && $(<"$tmp/body") == allow_url_fopen=off ]]'
check "PHP said nothing in the error log" '! grep -E "PHP (Warning|Notice|Fatal)" "$tmp/error.log"'
echo "apache: $passed passed, $failed failed"
((failed == 0))
