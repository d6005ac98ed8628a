#!/bin/sh
# Replaces systemctl where systemd does not run: carries out the lines of the service unit.
set -eu
unit=/usr/lib/systemd/system/zot.service
pidfile=/run/zot.pid

run_line() { sh -euc "$(sed -n "s/^$1=-\{0,1\}//p" "$unit" | sed 's/\$\$/$/g')"; }
running() { [ -s $pidfile ] && kill -0 "$(cat $pidfile)" 2>/dev/null; }

stop() {
    running || return 0
    kill "$(cat $pidfile)"
    while running; do sleep 0.05; done
    run_line ExecStopPost
}

start() {
    running && return 0
    run_line ExecStart
    until running; do sleep 0.05; done
}

for word; do
    case $word in
    start) start ;;
    stop) stop ;;
    restart) stop && start ;;
    reload) run_line ExecReload ;;
    is-enabled) echo enabled ;;
    is-active | status) running ;;
    esac
done
