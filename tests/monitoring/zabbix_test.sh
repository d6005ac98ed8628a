#!/bin/sh
# zabbix_test.sh BUILD GUIDE: a Zabbix server takes the template and the external check of the guide, in
# a system of its own with the packages.
set -eu
build=$1
guide=$2
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../packaging/private_root.sh"
require_private_root
for tool in zabbix_server psql php curl; do
    command -v $tool >/dev/null || { echo "SKIPPED: needs $tool"; exit 77; }
done
[ -d /usr/share/zabbix ] || { echo "SKIPPED: needs the pages of Zabbix"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build_packages "$build" 2 "$work"
[ -e "$work/zot-exporter_2.deb" ] || { echo "SKIPPED: needs zot-exporter"; exit 77; }
cp "$guide" "$work/guide.md"
run_in_private_root "$here/zabbix_life.sh" "$work"
