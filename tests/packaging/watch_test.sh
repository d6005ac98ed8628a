#!/bin/sh
# watch_test.sh BUILD SOURCE: what FreeBSD's service has beside the agent starts it again after an end
# that nobody asked for, and never after another. Here with a stand-in for pwait(1).
set -eu
build=$1
source=$2
work=$(mktemp -d)
export ZOT_WATCH_PAUSE=0 PATH="$work/bin:$PATH"
finish() {
    pkill -f "zot_watch.sh $work/" || true
    pkill -9 -f "zot-upgrade-guard $work/" || true
    pkill -9 -f "^$work/zot " || true
    rm -rf "$work"
}
trap finish EXIT
cd "$work"
mkdir bin
# shellcheck disable=SC2016
printf '#!/bin/sh\nexec tail --pid="$1" -s 0.05 -f /dev/null\n' >bin/pwait
printf '#!/bin/sh\necho "$*" >>%s/said\n' "$work" >bin/logger
chmod +x bin/*
touch said
# There are no jails here, and pgrep does not know the word.
sed -e "s#@ZOT_SBINDIR@#$work#" -e 's/ -j none//' "$source/packaging/freebsd/zot_watch.sh.in" >zot_watch.sh
cp "$build/zot" zot
printf secret >password
chmod 600 password

attempt() { # COMMAND ...: until it succeeds, for 20 seconds
    tries=0
    until "$@"; do
        tries=$((tries + 1))
        if [ $tries -gt 200 ]; then
            echo "in vain: $*"
            cat said
            exit 1
        fi
        sleep 0.1
    done
}
ask() { "$build/zotq" -H 127.0.0.1 -p "$port" -P password "$@" >/dev/null 2>&1; }
old() { cat zot.pid; }
replaced() { [ -e zot.pid ] && [ "$(cat zot.pid)" != "$before" ] && ask GetInfo; }
unguarded() { ! pgrep -f "zot-upgrade-guard $work/" >/dev/null; }
unwatched() { ! pgrep -f "zot_watch.sh $work/" >/dev/null; }
watch() { setsid /bin/sh zot_watch.sh "$work/zot.pid" "$work/zot.cfg" -v </dev/null >/dev/null 2>&1 & }

port=$((3000 + $$ % 6000))
until printf '%s\n' "port=$port" host=127.0.0.1 password=secret "zotpath=$work/zot" "tmpdir=$work" \
    "pidfile=$work/zot.pid" >zot.cfg && chmod 600 zot.cfg && "$work/zot" "$work/zot.cfg" >start.log; do
    port=$((port + 1))
    [ $port -lt 9100 ] || { cat start.log; exit 1; }
done
watch
for event in "kill -9" ReloadApp "kill -9" "kill -ABRT" upgrade "kill -9"; do
    before=$(old)
    case $event in
    kill*) $event "$before" ;;
    upgrade) attempt ask upgrade zot ;;
    *) attempt ask "$event" ;;
    esac
    attempt replaced
    # As long as the upgrade's guard is there, it is the one to start the agent again.
    attempt unguarded
done
[ "$(grep -c 'ended unasked' said)" = 4 ]
# Asked to end.
attempt ask QUIT
attempt unwatched
[ ! -e zot.pid ]
# A start that cannot work is not tried again.
"$work/zot" "$work/zot.cfg" >/dev/null
watch
before=$(old)
sed -i 's/^password=.*//' zot.cfg
kill -9 "$before"
attempt unwatched
grep -q 'cannot start (exit code 1), no further try' said
