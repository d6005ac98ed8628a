# shellcheck shell=sh
# Sourced in a private system, beside the packages: the life of the exporter's, without an agent and
# then with one to ask.
# shellcheck source=tests/packaging/life.sh
. ./life.sh

unit=/usr/lib/systemd/system/zot-exporter.service
if ! command -v systemd-sysusers >/dev/null || ! command -v setpriv >/dev/null; then
    echo "SKIPPED: needs systemd-sysusers and setpriv"
    exit 77
fi

# As the service does: its user, no capabilities and no way to get any.
as_service() {
    exec setpriv --reuid zot-exporter --regid zot-exporter --init-groups --bounding-set=-all \
        --no-new-privs -- "$@"
}

# Bash opens sockets by itself.
fetch() {
    bash -ec 'exec 3<>"/dev/tcp/127.0.0.1/9965"
        printf "GET %s HTTP/1.0\r\n\r\n" "$1" >&3
        cat <&3' bash "$1"
}

dpkg -i zot-exporter_2.deb >/dev/null
if command -v /usr/sbin/zot; then fail "an agent came with the exporter"; fi
[ "$(stat -c '%a %U %G' /var/lib/zot-exporter)" = "700 zot-exporter zot-exporter" ] ||
    fail "the state directory"

dpkg -i zot_2.deb >/dev/null
start_agent
# As the guide says.
install -d -m 0750 /etc/zot/hosts
echo "$ZOT_PASSWORD" >/etc/zot/hosts/127.0.0.1
chgrp -R zot-exporter /etc/zot/hosts
chmod -R g+rX /etc/zot/hosts
echo begin >/var/log/watched.log
sed -e "s/port: 1055.*/port: $port/" -e 's|/var/log/messages|/var/log/watched.log|' \
    /etc/zot/zot-exporter.yml.sample >/etc/zot/zot-exporter.yml
# shellcheck disable=SC2046  # The lines of the unit have several words.
(as_service $(sed -n 's/^ExecStartPre=//p' $unit)) || fail "the configuration is refused"
# shellcheck disable=SC2046
as_service $(sed -n 's/^ExecStart=//p' $unit) &
exporter=$!
until fetch /-/healthy >/dev/null 2>&1; do
    kill -0 $exporter || fail "the exporter ended"
    sleep 0.1
done
code=0
# shellcheck disable=SC2046
(as_service $(sed -n 's/^ExecStart=//p' $unit)) 2>/dev/null || code=$?
[ "$code" = "$(sed -n 's/^RestartForceExitStatus=//p' $unit)" ] || fail "port taken: exit code $code"
fetch '/probe?target=127.0.0.1&module=base,logs' | tr -d '\r' >page.txt
grep -qx 'probe_success 1' page.txt || { cat page.txt; fail "probe"; }
[ -n "$(find /var/lib/zot-exporter -type f -size +0)" ] || fail "no position of a log was kept"

dpkg -i zot-exporter_3.deb >/dev/null
[ -n "$(find /var/lib/zot-exporter -type f -size +0)" ] || fail "the upgrade removed the positions"
kill $exporter
wait $exporter || true
dpkg -P zot-exporter >/dev/null
[ ! -e /var/lib/zot-exporter ] || fail "the positions are left after the purge"
[ ! -e /etc/zot/zot-exporter.yml ] || fail "the configuration is left after the purge"
if getent passwd zot-exporter || getent group zot-exporter; then fail "the user is left"; fi
[ "$(stat -c %G /etc/zot/hosts/127.0.0.1)" = root ] || fail "the group is left on a password"
[ -e /etc/zot/zot.cfg ] || fail "the agent's configuration went too"
dpkg -P zot >/dev/null
echo "exporter installed, used, upgraded and purged"
