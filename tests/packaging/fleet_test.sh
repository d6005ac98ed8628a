#!/bin/sh
# fleet_test.sh BUILD GUIDE [HOSTS]: the guide's playbook, run by Ansible against systems that systemd has
# booted, the monitoring server and 2 or HOSTS of its ten, and the monitoring user asking afterwards.
set -eu
build=$(realpath "$1")
guide=$(realpath "$2")
count=${3:-2}
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root
require_systemd
if ! command -v ansible-playbook >/dev/null || ! /usr/bin/python3 -c 'import apt' 2>/dev/null; then
    echo "SKIPPED: needs ansible-core and python3-apt"
    exit 77
fi
monitor=127.0.1.21
if [ -z "${ZOT_FLEET_NETWORK:-}" ]; then
    # Whoever asks an agent has the monitor's address, not 127.0.0.1, which every agent serves.
    # The inner shell expands what is in single quotes.
    # shellcheck disable=SC2016
    ZOT_FLEET_NETWORK=own exec unshare --net sh -euc 'ip link set lo up
        ip route add local 127.0.1.0/24 dev lo src "$1"; shift; exec "$@"' sh $monitor "$0" "$@"
fi

work=$(mktemp -d)
group=zot-fleet-${work##*.}
systems=
finish() {
    for process in $systems; do kill -KILL "$process" 2>/dev/null || true; done
    wait
    remove_groups "$group"
    rm -rf "$work"
}
trap finish EXIT
# Systems in the background do not end by themselves when somebody interrupts the test.
trap 'exit 1' HUP INT TERM
agents=$(seq -f web%.0f "$count")
hosts="$agents monitor"
number=10
for name in $agents; do
    number=$((number + 1))
    echo "127.0.1.$number $name"
done >"$work/names"
for name in $hosts; do
    mkdir -p "$work/$name/tree/etc"
    { echo '127.0.0.1 localhost'; cat "$work/names"; } >"$work/$name/tree/etc/hosts"
    echo "$name" >"$work/$name/tree/etc/hostname"
    # With one network for all, no agent may start before it has its address.
    mkdir -p "$work/$name/tree/usr/sbin"
    printf '#!/bin/sh\nexit 101\n' >"$work/$name/tree/usr/sbin/policy-rc.d"
    chmod 755 "$work/$name/tree/usr/sbin/policy-rc.d"
    unshare --mount --pid --fork --kill-child --uts --ipc \
        sh -eu "$here/boot.sh" "$work/$name" "$group-$name" >"$work/$name/boot" 2>&1 &
    systems="$systems $!"
    echo $! >"$work/$name/pid"
done

# The files of the guide's chapter, each named by its first line, and beside them what they need.
mkdir "$work/play"
cd "$work/play"
awk '/^## / {inside = /by configuration management/} inside' "$guide" >chapter
awk '/^```(ini|yaml)$/ {inside = 1; next}
     /^```/ {inside = 0; name = ""}
     inside && name == "" {name = $2; system("mkdir -p $(dirname " name ")"); next}
     inside {print >name}' chapter
build_packages "$build" 1 "$work" "agent;client"
mkdir -p roles/zot/files
cp "$work/zot_1.deb" roles/zot/files/zot.deb
cp "$work/zotq_1.deb" zotq.deb
# In place of SSH: a command is run in the system of that name.
cat >ssh <<END
#!/bin/sh
while [ \$# -gt 2 ]; do shift; done
read -r process <"$work/\$1/pid"
read -r system <"/proc/\$process/task/\$process/children"
exec nsenter -t "\$system" -m -p -u -i -C -r -w env -i HOME=/root \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin sh -c "\$2"
END
chmod +x ssh
# All systems share one network, so each agent has an address of its own.
sed -i "s/^web\[1:10\]/web[1:$count]/" hosts.ini
cat >>hosts.ini <<END
monitor_address=$monitor
monitoring_user=nobody
ansible_become=false
ansible_ssh_executable=$work/play/ssh
ansible_ssh_transfer_method=piped
ansible_python_interpreter=/usr/bin/python3
END
mkdir host_vars
while read -r address name; do echo "zot_listen: $address" >"host_vars/$name"; done <"$work/names"
play() {
    HOME=$work LC_ALL=C.UTF-8 ANSIBLE_NOCOLOR=1 ANSIBLE_PIPELINING=1 \
        ansible-playbook -i hosts.ini site.yml "$@" >"$work/told" 2>&1
}
fail() {
    echo "FAILED: $*"
    cat "$work/told"
    exit 1
}
# The monitoring user asks all hosts with the guide's line.
ask_all() {
    sed -n 's/^sudo -u nagios //p' chapter | sed 's/^/setpriv --reuid=nobody --clear-groups /' >ask
    ./ssh monitor 'sh -s' <ask >"$work/told" 2>&1 || fail "asking"
    [ "$(grep -c '^web[0-9]* *ok' "$work/told")" -eq "$count" ] || fail "not every host answers"
}

for name in $hosts; do
    tries=0
    # Before /trial is there, the files are still this machine's.
    until ./ssh "$name" 'test -d /trial && systemctl is-system-running' 2>/dev/null | grep -q 'running\|degraded'; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || fail "$name does not boot: $(cat "$work/$name/boot")"
        sleep 0.1
    done
done
play || fail "the playbook"
[ "$(sort -u passwords/web* | wc -l)" -eq "$count" ] || fail "a password for each"
ask_all
play || fail "the second run"
[ "$(grep -c 'changed=0 .*failed=0' "$work/told")" -eq $((count + 1)) ] || fail "the second run changes something"
if play -e monitor_address=nowhere; then fail "a configuration with a mistake was taken"; fi
grep -q 'filterlist: .*nowhere' "$work/told" || fail "the mistake is not told"
for name in $agents; do
    ./ssh "$name" '! grep nowhere /etc/zot/zot.cfg' || fail "$name has the mistake"
done
ask_all
