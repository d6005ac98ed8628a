#!/bin/sh
# Replaces systemctl where systemd does not run: carries out the lines of a service unit, as its user.
set -eu
for name; do :; done
name=${name%.service}
unit=/usr/local/lib/systemd/system/$name.service
[ -e "$unit" ] || unit=/usr/lib/systemd/system/$name.service
value() { sed -n "s/^$1=-\{0,1\}//p" "$unit"; }

# Until there is a unit, a package may ask about one.
[ -e "$unit" ] || exit 0
user=$(value User)
pidfile=/run/${user:+$user/}zot.pid

run_line() {
    if [ -n "$user" ]; then
        capability=$(value AmbientCapabilities | tr '[:upper:]' '[:lower:]')
        set -- "$1" setpriv --reuid "$user" --regid "$user" --init-groups --no-new-privs \
            --bounding-set "-all,+${capability#cap_}" --inh-caps "+${capability#cap_}" \
            --ambient-caps "+${capability#cap_}"
    fi
    lines=$(value "$1" | sed 's/\$\$/$/g')
    shift
    "$@" sh -euc "$lines"
}
running() { [ -s "$pidfile" ] && kill -0 "$(cat "$pidfile" 2>/dev/null)" 2>/dev/null; }

stop() {
    running || return 0
    kill "$(cat "$pidfile")"
    while running; do sleep 0.05; done
    run_line ExecStopPost
}

start() {
    running && return 0
    if [ -n "$user" ]; then
        install -d -o "$user" -g "$user" "/run/$user"
        install -d -o "$user" -g "$user" -m "$(value StateDirectoryMode)" "/var/lib/$user"
        install -d -o "$user" -g "$user" -m "$(value LogsDirectoryMode)" "/var/log/$user"
    fi
    run_line ExecStart
    until running; do sleep 0.05; done
}

for word; do
    case $word in
    start | enable) start ;;
    stop | disable) stop ;;
    restart) stop && start ;;
    reload) run_line ExecReload ;;
    is-enabled) echo enabled ;;
    is-active | status) running ;;
    esac
done
