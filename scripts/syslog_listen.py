#!/usr/bin/python3
"""The demo's system log: owns /dev/log inside the sandbox and appends every line it gets to a
file, as "<time> <severity> <message>".

    syslog_listen.py LOGFILE [SOCKET]

SOCKET defaults to /dev/log. Ends on SIGTERM or SIGINT, removing its socket.
"""
import os
import signal
import socket
import sys
import time

SEVERITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")


def format_line(datagram: bytes, now: float) -> str:
    """One log line for one datagram: "<PRI>rest" becomes "time severity rest"."""
    text = datagram.decode("utf-8", errors="replace").rstrip("\n\x00")
    severity = "info"
    if text.startswith("<"):
        end = text.find(">")
        if 1 < end <= 4 and text[1:end].isdigit():
            severity = SEVERITIES[int(text[1:end]) & 7]
            text = text[end + 1:]
    # Every line of the file is one message, whatever the message held.
    text = text.replace("\r", "\\r").replace("\n", "\\n")
    stamp = time.strftime("%Y-%m-%dT%H:%M:%S", time.localtime(now))
    return f"{stamp} {severity} {text}\n"


def main(argv: list[str]) -> int:
    if len(argv) not in (2, 3):
        print("usage: syslog_listen.py LOGFILE [SOCKET]", file=sys.stderr)
        return 2
    log_path = argv[1]
    sock_path = argv[2] if len(argv) == 3 else "/dev/log"

    sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    try:
        os.unlink(sock_path)
    except FileNotFoundError:
        pass
    try:
        sock.bind(sock_path)
    except OSError as e:
        print(f"syslog_listen: cannot bind {sock_path}: {e.strerror}", file=sys.stderr)
        return 1
    os.chmod(sock_path, 0o666)

    def stop(signum, frame):
        raise SystemExit(0)

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    try:
        with open(log_path, "a", buffering=1, encoding="utf-8") as log:
            while True:
                log.write(format_line(sock.recv(65536), time.time()))
    finally:
        sock.close()
        try:
            os.unlink(sock_path)
        except FileNotFoundError:
            pass


if __name__ == "__main__":
    sys.exit(main(sys.argv))
