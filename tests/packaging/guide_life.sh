# shellcheck shell=sh
# Sourced in a private system, beside the package, the guide and what replaces systemd.
. ./terminal.sh

for package in zot zotq; do
    mv ${package}_2.deb "${package}_$(dpkg-deb -f ${package}_2.deb Version)_amd64.deb"
done
install -m 755 unit_runner.sh /usr/local/sbin/systemctl
export PATH="/usr/local/sbin:/usr/local/bin:$PATH"
# The maintainer scripts see systemd, and nothing keeps them from starting the service.
mkdir -p /run/systemd/system
rm -f /usr/sbin/policy-rc.d
# The ten hosts are this one.
for n in 1 2 3 4 5 6 7 8 9 10; do echo "127.0.0.1 web$n" >>/etc/hosts; done

carry_out guide.md
cd /package-test || exit

# What the guide promises of its log script: the new line, and only that.
echo "error: again" >>/var/log/shop.log
[ "$(zot-watch web1 /var/log/shop.log error /root/shop.state)" = "error: again" ] ||
    { echo "FAILED: zot-watch"; exit 1; }

# expect_found PATTERN COMMAND: the output of the command, a line of the guide, matches the pattern.
expect_found() {
    sh -c "$2" sh web1 / >reply.txt 2>&1 || { echo "FAILED: $2"; cat reply.txt; exit 1; }
    grep -q "$1" reply.txt || { echo "FAILED: $2 printed"; cat reply.txt; exit 1; }
}
# The lines for other programs, with the variables that those programs fill in.
# shellcheck disable=SC2016
expect_found '^DISK .*used=' "$(sed -n 's/^ *command_line  *//p' guide.md |
    sed 's/$HOSTADDRESS\$/web1/; s/$HOSTNAME\$/web1/; s|$ARG1\$|-w 99.9 -c 100 disk /|')"
expect_found '"code":"200"' "$(sed -n 's/^UserParameter=[^,]*,//p' guide.md)"
expect_found '^$\|short of space' "$(sed -n 's/^\*.* monitor //p' guide.md); echo"
systemctl stop
