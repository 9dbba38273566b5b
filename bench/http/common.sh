# Helpers of the HTTP benchmarks, sourced by them. They expect $work (a scratch directory),
# $build (the build tree) and use $server_pid for the one server running at a time.

server_pid=""

die() { echo "$(basename "$0"): $*" >&2; exit 2; }

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

stop_server() {
  if [[ -n $server_pid ]]; then
    kill -TERM "$server_pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$server_pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
    server_pid=""
  fi
}

# Waits until something accepts connections on the port, or the server has died.
wait_port() {
  local port=$1 log=$2
  for _ in $(seq 300); do
    if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then return 0; fi
    kill -0 "$server_pid" 2>/dev/null || { cat "$log" >&2; die "the server ended at start"; }
    sleep 0.1
  done
  cat "$log" >&2
  die "nothing listens on 127.0.0.1:$port"
}

field() {  # field KEY LINE
  sed -n "s/.*\b$1=\([0-9.]*\).*/\1/p" <<<"$2"
}

ratio() { python3 -c "import sys; a, b = map(float, sys.argv[1:]); print(f'{a / b:.2f}' if b else 'n/a')" "$1" "$2"; }

# start_demo STATE PORT CPU: the demo (host, PostgreSQL, stand-in daemons) in the background,
# pinned to CPU, its output in $work/demo.log.
start_demo() {
  QRIX_BUILD_DIR=$build taskset -c "$3" "$root/scripts/demo" --state "$1" --port "$2" \
    >"$work/demo.log" 2>&1 &
  server_pid=$!
  wait_port "$2" "$work/demo.log"
}

# demo_login STATE PORT ADMIN: logs in as the demo's administrator (ADMIN true) or its ordinary
# user and prints the http_load options that carry the session.
demo_login() {
  local state=$1 port=$2 admin=$3 account pw token sid jar=$work/jar-$3
  read -r account pw < <(python3 -c 'import json, sys
l = next(l for l in json.load(open(sys.argv[1])) if l["admin"] == (sys.argv[2] == "true"))
print(l["account"], l["passwd"])' "$state/demo-logins.json" "$admin")
  token=$(curl -sf -c "$jar" "http://127.0.0.1:$port/webapi/entry.cgi" \
    --data 'api=QRIX.API.Auth&version=1&method=login' --data-urlencode "account=\"$account\"" \
    --data-urlencode "passwd=\"$pw\"" |
    python3 -c 'import json, sys; print(json.load(sys.stdin)["data"]["token"])') ||
    die "login as $account failed"
  sid=$(awk '$6 == "qrix_sid" { print $7 }' "$jar")
  printf '%s\n' --method POST --path /webapi/entry.cgi \
    --header 'Content-Type: application/x-www-form-urlencoded' \
    --header "Cookie: qrix_sid=$sid" --header "X-QRIX-Token: $token"
}
