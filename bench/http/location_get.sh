#!/usr/bin/env bash
# Location "get" over HTTP (an ordinary account's own row, looked up in user_setting with
# 100,000 rows) against FtpHttp "get" (the settings file) on the same demo host in the same
# run, a new connection per request. Target: Location's p50 at most twice FtpHttp's.
#
#   bench/http/location_get.sh [--requests N] [--rows N]
#
# Needs the release build (scripts/run, or QRIX_BUILD_DIR) with target http_load. The server
# and the load generator are pinned to CPU 0 (same) and then the load generator to CPU 1
# (cross), as in compare_get.sh. Prints the plan of the row lookup, then the figures.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=${QRIX_BUILD_DIR:-$root/build/release}
load=$build/bench/http/http_load
requests=2000
rows=100000
source "$root/bench/http/common.sh"

while (($#)); do
  case $1 in
    --requests) (($# >= 2)) || die "--requests needs a number"; requests=$2; shift 2 ;;
    --rows) (($# >= 2)) || die "--rows needs a number"; rows=$2; shift 2 ;;
    *) die "unknown option $1 (usage: location_get.sh [--requests N] [--rows N])" ;;
  esac
done
[[ $requests =~ ^[0-9]+$ ]] && ((requests > 0)) || die "--requests must be a positive number"
[[ $rows =~ ^[0-9]+$ ]] || die "--rows must be a number"
[[ -x $load ]] || die "$load is missing: cmake --build $build --target http_load"
for tool in curl python3 taskset; do
  command -v "$tool" >/dev/null || die "$tool is missing: run scripts/bootstrap"
done
(($(nproc) >= 2)) || die "needs two CPUs to compare same-CPU and cross-CPU figures"

work=$(mktemp -d "${TMPDIR:-/tmp}/location-get.XXXXXX")
state=$work/state
trap 'stop_server; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

port=$(free_port)
start_demo "$state" "$port" 0

# Many other accounts, then the statistics the planner goes by.
psql() {
  "$root/scripts/sandbox" exec --state "$state" -- /usr/bin/psql -X -q -A -t \
    -h /run/postgresql -U postgres -d download -v ON_ERROR_STOP=1 "$@"
}
psql -c "INSERT INTO user_setting (username, uid, share_folder, user_disabled,
           enable_watchffolder, delete_watchtorrent, watchfolder)
         SELECT 'bench' || i, 100000 + i, 'downloads', 'f', 't', 'f', 'downloads/w' || i
         FROM generate_series(1, $rows) AS i" -c "ANALYZE user_setting"
echo "user_setting holds $(psql -c 'SELECT count(*) FROM user_setting') rows"
echo "the lookup of one account:"
psql -c "EXPLAIN ANALYZE SELECT share_folder, user_disabled FROM user_setting
         WHERE lower(username)=lower('user')" | sed 's/^/  /'

mapfile -t admin < <(demo_login "$state" "$port" true)
mapfile -t user < <(demo_login "$state" "$port" false)
((${#admin[@]} && ${#user[@]})) || die "the demo logins failed"

declare -A result
for mode in same cross; do
  if [[ $mode == same ]]; then cpu=0; else cpu=1; fi
  for clients in 1 16; do
    n=$requests
    ((clients == 1)) || n=$((requests * 2))
    for api in FtpHttp Location; do
      if [[ $api == FtpHttp ]]; then session=("${admin[@]}"); else session=("${user[@]}"); fi
      line=$(taskset -c "$cpu" "$load" --port "$port" --clients "$clients" --requests "$n" \
        --warmup 200 --max-seconds 300 "${session[@]}" \
        --body "api=QRIX.Haulport2.Setting.$api&version=1&method=get" \
        --expect '"success":true') || die "$api ($mode, $clients): $line"
      result[$api,$mode,$clients]=$line
      printf '  %-8s %-5s CPU, %2d clients: %s\n' "$api" "$mode" "$clients" "$line"
    done
  done
done

echo
echo "Location / FtpHttp (target: p50 at most 2):"
for mode in same cross; do
  for clients in 1 16; do
    printf '  %-5s CPU, %2d clients: p50 %s, p99 %s, req/s %s\n' "$mode" "$clients" \
      "$(ratio "$(field p50_us "${result[Location,$mode,$clients]}")" "$(field p50_us "${result[FtpHttp,$mode,$clients]}")")" \
      "$(ratio "$(field p99_us "${result[Location,$mode,$clients]}")" "$(field p99_us "${result[FtpHttp,$mode,$clients]}")")" \
      "$(ratio "$(field rps "${result[Location,$mode,$clients]}")" "$(field rps "${result[FtpHttp,$mode,$clients]}")")"
  done
done
