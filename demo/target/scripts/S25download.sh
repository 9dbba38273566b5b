#!/bin/sh
# The demo's download service control script, installed where the package keeps its own:
#   S25download.sh start|stop
# starts or stops the demo's stand-in daemon (the scheduler, which writes
# /tmp/qrixdl_scheduler.pid and counts its signals in /var/log/scheduler-signals).
# Exit status 0 when the service is in the state asked for, 1 when it could not be put there.
set -u
daemon=/var/packages/Haulport/target/bin/scheduler
pidfile=/tmp/qrixdl_scheduler.pid

running() {
  [ -s "$pidfile" ] && kill -0 "$(cat "$pidfile")" 2>/dev/null
}

case ${1:-} in
  start)
    running && exit 0
    setsid "$daemon" /var/log/scheduler-signals </dev/null >/dev/null 2>&1 &
    for _ in $(seq 50); do
      running && exit 0
      sleep 0.1
    done
    echo "S25download.sh: the scheduler did not start" >&2
    exit 1
    ;;
  stop)
    running || exit 0
    pid=$(cat "$pidfile")
    kill -TERM "$pid"
    for _ in $(seq 50); do
      kill -0 "$pid" 2>/dev/null || exit 0
      sleep 0.1
    done
    echo "S25download.sh: the scheduler (pid $pid) did not stop" >&2
    exit 1
    ;;
  *)
    echo "usage: S25download.sh start|stop" >&2
    exit 2
    ;;
esac
