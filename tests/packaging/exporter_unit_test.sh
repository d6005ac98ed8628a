#!/bin/sh
# exporter_unit_test.sh SOURCE EXPORTER: the exporter's service unit is one that systemd understands, and
# leaves the exporter next to nothing that it does not need.
set -eu
if ! command -v systemd-analyze >/dev/null; then
    echo "SKIPPED: needs systemd-analyze"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unit=$work/zot-exporter.service
sed -e "s#@ZOT_SYSCONFDIR@#/etc#g" -e "s#@ZOT_BINDIR@/zot-exporter#$2#g" \
    "$1/packaging/systemd/zot-exporter.service.in" >"$unit"
if grep -n '@ZOT' "$unit"; then exit 1; fi
complaints=$(systemd-analyze verify --man=no "$unit" 2>&1 | grep zot-exporter.service || true)
[ -z "$complaints" ] || { echo "$complaints"; exit 1; }
# In tenths: below 2.
systemd-analyze security --offline=true --no-pager --threshold=19 "$unit" >"$work/exposure" ||
    { cat "$work/exposure"; exit 1; }
