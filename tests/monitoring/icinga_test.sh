#!/bin/sh
# icinga_test.sh SOURCE BUILD: Icinga 2 reads the shipped command with ten hosts that use it, and checks
# ten agents with it.
set -eu
source=$1
build=$2
if ! command -v icinga2 >/dev/null; then
    echo "SKIPPED: needs icinga2"
    exit 77
fi
work=$(mktemp -d)
pids=
finish() {
    # The list is split into words on purpose.
    # shellcheck disable=SC2086
    [ -z "$pids" ] || kill $pids 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap finish EXIT
# in_private_folders CONFIGURATION OPTION...: runs Icinga as whoever we are.
in_private_folders() {
    config=$1
    shift
    exec icinga2 daemon -c "$config" -D "DataDir=$work" -D "LogDir=$work" -D "CacheDir=$work" \
        -D "InitRunDir=$work" -D "SpoolDir=$work" -D RunAsUser="$(id -un)" -D RunAsGroup="$(id -gn)" "$@"
}
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
(in_private_folders "$work/icinga2.conf" -C) >"$work/output" 2>&1 || { cat "$work/output"; exit 1; }
grep -q 'Instantiated 10 Hosts' "$work/output"
grep -q 'Instantiated 20 Services' "$work/output"
if grep -i warning "$work/output"; then exit 1; fi
# Every option that the command gives must be one of zotq.
"$build/zotq" --help >"$work/help"
sed -n 's/^ *"\(-[^"]*\)" = {/\1/p' "$source/packaging/icinga2/zot.conf" | while read -r option; do
    grep -q -e "^ *${option}[, ]" -e ",${option} " "$work/help" || { echo "zotq has no $option"; exit 1; }
done

# Ten agents, of which the last has another password.
port=$((20000 + $$ % 20000))
sed "s#/usr/bin/zotq#$build/zotq#" "$source/packaging/icinga2/zot.conf" >"$work/zot.conf"
mkdir "$work/hosts"
{
    echo 'include <itl>'
    echo "include \"$work/zot.conf\""
    echo 'object CheckerComponent "checker" {}'
    echo "object PerfdataWriter \"results\" { rotation_interval = 1s"
    echo "host_temp_path = \"$work/writing\"; host_perfdata_path = \"$work/results\""
    # The variables are Icinga's.
    # shellcheck disable=SC2016
    echo 'host_format_template = "$host.name$ $host.state$ $host.output$" }'
    for n in 1 2 3 4 5 6 7 8 9 10; do
        password=secret
        [ $n -lt 10 ] || password=another
        printf 'host=127.0.30.%d\nport=%d\npassword=%s\nzotpath=%s\ntmpdir=%s\n' \
            $n $port $password "$build/zot" "$work" >"$work/$n.cfg"
        "$build/zot" -i "$work/$n.cfg" >"$work/$n.output" 2>&1 &
        pids="$pids $!"
        echo secret >"$work/hosts/web$n"
        echo "object Host \"web$n\" { check_command = \"zot\"; address = \"127.0.30.$n\""
        echo "check_interval = 2s; vars.zot_check = \"agent\"; vars.zot_port = $port"
        echo "vars.zot_password_file = \"$work/hosts/\$host.name\$\" }"
    done
} >"$work/run.conf"
in_private_folders "$work/run.conf" >"$work/output" 2>&1 &
pids="$pids $!"
tries=0
until cat "$work"/results.* 2>/dev/null | sort -u -k1,1 >"$work/first" &&
    [ "$(wc -l <"$work/first")" -eq 10 ]; do
    tries=$((tries + 1))
    [ $tries -lt 600 ] || { cat "$work/output" "$work/first"; exit 1; }
    sleep 0.1
done
if [ "$(grep -c '^web[1-9] UP AGENT OK' "$work/first")" -ne 9 ] ||
    ! grep -q '^web10 DOWN .*wrong password' "$work/first"; then
    cat "$work/first"
    exit 1
fi
