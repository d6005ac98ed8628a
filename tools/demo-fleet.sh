#!/bin/sh
# A fleet on this machine: twenty agents on 127.0.20.x, zot-exporter, Prometheus and, where it is
# installed, Alertmanager. One agent is stopped, one has another password and one disk alarm is set
# too high; shown is what Prometheus says, and what Alertmanager received.
#   sh tools/demo-fleet.sh [--stay]     --stay leaves everything running, to look at in a browser
# BUILD_DIR names another build directory, which is taken as it is with NO_BUILD=1. Needs prometheus
# and curl.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
build=${BUILD_DIR:-build}
case $build in /*) ;; *) build=$PWD/$build ;; esac
hosts=20

missing=
want prometheus command -v prometheus
want curl command -v curl
install_missing
if [ -z "${NO_BUILD:-}" ]; then
    install_tools build
    [ -f "$build/CMakeCache.txt" ] || cmake -B "$build" >/dev/null
    cmake --build "$build" -j "$(cpu_count)" --target zot zot-exporter
fi

demo=$(mktemp -d)
pids=
finish() {
    # A second signal, as timeout(1) sends it, must not end the clearing up.
    trap '' HUP INT TERM
    # The list is split into words on purpose.
    # shellcheck disable=SC2086
    [ -z "$pids" ] || kill $pids 2>/dev/null || true
    wait
    rm -rf "$demo"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

# Below the ports that the system gives to connections, and four that nobody listens on.
port=$((3000 + $$ % 1475 * 4))
is_free() {
    code=0
    curl -s -o /dev/null --max-time 1 "http://127.0.0.1:$1/" || code=$?
    [ $code -eq 7 ]
}
for _ in 1 2 3 4 5 6 7 8 9; do
    if is_free $port && is_free $((port + 1)) && is_free $((port + 2)) && is_free $((port + 3)); then
        break
    fi
    port=$((3000 + (port - 2996) % 5900))
done
metrics=$((port + 1))
prometheus=$((port + 2))
alertmanager=$((port + 3))
password="a password for the demo"

start_agent() {
    mkdir "$demo/$1"
    cat >"$demo/$1/zot.cfg" <<END
host=$2
port=$port
password=$3
zotpath=$build/zot
tmpdir=$demo/$1
END
    "$build/zot" -i "$demo/$1/zot.cfg" >"$demo/$1/output" 2>&1 &
    pids="$pids $!"
}

until_true() {
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 300 ] || { echo "this never came true: $*"; cat "$demo"/*.log; exit 1; }
        sleep 0.1
    done
}

printf '%s\n' "$password" >"$demo/password"
chmod 600 "$demo/password"
n=1
while [ $n -le $hosts ]; do
    group=web
    [ $n -le 15 ] || group=db
    echo "host$n:$port addr=127.0.20.$n password=$demo/password groups=$group" >>"$demo/hosts"
    case $n in
    3) start_agent host$n 127.0.20.$n "another password" ;;
    7) ;; # nobody is there
    *) start_agent host$n 127.0.20.$n "$password" ;;
    esac
    n=$((n + 1))
done
cat >"$demo/exporter.yml" <<END
hosts: hosts
state: .
modules:
  base:
    checks:
      - {name: agent, type: info}
      - {name: root, type: disk, path: /}
      - {name: shop_errors, type: log, path: $demo/shop.log, pattern: error}
END
echo "an error that was there before" >"$demo/shop.log"
"$build/zot-exporter" --config.file="$demo/exporter.yml" \
    --web.listen-address=127.0.0.1:$metrics 2>"$demo/exporter.log" &
pids="$pids $!"

# The shipped configuration and alerts, on these ports and without their patience of minutes; the
# threshold of one disk alarm is one that every disk crosses.
{
    printf 'global: {scrape_interval: 2s, scrape_timeout: 2s, evaluation_interval: 2s}\n'
    printf 'alerting: {alertmanagers: [{static_configs: [{targets: ["127.0.0.1:%d"]}]}]}\n' $alertmanager
    sed "s/127.0.0.1:9965/127.0.0.1:$metrics/" packaging/prometheus/scrape.yml
} >"$demo/prometheus.yml"
sed -e 's/for: [25]m/for: 0s/' -e 's/< 0\.1$/< 1.1 and on (instance) probe_success{instance="host5"}/' \
    packaging/prometheus/alerts.yml >"$demo/alerts.yml"
prometheus --config.file="$demo/prometheus.yml" --storage.tsdb.path="$demo/data" \
    --web.listen-address=127.0.0.1:$prometheus >"$demo/prometheus.log" 2>&1 &
pids="$pids $!"

if command -v prometheus-alertmanager >/dev/null; then
    printf 'route: {receiver: nobody, group_wait: 0s}\nreceivers: [{name: nobody}]\n' \
        >"$demo/alertmanager.yml"
    prometheus-alertmanager --config.file="$demo/alertmanager.yml" --storage.path="$demo" \
        --web.listen-address=127.0.0.1:$alertmanager --cluster.listen-address= \
        >"$demo/alertmanager.log" 2>&1 &
    pids="$pids $!"
fi

ask() { curl -s -G "http://127.0.0.1:$prometheus/api/v1/query" --data-urlencode "query=$1"; }
says() { ask "$1" | grep -q "\"$2\"\]"; }
heading() { printf '\n--- %s\n\n' "$*"; }

heading "Prometheus finds $hosts hosts in the exporter's list, and asks each"
until_true says 'count(probe_success)' $hosts
until_true says 'sum(probe_success)' $((hosts - 2))
echo "$((hosts - 2)) of $hosts hosts answer"

heading "Why two of them do not"
until_true says 'count(probe_failure_info)' 2
ask 'probe_failure_info' | tr '{' '\n' | sed -n 's/.*"instance":"\([^"]*\)".*"reason":"\([^"]*\)".*/\1: \2/p'

heading "The alerts that fire"
until_true says 'count(ALERTS{alertstate="firing",alertname=~"ZotHostDown|ZotWrongPassword|ZotDiskFull"})' 3
curl -s "http://127.0.0.1:$prometheus/api/v1/alerts" | tr '{' '\n' |
    sed -n 's/.*"summary":"\([^"]*\)"},"state":"firing".*/\1/p' | sort -u

if command -v prometheus-alertmanager >/dev/null; then
    received() { curl -s "http://127.0.0.1:$alertmanager/api/v2/alerts"; }
    all_received() { [ "$(received | grep -oE '"alertname":"Zot(HostDown|WrongPassword|DiskFull)"' | wc -l)" -eq 3 ]; }
    heading "What Alertmanager received"
    until_true all_received
    received | tr '{' '\n' | sed -n 's/.*"summary":"\([^"]*\)".*/\1/p' | sort -u
fi

heading "The fleet, as the exporter's page has it"
curl -s "http://127.0.0.1:$metrics/?state=failed" |
    sed -n 's/.*host?name=\([^"]*\)".*data-label="Reason">\([^<]*\)<.*/\1  \2/p'

if [ "${1:-}" = --stay ]; then
    heading "Everything runs until you press Ctrl-C"
    echo "exporter     http://127.0.0.1:$metrics/"
    echo "Prometheus   http://127.0.0.1:$prometheus/"
    ! command -v prometheus-alertmanager >/dev/null ||
        echo "Alertmanager http://127.0.0.1:$alertmanager/"
    wait
fi
heading "That is all"
