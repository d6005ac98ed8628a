#!/bin/sh
# units_test.sh SOURCE BUILD: the service units are ones that systemd understands, and leave their
# programs little that they do not need: rated by systemd, in tenths.
set -eu
if ! command -v systemd-analyze >/dev/null; then
    echo "SKIPPED: needs systemd-analyze"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
while read -r name threshold; do
    unit=$work/$name.service
    sed -e "s#@ZOT_SYSCONFDIR@#/etc#g" -e "s#@ZOT_S\{0,1\}BINDIR@#$2#g" \
        -e "s#@ZOT_PIDFILE@#/run/zot.pid#g" "$1/packaging/systemd/$name.service.in" >"$unit"
    if grep -n '@ZOT' "$unit"; then exit 1; fi
    complaints=$(systemd-analyze verify --man=no "$unit" 2>&1 | grep "$name.service" || true)
    # The exporter is not built everywhere.
    complaints=$(printf '%s' "$complaints" | grep -v "zot-exporter is not executable" || true)
    [ -z "$complaints" ] || { echo "$complaints"; exit 1; }
    systemd-analyze security --offline=true --no-pager --threshold="$threshold" "$unit" \
        >"$work/exposure" || { cat "$work/exposure"; exit 1; }
done <<END
zot 49
zot-unprivileged 29
zot-exporter 19
END
