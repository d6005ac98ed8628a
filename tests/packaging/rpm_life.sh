# shellcheck shell=sh
# Sourced in a private system, beside the RPM packages: the life of the agent's and the client's.
# shellcheck source=tests/packaging/life.sh
. ./life.sh

# Debian's rpm knows no dependencies and wants to be sure.
install_rpm() { rpm --nodeps --force-debian "$@" >/dev/null || fail "rpm $*"; }

rpm --initdb
install_rpm -i zot.rpm zotq.rpm
[ "$(stat -c '%a %U' $config)" = "600 root" ] || fail "permissions of $config"
start_agent
[ "$(printf %s "$ZOT_PASSWORD" | tr -dc 0-9a-f | wc -c)" -eq 40 ] || fail "password"
zotq -p "$port" TEST-CPU >reply.txt || { cat reply.txt; fail "CPU script"; }
echo "# mine" >>/etc/logrotate.d/zot
cp $config before.cfg
install_rpm -U --force zot.rpm
cmp before.cfg $config || fail "the upgrade changed the configuration"
tail -n 1 /etc/logrotate.d/zot | grep -qx '# mine' || fail "the change of the log rotation is lost"
zotq -p "$port" QUIT >/dev/null || fail "the agent does not answer"
rpm -e zot zotq
for left in /usr/sbin/zot /usr/bin/zotq /usr/libexec/zot; do
    [ ! -e $left ] || fail "$left is left"
done
cmp before.cfg $config || fail "the removal changed the configuration"
if [ -e zot-exporter.rpm ] && command -v systemd-sysusers >/dev/null; then
    install_rpm -i zot-exporter.rpm
    [ "$(stat -c '%a %U' /var/lib/zot-exporter)" = "700 zot-exporter" ] || fail "state directory"
fi
echo "installed, used, upgraded and removed"
