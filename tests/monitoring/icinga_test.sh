#!/bin/sh
# icinga_test.sh SOURCE BUILD: Icinga 2 reads the shipped command with ten hosts that use it.
set -eu
source=$1
build=$2
if ! command -v icinga2 >/dev/null; then
    echo "SKIPPED: needs icinga2"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
{
    echo 'include <itl>'
    echo "include \"$source/packaging/icinga2/zot.conf\""
    for n in 1 2 3 4 5 6 7 8 9 10; do
        echo "object Host \"web$n\" { check_command = \"zot\";"
        echo 'address = "127.0.0.1"; vars.zot_check = "agent" }'
    done
    cat <<END
apply Service "disk" {
  check_command = "zot"
  vars.zot_check = "disk"
  vars.zot_arguments = [ "/" ]
  vars.zot_warning = "80"
  assign where host.address
}
apply Service "errors" {
  check_command = "zot"
  vars.zot_check = "log"
  vars.zot_arguments = [ "/var/log/shop.log", "error" ]
  vars.zot_hold = 30
  assign where host.address
}
END
} >"$work/icinga2.conf"
chmod -R a+rX "$work"
icinga2 daemon -C -c "$work/icinga2.conf" -D "DataDir=$work" -D "LogDir=$work" -D "CacheDir=$work" \
    -D "InitRunDir=$work" -D "SpoolDir=$work" -D RunAsUser="$(id -un)" -D RunAsGroup="$(id -gn)" \
    >"$work/output" 2>&1 || { cat "$work/output"; exit 1; }
grep -q 'Instantiated 10 Hosts' "$work/output"
grep -q 'Instantiated 20 Services' "$work/output"
if grep -i warning "$work/output"; then exit 1; fi
# Every option that the command gives must be one of zotq.
"$build/zotq" --help >"$work/help"
sed -n 's/^ *"\(-[^"]*\)" = {/\1/p' "$source/packaging/icinga2/zot.conf" | while read -r option; do
    grep -q -e "^ *${option}[, ]" -e ",${option} " "$work/help" || { echo "zotq has no $option"; exit 1; }
done
