#!/bin/sh
# tour_test.sh SOURCE BUILD: the tour of the fleet shows what it promises, Alertmanager has the alerts,
# and every query of the dashboard gets an answer from its Prometheus.
set -eu
source=$1
for tool in prometheus prometheus-alertmanager curl; do
    command -v $tool >/dev/null || { echo "SKIPPED: needs $tool"; exit 77; }
done
work=$(mktemp -d)
NO_BUILD=1 BUILD_DIR=$2 sh "$source/tools/demo-fleet.sh" --stay >"$work/output" 2>&1 &
tour=$!
finish() {
    kill $tour 2>/dev/null || true
    wait $tour || true
    rm -rf "$work"
}
trap finish EXIT
fail() { cat "$work/output"; echo "$*"; exit 1; }

until grep -q '^Prometheus  ' "$work/output"; do
    kill -0 $tour 2>/dev/null || fail "the tour ended"
    sleep 0.1
done
# heard HEADING LINE...: what follows the heading, in order.
heard() {
    sed -n "/--- $1/,/^---/p" "$work/output" | sed '/^---/d; /^$/d' >"$work/heard"
    shift
    printf '%s\n' "$@" | diff - "$work/heard" || fail "the tour tells something else"
}
heard 'Prometheus finds 20 hosts' '18 of 20 hosts answer'
heard 'Why two' 'host3: closed' 'host7: connect_refused'
for heading in 'The alerts' 'What Alertmanager'; do
    sed -i 's/^\(host5: .* has\) [0-9.]*%/\1 some/' "$work/output"
    heard "$heading" 'host3 hangs up: wrong password, or it does not serve this address' \
        'host5: / has some left' 'host7 gives no answer: connect_refused'
done

# All panels have data here, but for that of a check that the tour does not make.
url=$(sed -n 's/^Prometheus  *//p' "$work/output")
# The variables are Grafana's.
# shellcheck disable=SC2016
sed -n 's/^ *"expr": "\(.*\)",$/\1/p' "$source/packaging/grafana/fleet.json" |
    sed -e 's/\\"/"/g' -e 's/\$__rate_interval/1m/g' -e 's/\$job/zot/g' -e 's/\$host/.*/g' >"$work/queries"
[ "$(grep -c . "$work/queries")" -ge 10 ] || fail "the dashboard has lost its queries"
answered() {
    answer=$(curl -s -G "${url}api/v1/query" --data-urlencode "query=$1")
    case $1:$answer in
    *'"status":"success"'*'"value":['*) ;;
    zot_cpu_usage_ratio*'"status":"success"'*'"result":[]'*) ;;
    *) return 1 ;;
    esac
}
while read -r query; do
    # A rate needs two scrapes.
    tries=0
    until answered "$query"; do
        tries=$((tries + 1))
        [ $tries -lt 100 ] || fail "$query: $answer"
        sleep 0.2
    done
done <"$work/queries"
