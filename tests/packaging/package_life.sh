# shellcheck shell=sh
# Sourced in a private system, beside the packages: the life of the agent's and the client's.
# shellcheck source=tests/packaging/life.sh
. ./life.sh

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
# A configuration of the first release names the scripts without a folder.
sed -i -e 's|^\(.*script=\)/usr/libexec/zot/|\1|' -e 's/^external=0/external=1/' $config
start_agent
cp $config before.cfg
first=$(cat /run/zot.pid)
touch /usr/sbin/zot.previous
dpkg -i zot_2.deb zotq_2.deb >/dev/null
[ ! -e /usr/sbin/zot.previous ] || fail "the next start would undo the upgrade"
cmp before.cfg $config || fail "the upgrade changed the configuration"
[ -e /etc/systemd/system/zot.service.d/programs.conf ] || fail "programs lost their rights"
[ "$(printf %s "$ZOT_PASSWORD" | tr -dc 0-9a-f | wc -c)" -eq 40 ] || fail "password"
ask_for 'AgentName=VY Remote Monitoring Agent' GetInfo
[ "$(cat /run/zot.pid)" != "$first" ] || fail "the agent was not restarted"
if [ -d "/proc/$first" ]; then fail "the old agent still runs"; fi
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
    systemd-analyze verify "$agentUnit" || fail "service unit"
fi

# A file that both sides have changed is asked about, and the administrator's stays.
echo "# mine" >>/etc/logrotate.d/zot
if dpkg -i zot_3.deb </dev/null >prompt.txt 2>&1; then fail "no question about the log rotation"; fi
grep -q "Configuration file '/etc/logrotate.d/zot'" prompt.txt || { cat prompt.txt; fail "question"; }
dpkg --force-confold --configure zot >/dev/null 2>&1
tail -n 1 /etc/logrotate.d/zot | grep -qx '# mine' || fail "the change is lost"
tail -n 1 /etc/logrotate.d/zot.dpkg-dist | grep -qx '# new' || fail "the new file is nowhere"
ask_for 'Comment=kept' GetInfo

cp $config before.cfg
dpkg -r zot >/dev/null
if zotq -p "$port" GetInfo 2>/dev/null; then fail "the agent runs after the removal"; fi
[ ! -e /run/zot.pid ] || fail "the pid file is left"
cmp before.cfg $config || fail "the removal changed the configuration"

dpkg -P zot zotq >/dev/null
for left in /etc/zot /etc/logrotate.d/zot* /var/lib/zot /var/log/zot /usr/libexec/zot \
    /usr/sbin/zot* /usr/bin/zotq /usr/share/zot /etc/systemd/system/zot.service.d; do
    if [ -e "$left" ] || [ -L "$left" ]; then fail "$left is left after the purge"; fi
done
echo "installed, used, upgraded, removed and purged"
