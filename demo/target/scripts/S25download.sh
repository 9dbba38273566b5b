#!/bin/sh
# The demo's download service control script, installed where the package keeps its own:
#   S25download.sh start|stop
# starts or stops the demo's stand-in daemons: the scheduler (/tmp/qrixdl_scheduler.pid, its
# signal counts in /var/log/scheduler-signals), the eMule daemon and its CGI daemon
# (/tmp/qrixdl_amuled.pid and /tmp/qrixdl_amulecgid.pid; the eMule daemon counts its
# shared-folder reload requests as usr1 in /var/log/amuled-signals). One program stands in for
# all three.
# Exit status 0 when the service is in the state asked for, 1 when it could not be put there.
set -u
daemon=/var/packages/Haulport/target/bin/scheduler

running() {
  [ -s "$1" ] && kill -0 "$(cat "$1")" 2>/dev/null
}

start_one() { # PIDFILE COUNTS
  running "$1" && return 0
  setsid "$daemon" "$2" "$1" </dev/null >/dev/null 2>&1 &
  for _ in $(seq 50); do
    running "$1" && return 0
    sleep 0.1
  done
  echo "S25download.sh: the daemon of $1 did not start" >&2
  return 1
}

stop_one() { # PIDFILE
  running "$1" || return 0
  pid=$(cat "$1")
  kill -TERM "$pid"
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  echo "S25download.sh: the daemon of $1 (pid $pid) did not stop" >&2
  return 1
}

case ${1:-} in
  start)
    start_one /tmp/qrixdl_scheduler.pid /var/log/scheduler-signals &&
      start_one /tmp/qrixdl_amuled.pid /var/log/amuled-signals &&
      start_one /tmp/qrixdl_amulecgid.pid /var/log/amulecgid-signals
    ;;
  stop)
    rc=0
    for pidfile in /tmp/qrixdl_amulecgid.pid /tmp/qrixdl_amuled.pid /tmp/qrixdl_scheduler.pid; do
      stop_one "$pidfile" || rc=1
    done
    exit "$rc"
    ;;
  *)
    echo "usage: S25download.sh start|stop" >&2
    exit 2
    ;;
esac
