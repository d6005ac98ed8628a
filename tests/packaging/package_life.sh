# shellcheck shell=sh
# Sourced in a private system, beside zot_1.deb and zot_2.deb: the life of the package.

config=/etc/zot/zot.cfg
unit=/usr/lib/systemd/system/zot.service

fail() {
    echo "FAILED: $*"
    exit 1
}

# Runs a line of the service unit as systemd does, without its doubled dollar signs.
run_unit_line() { sh -euc "$(sed -n "s/^$1=//p" "$unit" | sed 's/\$\$/$/g')"; }

# Asks until the agent answers 200 and the reply has the line.
ask_for() {
    tries=0
    until zotq -p "$port" "$2" >reply.txt 2>&1 && grep -qx "$1" reply.txt; do
        tries=$((tries + 1))
        if [ "$tries" -ge 50 ]; then
            cat reply.txt
            fail "$2 does not answer $1"
        fi
        sleep 0.1
    done
}

dpkg -i zot_1.deb >/dev/null
[ "$(stat -c '%a %U' $config)" = "600 root" ] || fail "permissions of $config"
ZOT_PASSWORD=$(sed -n 's/^password=//p' $config)
export ZOT_PASSWORD
[ "$(printf %s "$ZOT_PASSWORD" | tr -dc 0-9a-f | wc -c)" -eq 40 ] || fail "password"

# Other agents may run on this machine, so the administrator changes the port.
port=$((20000 + $(od -An -N 2 -tu2 /dev/urandom) % 20000))
sed -i "s/^port=.*/port=$port/" $config
run_unit_line ExecStart >/dev/null
ask_for 'AgentName=VY Remote Monitoring Agent' GetInfo
zotq -p "$port" TEST-CPU >reply.txt || { cat reply.txt; fail "CPU script"; }
# Through standard input, or the client's own command line would count too.
printf '0\n/usr/sbin/zot -d\n' | zotq -p "$port" TEST-Process - >reply.txt || fail "count script"
[ "$(sed -n 2p reply.txt)" -eq 1 ] || fail "process count"
zotq -p "$port" GetProcessesList | grep -q '/usr/sbin/zot -d' || fail "process list"

# The sample works as shipped, once it has a password.
zotq -p "$port" SetSettings 'Comment=kept' LogOkConn=1 >/dev/null || fail "change of settings"
[ "$(stat -c '%a %U' $config)" = "600 root" ] || fail "permissions after a save"
[ -s /var/log/zot/accepted.log ] || ask_for 'LogOkConn=1' GetSettings
[ -s /var/log/zot/accepted.log ] || fail "log of accepted connections"
sed -i 's/^logsuccess=.*/logsuccess=0/' $config
run_unit_line ExecReload
ask_for 'LogOkConn=0' GetSettings

if command -v logrotate >/dev/null; then
    logrotate -f -s /package-test/state /etc/logrotate.d/zot || fail "log rotation"
    [ -s /var/log/zot/accepted.log.1.gz ] || fail "no rotated log"
fi
if command -v systemd-analyze >/dev/null; then
    systemd-analyze verify "$unit" || fail "service unit"
fi

cp $config before.cfg
first=$(cat /run/zot.pid)
dpkg -i zot_2.deb >/dev/null
cmp before.cfg $config || fail "the upgrade changed the configuration"
ask_for 'Comment=kept' GetInfo
[ "$(cat /run/zot.pid)" != "$first" ] || fail "the agent was not restarted"
if [ -d "/proc/$first" ]; then fail "the old agent still runs"; fi

dpkg -r zot >/dev/null
if zotq -p "$port" GetInfo 2>/dev/null; then fail "the agent runs after the removal"; fi
[ ! -e /run/zot.pid ] || fail "the pid file is left"
cmp before.cfg $config || fail "the removal changed the configuration"

dpkg -P zot >/dev/null
for left in /etc/zot /etc/logrotate.d/zot /var/lib/zot /var/log/zot /usr/sbin/zot; do
    [ ! -e $left ] || fail "$left is left after the purge"
done
echo "installed, used, upgraded, removed and purged"
