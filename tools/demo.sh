#!/bin/sh
# A tour of zot: builds it, starts it with a throw-away configuration, asks it every kind of question,
# changes a setting, upgrades it over the network and stops it. It builds without optimising, which
# takes half the time; BUILD_DIR names a build directory to use instead.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
build=${BUILD_DIR:-build-demo}

demo=$(mktemp -d)
agent=
progress=
finish() {
    # A second signal, as timeout(1) sends it, must not end the clearing up.
    trap '' HUP INT TERM
    for process in $agent $progress; do kill "$process" 2>/dev/null || true; done
    wait
    rm -rf "$demo"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

export ZOT_PASSWORD="a password for the demo"
system=linux
[ "$(uname)" = FreeBSD ] && system=freebsd

# On a terminal, how far the build is.
show_progress() {
    [ -t 1 ] || return 0
    while sleep 1; do
        printf '\r%s ' "$(sed -n 's/^\[ *\([0-9/]*%*\)\].*/\1/p' "$demo/build" | tail -n 1)"
    done
}

# What the compiler says is shown only if it fails.
build_programs() {
    install_tools build
    echo "Building agent and client, two minutes the first time."
    : >"$demo/build"
    show_progress &
    progress=$!
    {
        { [ -f "$build/CMakeCache.txt" ] || cmake -B "$build" -DCMAKE_CXX_FLAGS_RELEASE=-O0; } &&
            cmake --build "$build" -j "$(cpu_count)" --target zot zotq
    } >"$demo/build" 2>&1 || { cat "$demo/build"; exit 1; }
    kill $progress 2>/dev/null || true
    progress=
}

# Ports below those that the system gives to connections, each tried until one is free.
start_agent() {
    port=$((3000 + $$ % 6000))
    for _ in 1 2 3 4 5; do
        if agent_listens; then return; fi
        grep -q 'TCP listen error' "$demo/output" || break
        port=$((port + 1))
    done
    cat "$demo/output"
    exit 1
}

agent_listens() {
    # An upgrade replaces the agent's file, so it runs from a copy. The scripts' folder must have a
    # name without blanks.
    cp "$build/zot" scripts/zot_proc*.sh "scripts/$system/zot_cpu.sh" "$demo"
    cat >"$demo/zot.cfg" <<END
host=127.0.0.1
port=$port
password=$ZOT_PASSWORD
zotpath=$demo/zot
tmpdir=$demo
comment=the demo
filteractive=1
filterlist=127.0.0.1
filtermarks=1
executeaction=1
tcpudpaction=1
syslogaction=1
proccntscript=zot_proccnt.sh
proclistscript=zot_proclist.sh
cpuusagescript=zot_cpu.sh
END
    "$demo/zot" -i "$demo/zot.cfg" >"$demo/output" 2>&1 &
    agent=$!
    until grep -q 'Listening' "$demo/output"; do
        kill -0 "$agent" 2>/dev/null || return 1
        sleep 0.1
    done
}

heading() { printf '\n--- %s\n\n' "$*"; }

# show COMMAND [ARGUMENT...]: shows the command as somebody would type it.
show() {
    printf '$'
    for word in "$@"; do
        case $word in
        *\'*) printf ' "%s"' "$word" ;;
        '' | *[!A-Za-z0-9_./:%+=-]*) printf " '%s'" "$word" ;;
        *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
}

# expect CODE ARGUMENT...: shows the command and what zotq prints; its exit code must be CODE.
expect() {
    code=$1
    shift
    show zotq "$@"
    result=0
    "$build/zotq" -p "$port" "$@" >"$demo/reply" 2>&1 || result=$?
    tr -d '\r' <"$demo/reply" | sed 's/^/    /'
    echo
    [ "$result" -eq "$code" ] || { echo "zotq ended with $result instead of $code"; exit 1; }
}

# ask COMMAND [PARAM...]: a question that gets an answer.
ask() { expect 0 -u "$@"; }

build_programs
heading "The agent starts"
start_agent
cat "$demo/output"

heading "Questions that people ask"
expect 0 status
expect 0 disk / /tmp
expect 0 -o json disk /

heading "Many hosts at once, one of them down: here two names of this agent"
printf '%s\n' "$ZOT_PASSWORD" >"$demo/password"
chmod 600 "$demo/password"
cat >"$demo/hosts" <<END
web1:$port addr=127.0.0.1 password=$demo/password groups=web
web2:$port addr=127.0.0.1 password=$demo/password groups=web
db1:9 addr=127.0.0.1 password=$demo/password
END
expect 3 --hosts "$demo/hosts" status
expect 0 --hosts "$demo/hosts" -H @web -o ndjson cpu
expect 0 --hosts "$demo/hosts" -x db1 --fold settings --fields timeout,cpu_usage,allow_updates

