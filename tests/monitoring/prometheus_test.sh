#!/bin/sh
# prometheus_test.sh SOURCE: the shipped scrape configuration and alerts, as Prometheus reads them, and
# each alert firing when it should and not when it should not.
set -eu
cd "$1/packaging/prometheus"
if ! command -v promtool >/dev/null; then
    echo "SKIPPED: needs promtool"
    exit 77
fi
promtool check config scrape.yml
promtool check rules alerts.yml
promtool test rules alerts_test.yml
# An alert without a test would be found out by its first false alarm.
sed -n 's/.*- alert: //p' alerts.yml | while read -r alert; do
    grep -A 3 "alertname: $alert\$" alerts_test.yml | grep -q exp_alerts ||
        { echo "no test lets $alert fire"; exit 1; }
done

# The dashboard's queries, as Prometheus parses them once Grafana has filled in its variables.
queries=$(mktemp)
trap 'rm -f "$queries"' EXIT
# The variables are Grafana's.
# shellcheck disable=SC2016
{
    printf 'groups:\n  - name: dashboard\n    rules:\n'
    sed -n 's/^ *"expr": "\(.*\)",$/\1/p' ../grafana/fleet.json |
        sed -e 's/\\"/"/g' -e 's/\$__rate_interval/5m/g' -e 's/\$job/zot/g' -e 's/\$host/.*/g' |
        awk '{ printf "      - record: query:%d\n        expr: >-\n          %s\n", NR, $0 }'
} >"$queries"
[ "$(grep -c '"expr"' ../grafana/fleet.json)" -eq "$(grep -c record: "$queries")" ]
promtool check rules "$queries"
grep -q '"uid": "zot-fleet"' ../grafana/fleet.json
# A metric that the exporter does not have would leave an alert or a panel empty for ever.
grep -ohE '(zot|probe|process)_[a-z_]+' alerts.yml "$queries" | sort -u | while read -r metric; do
    grep -q "\"$metric\"" "$1"/exporter/*.cpp || { echo "the exporter has no $metric"; exit 1; }
done
