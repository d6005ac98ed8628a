#!/bin/sh
# Builds zot, starts it with a throw-away configuration, asks it real questions and stops it.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh

install_tools build
[ -f build/CMakeCache.txt ] || cmake -B build >/dev/null
cmake --build build -j "$(cpu_count)" --target zot zotq

demo=$(mktemp -d)
agent=
finish() {
    [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
    rm -rf "$demo"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

export ZOT_PASSWORD="a password for the demo"
port=$((20000 + $$ % 20000))

start_agent() {
    cat >"$demo/zot.cfg" <<END
host=127.0.0.1
port=$port
password=$ZOT_PASSWORD
zotpath=$PWD/build/zot
tmpdir=$demo
comment=the demo
END
    build/zot -i "$demo/zot.cfg" >"$demo/output" 2>&1 &
    agent=$!
    until grep -q 'Listening' "$demo/output"; do
        kill -0 "$agent" 2>/dev/null || { cat "$demo/output"; exit 1; }
        sleep 0.1
    done
}

heading() { printf '\n--- %s\n\n' "$*"; }

# ask COMMAND [PARAM...]: shows the question as one would type it, and the answer.
ask() {
    printf '$ zotq'
    for word in "$@"; do
        case $word in
        '' | *[!A-Za-z0-9_./:%+=-]*) printf " '%s'" "$word" ;;
        *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
    build/zotq -p "$port" -u "$@" | tr -d '\r' | sed 's/^/    /'
    echo
}

heading "The agent starts"
start_agent
cat "$demo/output"

heading "What it is and what it offers"
ask GetInfo

heading "TCP and UDP services: here the agent's own port, and a UDP port where nobody answers"
ask TEST-TCP 127.0.0.1 "$port" 2000 '' 0
ask TEST-UDP 127.0.0.1 9 1000 1 hello 16

heading "What it refuses"
ask TEST-Service
ask NoSuchCommand
ZOT_PASSWORD="not the password" ask GetInfo || true

heading "The agent stops"
ask QUIT
wait "$agent" && echo "The agent has ended with exit code 0."
agent=
