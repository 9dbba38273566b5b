#!/usr/bin/env bash
# A settings "get" over HTTP, a new connection per request, on four servers: our FtpHttp get
# (the demo's host), Transmission's session-get, qBittorrent's app/preferences, and nginx
# serving a 600-byte static file (what a new connection per request costs at the least on this
# machine). Then a one-key "set" on ours (written with fsync) and on qBittorrent (which persists
# its preferences too), and the part of ours no set can go below: the durable write of a
# settings-sized file alone (durable_write, on the same file system and CPU). Each server runs
# alone on 127.0.0.1 with a private config directory, pinned to CPU 0; the load generator
# (http_load) runs pinned to the same CPU, then to CPU 1.
# Idle CPUs wake slowly on this kind of machine, so pinning is what makes the figures measure
# the servers.
#
#   bench/http/compare_get.sh [--requests N] [--only ours|transmission|qbittorrent|nginx]...
#
# Needs: the release build (scripts/run, or QRIX_BUILD_DIR) with target http_load, and the
# peers (scripts/bootstrap --bench). Prints p50/p99 latency and requests per second at 1 and 16
# clients for each system, operation and pinning, then the ratios against ours.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=${QRIX_BUILD_DIR:-$root/build/release}
load=$build/bench/http/http_load
durable=$build/bench/http/durable_write
requests=2000
warmup=200
systems=()
source "$root/bench/http/common.sh"