heading "What it is and what it offers"
ask GetInfo

heading "TCP and UDP services: here the agent's own port, and a UDP port where nobody answers"
ask TEST-TCP 127.0.0.1 "$port" 2000 '' 0
expect 1 TEST-UDP 127.0.0.1 9 1000 1 hello 16

mkdir "$demo/files" "$demo/files/sub"
echo "first line" >"$demo/files/one.txt"
echo "an error stands here" >"$demo/files/two.log"
cp README.md "$demo/files/sub/three.md"

heading "Space, sizes and counts: bytes in all, free and available, and the milliseconds it took"
ask TEST-UNC /
ask TEST-FolderSize "$demo/files" 1
ask TEST-CountFiles "$demo/files" '*' 1 0 0

heading "One file: size, change and modification time, age in minutes; and the newest by a macro"
ask TEST-FileExists "$demo/files/*.log"
ask TEST-FileExists "$demo/files/%newestfile%" 0 0 0 0 0 1

heading "Comparing files, and looking for a text in one"
ask TEST-FileCompare 1 "$demo/files/one.txt" "$demo/files/two.log" 0 1 1
ask TEST-FileCompare 3 "$demo/files/two.log" ERROR 0 1

heading "Hashes: CRC-32 without its final inversion, MD5, SHA-256, SHA-512"
for algorithm in 0 1 2 3; do ask TEST-FileHash "$demo/files/one.txt" "$algorithm" 0; done

heading "What is in a folder: name, attributes and size of each entry"
ask GetFilesList "$demo/files" '*' 1 1 0 0 1 0 0

heading "Watching a log: the first scan notes its end, the next finds what was added"
ask TEST-TextLog "$demo/files/two.log" error 0 0 0 0 1 0 0
echo "another error" >>"$demo/files/two.log"
ask TEST-TextLog "$demo/files/two.log" error 20 21 1 0 1 0 0
ask TEST-TextLog2 "$demo/files/two.log" 0 1 1 1 \
    "'%data%' getword 2 == 'error' and '%data%' getword 1 <> 'an'" 2 0 0 0

heading "Processes and programs, by the scripts that come with zot"
ask TEST-Process 0 zot
ask TEST-CPU
ask GetProcessesList >"$demo/list"
head -n 8 "$demo/list"
ask TEST-ExternalPrg 'sh -c "exit 3"' 0 0 5000

heading "A script that is sent with the request"
# The script is for the agent's shell, not for this one.
# shellcheck disable=SC2016
ask TEST-ShellScript '/bin/sh %script% %params%' 'echo "I got $1"
echo "scriptres: fine"' 'a-parameter' 10 5

heading "Actions: a command, data to a TCP service (the agent itself, which ignores it), syslog"
ask ACT-ExternalCmd "touch made-by-the-agent" "$demo/files" 0 5000
ask GetFilesList "$demo/files" 'made*' 0 1 0 0 0 0 0
ask ACT-TCPUDPsend 127.0.0.1 "$port" 0 'a line' 0
ask ACT-Syslog 127.0.0.1 514 1 6 'a message of the demo'

heading "As a plugin of a monitoring system: a status line, data, and the exit code"
expect 0 --plugin -w 99.9 -c 100 disk /
expect 2 --plugin -c 1: files "$demo/files" '*.missing'
expect 0 --plugin --state "$demo/state" log "$demo/files/two.log" error
echo "error: a third one" >>"$demo/files/two.log"
expect 2 --plugin --state "$demo/state" log "$demo/files/two.log" error
expect 0 --json TEST-FileHash "$demo/files/one.txt" 1 0

heading "A setting is changed: at once, in the file, and read back; not one that locks us out"
expect 0 set --dry-run Timeout=8000
expect 2 set IPFilterAddr=192.0.2.1
ask set 'Comment=changed over the network' Timeout=8000
ask GetInfo >"$demo/info"
grep -e '^\$' -e Comment "$demo/info"
grep -e '^comment=' -e '^timeout=' "$demo/zot.cfg" | tr -d '\r' | sed 's/^/    zot.cfg: /'

heading "An upgrade: the new executable comes over the network and replaces the running one"
expect 0 --hosts "$demo/hosts" -H @web upgrade --dry-run --canary web1 --list "$demo/rollout" "$build/zot"
expect 0 upgrade "$build/zot"
ask GetInfo >"$demo/info"
grep -e '^\$' -e AgentVersion -e Comment -e OpenedConnections "$demo/info"

heading "What it refuses"
expect 1 TEST-Service
expect 1 NoSuchCommand
ZOT_PASSWORD="not the password"
expect 3 GetInfo
ZOT_PASSWORD="a password for the demo"

heading "The agent stops"
ask QUIT
wait "$agent" && echo "The agent has ended with exit code 0."
agent=
