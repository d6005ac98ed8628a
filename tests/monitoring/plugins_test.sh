#!/bin/sh
# plugins_test.sh SOURCE BUILD: the guide's definitions for Nagios and Icinga 2, run by these.
set -eu
source=$1
build=$2
for tool in nagios4 icinga2; do
    command -v $tool >/dev/null || { echo "SKIPPED: needs $tool"; exit 77; }
done
work=$(mktemp -d)
agent=
nagios=
finish() {
    for process in $agent $nagios; do kill "$process" 2>/dev/null || true; done
    wait
    rm -rf "$work"
}
trap finish EXIT
fail() {
    echo "FAILED: $*"
    tail -n 30 "$work"/*.log
    exit 1
}
# await TEXT FILE
await() {
    tries=0
    until grep -q "$1" "$2" 2>/dev/null; do
        tries=$((tries + 1))
        [ $tries -lt 200 ] || fail "no $1"
        sleep 0.1
    done
}

mkdir "$work/hosts" "$work/results" "$work/spool"
echo secret >"$work/hosts/web1"
chmod 600 "$work/hosts/web1"
echo 'the log begins' >"$work/shop"
port=$((3000 + $$ % 6000))
until grep -q 'Listening' "$work/agent.log" 2>/dev/null; do
    port=$((port + 1))
    printf 'port=%s\nhost=127.0.0.1\npassword=secret\nzotpath=%s\n' $port "$build/zot" >"$work/zot.cfg"
    "$build/zot" -i "$work/zot.cfg" >"$work/agent.log" 2>&1 &
    agent=$!
    until grep -q 'Listening\|TCP listen error' "$work/agent.log" 2>/dev/null; do sleep 0.1; done
done
# The guide, with this test's client, passwords, host and log.
sed -e "s#/usr/bin/zotq#$build/zotq -p $port#" -e "s#/etc/zot/hosts#$work/hosts#g" \
    -e "s#-H web1#-H 127.0.0.1#; s#/var/log/shop.log#$work/shop#g; s#192.0.2.11#127.0.0.1#" \
    -e "s#-c 90 disk#-c 100 disk#; s#-w 80#-w 99.9#" "$source/docs/guide.md" >"$work/guide"

# Nagios: the definitions of the guide, in seconds instead of minutes.
sed -n '/^define command {/,/^```/p' "$work/guide" | sed '/^```/d' >"$work/objects.cfg"
cat >>"$work/objects.cfg" <<END
define contact {
    contact_name nobody
    host_notification_commands up
    service_notification_commands up
}
define command {
    command_name up
    command_line /bin/true
}
define host {
    host_name web1
    address 127.0.0.1
    check_command up
    max_check_attempts 1
}
define service {
    name generic-service
    register 0
    check_interval 1
    retry_interval 1
    max_check_attempts 3
    contacts nobody
}
END
cat >"$work/nagios.cfg" <<END
cfg_file=$work/objects.cfg
log_file=$work/nagios.log
status_file=$work/status
state_retention_file=$work/retention
object_cache_file=$work/cache
precached_object_file=$work/precached
temp_file=$work/temp
temp_path=$work
check_result_path=$work/results
command_file=$work/commands
query_socket=$work/query
lock_file=$work/lock
nagios_user=$(id -un)
nagios_group=$(id -gn)
interval_length=1
status_update_interval=1
check_external_commands=0
enable_notifications=0
END
nagios4 -v "$work/nagios.cfg" >"$work/verify.log" 2>&1 || fail "nagios4 -v"
HOME=$work XDG_STATE_HOME=$work nagios4 "$work/nagios.cfg" >"$work/nagios.out.log" 2>&1 &
nagios=$!
await 'plugin_output=DISK OK' "$work/status"
await 'plugin_output=LOG OK' "$work/status"
echo 'error: no money' >>"$work/shop"
# With one attempt the single line that was found is a hard state.
await 'SERVICE ALERT: web1;errors of the shop;CRITICAL;HARD;1;LOG CRITICAL' "$work/nagios.log"

{
    printf 'include <itl>\ninclude "%s"\n' "$source/packaging/icinga2/zot.conf"
    sed -n '/^object Host "web1" {/,/^```/p' "$work/guide" | sed '/^```/d'
} >"$work/icinga2.conf"
icinga2 daemon -C -c "$work/icinga2.conf" -D "DataDir=$work" -D "LogDir=$work" -D "CacheDir=$work" \
    -D "InitRunDir=$work" -D "SpoolDir=$work" -D RunAsUser="$(id -un)" -D RunAsGroup="$(id -gn)" \
    >"$work/icinga2.log" 2>&1 || fail "icinga2"
grep -q 'Instantiated 2 Services' "$work/icinga2.log" || fail "services of icinga2"
if grep -i warning "$work/icinga2.log"; then fail "warnings of icinga2"; fi