while (($#)); do
  case $1 in
    --requests) (($# >= 2)) || die "--requests needs a number"; requests=$2; shift 2 ;;
    --only)
      [[ ${2:-} =~ ^(ours|transmission|qbittorrent|nginx)$ ]] ||
        die "--only takes ours, transmission, qbittorrent or nginx"
      systems+=("$2"); shift 2 ;;
    *) die "unknown option $1 (usage: compare_get.sh [--requests N] [--only SYSTEM]...)" ;;
  esac
done
[[ $requests =~ ^[0-9]+$ ]] && ((requests > 0)) || die "--requests must be a positive number"
((${#systems[@]})) || systems=(ours transmission qbittorrent nginx)

for tool in "$load" "$durable"; do
  [[ -x $tool ]] || die "$tool is missing: cmake --build $build --target $(basename "$tool")"
done
for tool in transmission-daemon qbittorrent-nox nginx curl python3 taskset; do
  command -v "$tool" >/dev/null || die "$tool is missing: run scripts/bootstrap --bench"
done
(($(nproc) >= 2)) || die "needs two CPUs to compare same-CPU and cross-CPU figures"

server_cpu=0
work=$(mktemp -d "${TMPDIR:-/tmp}/compare-get.XXXXXX")

cleanup() {
  stop_server
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

declare -A result
spent_sets=0
# measure SYSTEM PORT ARGS...: runs the four configurations against the running server.
measure() {
  local system=$1 port=$2
  shift 2
  local mode cpu clients n line
  for mode in same cross; do
    if [[ $mode == same ]]; then cpu=$server_cpu; else cpu=1; fi
    for clients in 1 16; do
      n=$requests
      ((clients == 1)) || n=$((requests * 2))
      line=$(taskset -c "$cpu" "$load" --port "$port" --clients "$clients" --requests "$n" \
        --warmup "$warmup" --max-seconds 300 "$@") || die "$system ($mode, $clients): $line"
      result[$system,$mode,$clients]=$line
      printf '  %-5s CPU, %2d clients: %s\n' "$mode" "$clients" "$line"
    done
  done
}

run_ours() {
  local port state session
  port=$(free_port)
  state=$work/ours
  echo "ours: FtpHttp get on 127.0.0.1:$port"
  start_demo "$state" "$port" "$server_cpu"
  mapfile -t session < <(demo_login "$state" "$port" true)
  ((${#session[@]})) || die "ours: login failed"
  measure ours "$port" "${session[@]}" \
    --body 'api=QRIX.Haulport2.Setting.FtpHttp&version=1&method=get' --expect '"success":true'
  echo "ours: FtpHttp set of one key"
  measure ours-set "$port" "${session[@]}" \
    --body 'api=QRIX.Haulport2.Setting.FtpHttp&version=1&method=set&ftp_max_conn=7' \
    --expect '"success":true'
  # A set whose callbacks the keeper could not take spends its worker: the master then forks on
  # the sets' path. Every one of them is logged.
  spent_sets=$(grep -c "cannot hand a request's callbacks" "$state/log/messages" || true)
  echo "ours: sets that spent their worker: $spent_sets"
  stop_server
  # The disk's part of a set, alone on the same file system and CPU: no target can go below it.
  mkdir -p "$work/durable"
  result[durable]=$(taskset -c "$server_cpu" "$durable" "$work/durable") ||
    die "durable_write: ${result[durable]}"
  echo "ours: the durable write alone: ${result[durable]}"
}

run_transmission() {
  local port dir sid
  port=$(free_port)
  dir=$work/transmission
  mkdir -p "$dir/downloads"
  # Nothing that reaches past loopback: no DHT, LPD, uTP, PEX or port mapping.
  cat >"$dir/settings.json" <<EOF
{
  "rpc-enabled": true, "rpc-bind-address": "127.0.0.1", "rpc-port": $port,
  "rpc-whitelist-enabled": true, "rpc-whitelist": "127.0.0.1",
  "rpc-authentication-required": false,
  "dht-enabled": false, "lpd-enabled": false, "utp-enabled": false, "pex-enabled": false,
  "port-forwarding-enabled": false, "blocklist-enabled": false,
  "bind-address-ipv4": "127.0.0.1", "bind-address-ipv6": "::1", "peer-port": $(free_port),
  "download-dir": "$dir/downloads", "incomplete-dir-enabled": false, "watch-dir-enabled": false,
  "message-level": 1
}
EOF
  echo "Transmission: session-get on 127.0.0.1:$port"
  taskset -c "$server_cpu" transmission-daemon -f -g "$dir" >"$work/transmission.log" 2>&1 &
  server_pid=$!
  wait_port "$port" "$work/transmission.log"
  # The RPC answers 409 with the session id that every later request must carry.
  sid=$(curl -s -i "http://127.0.0.1:$port/transmission/rpc" --data '{"method":"session-get"}' |
    sed -n 's/^X-Transmission-Session-Id: *\([^[:space:]]*\).*/\1/ip' | head -1)
  [[ -n $sid ]] || die "Transmission: no session id"
  measure transmission "$port" --method POST --path /transmission/rpc \
    --header "X-Transmission-Session-Id: $sid" --header 'Content-Type: application/json' \
    --body '{"method":"session-get"}' --expect '"result":"success"'
  stop_server
}

run_qbittorrent() {
  local port dir
  port=$(free_port)
  dir=$work/qbittorrent
  mkdir -p "$dir/qBittorrent/config" "$dir/downloads"
  # Loopback only: no DHT, LSD, PeX, port mapping or country lookups; no login from localhost.
  cat >"$dir/qBittorrent/config/qBittorrent.conf" <<EOF
[LegalNotice]
Accepted=true

[BitTorrent]
Session\\DHTEnabled=false
Session\\LSDEnabled=false
Session\\PeXEnabled=false
Session\\AnonymousModeEnabled=true
Session\\Interface=lo
Session\\InterfaceName=lo
Session\\InterfaceAddress=127.0.0.1
Session\\Port=$(free_port)
Session\\DefaultSavePath=$dir/downloads

[Network]
PortForwardingEnabled=false

[Preferences]
Connection\\UPnP=false
Connection\\ResolvePeerCountries=false
Search\\SearchEnabled=false
WebUI\\Enabled=true
WebUI\\Address=127.0.0.1
WebUI\\Port=$port
WebUI\\LocalHostAuth=false
EOF
  echo "qBittorrent: app/preferences on 127.0.0.1:$port"
  taskset -c "$server_cpu" qbittorrent-nox --profile="$dir" --webui-port="$port" \
    >"$work/qbittorrent.log" 2>&1 &
  server_pid=$!
  wait_port "$port" "$work/qbittorrent.log"
  measure qbittorrent "$port" --method GET --path /api/v2/app/preferences --expect '"save_path"'
  echo "qBittorrent: app/setPreferences of one key"
  measure qbittorrent-set "$port" --method POST --path /api/v2/app/setPreferences \
    --header 'Content-Type: application/x-www-form-urlencoded' \
    --body 'json=%7B%22max_connec%22%3A321%7D'
  stop_server
}

run_nginx() {
  local port dir
  port=$(free_port)
  dir=$work/nginx
  mkdir -p "$dir/www" "$dir/tmp"
  head -c 600 /dev/zero | tr '\0' x >"$dir/www/index.html"
  # One worker, no logging: the least a server can do for a new connection and a small answer.
  cat >"$dir/nginx.conf" <<EOF
user root;
worker_processes 1;
daemon off;
pid $dir/nginx.pid;
error_log $dir/error.log;
events { worker_connections 1024; }
http {
  access_log off;
  client_body_temp_path $dir/tmp;
  proxy_temp_path $dir/tmp;
  fastcgi_temp_path $dir/tmp;
  uwsgi_temp_path $dir/tmp;
  scgi_temp_path $dir/tmp;
  server {
    listen 127.0.0.1:$port;
    keepalive_timeout 0;
    root $dir/www;
  }
}
EOF
  echo "nginx: a 600-byte static file on 127.0.0.1:$port"
  taskset -c "$server_cpu" nginx -p "$dir" -c "$dir/nginx.conf" >"$work/nginx.log" 2>&1 &
  server_pid=$!
  wait_port "$port" "$work/nginx.log"
  measure nginx "$port" --method GET --path /index.html --expect xxxxxxxxxx
  stop_server
}

for system in "${systems[@]}"; do
  "run_$system"
done

echo
printf '%-15s %-6s %7s %9s %9s %9s\n' system CPU clients p50_us p99_us req/s
for system in ours ours-set transmission qbittorrent qbittorrent-set nginx; do
  [[ -n ${result[$system,same,1]:-} ]] || continue
  for mode in same cross; do
    for clients in 1 16; do
      line=${result[$system,$mode,$clients]}
      printf '%-15s %-6s %7d %9s %9s %9s\n' "$system" "$mode" "$clients" \
        "$(field p50_us "$line")" "$(field p99_us "$line")" "$(field rps "$line")"
    done
  done
done

calc() { python3 -c "import sys; a, b = map(float, sys.argv[2:]); print(eval(sys.argv[1]))" "$@"; }
p50() { field p50_us "${result[$1,$2,$3]}"; }
rps() { field rps "${result[$1,$2,$3]}"; }
[[ -n ${result[ours,same,1]:-} ]] || exit 0
echo
echo "ratios (ours / peer): p50 below 1 is faster, req/s above 1 is more"
for pair in ours:transmission ours:qbittorrent ours:nginx ours-set:qbittorrent-set; do
  mine=${pair%%:*} peer=${pair#*:}
  [[ -n ${result[$mine,same,1]:-} && -n ${result[$peer,same,1]:-} ]] || continue
  for mode in same cross; do
    printf '  %-8s / %-15s %-5s CPU: p50 at 1 client %s, at 16 %s; req/s at 1 client %s, at 16 %s\n' \
      "$mine" "$peer" "$mode" \
      "$(calc 'f"{a / b:.2f}"' "$(p50 "$mine" "$mode" 1)" "$(p50 "$peer" "$mode" 1)")" \
      "$(calc 'f"{a / b:.2f}"' "$(p50 "$mine" "$mode" 16)" "$(p50 "$peer" "$mode" 16)")" \
      "$(calc 'f"{a / b:.2f}"' "$(rps "$mine" "$mode" 1)" "$(rps "$peer" "$mode" 1)")" \
      "$(calc 'f"{a / b:.2f}"' "$(rps "$mine" "$mode" 16)" "$(rps "$peer" "$mode" 16)")"
  done
done
if [[ -n ${result[ours-set,same,1]:-} ]]; then
  echo "  sets that spent their worker (the keeper fell behind): $spent_sets"
  for mode in same cross; do
    printf '  set p50 - get p50, %-5s CPU, 1 client: %s us\n' "$mode" \
      "$(calc 'f"{a - b:.0f}"' "$(p50 ours-set "$mode" 1)" "$(p50 ours "$mode" 1)")"
  done
  printf '  durable write alone (temporary file, fsync, rename, directory fsync), p50: %s us\n' \
    "$(field p50_us "${result[durable]}")"
fi
