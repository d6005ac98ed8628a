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

# cron takes the line as printed. At its start the same line finds too little space, of which it sends
# a mail, and enough, of which it sends none.
if command -v cron >/dev/null; then
    useradd --system monitor
    chgrp -R monitor /etc/zot/hosts
    chmod -R g+rX /etc/zot/hosts
    rm -f /usr/sbin/sendmail /etc/crontab /etc/cron.d/* /run/crond.*
    printf '#!/bin/sh\ncat >>/tmp/mail\n' >/usr/sbin/sendmail
    chmod 755 /usr/sbin/sendmail
    install -m 666 /dev/null /tmp/mail
    line=$(grep '^\*/5 .* monitor ' guide.md)
    printf '%s\n' "$line" "$line; touch /tmp/enough" "$line; touch /tmp/little" |
        sed '2,$s/^[^m]*/@reboot /; 2s/-c 90/-c 100/; 3s/-c 90/-c 0/' >/etc/cron.d/zot
    cron
    until [ -e /tmp/enough ] && [ -e /tmp/little ] && ! pgrep -P "$(cat /run/crond.pid)" >/dev/null; do
        sleep 0.1
    done
    pkill -F /run/crond.pid
    if [ "$(grep -c '^Subject' /tmp/mail)" -ne 1 ] || ! grep -qx 'web1 is short of space' /tmp/mail; then
        echo "FAILED: mails of cron"
        cat /tmp/mail
        exit 1
    fi
fi

# The guide ends with the agent that is not root. What works for root is what the list says does not.
ask() { zotq -P /etc/zot/zotq.password "$@" >reply.txt 2>&1 || true; }
expect_reply() {
    ask "$2" "${3:-}" "${4:-}" "${5:-}" "${6:-}" "${7:-}"
    head -n 1 reply.txt | grep -q "$1" || { echo "FAILED: $*"; cat reply.txt; exit 1; }
}
[ "$(ps -o user:20= -p "$(cat /run/zot-unprivileged/zot.pid)")" = zot-unprivileged ]
install -d -m 700 /root/closed
echo secret >/root/closed/file
chmod 600 /root/closed/file
ask NoSuchCommand
for unit in zot-unprivileged zot; do
    if [ $unit = zot ]; then
        systemctl disable zot-unprivileged
        systemctl enable zot
        wanted=200
    else
        wanted=30
    fi
    expect_reply 200 TEST-FileHash /root/closed/file 2 0
    expect_reply 200 TEST-FolderSize /root/closed
    expect_reply 200 TEST-CountFiles /root/closed '*' 0 0 0
    expect_reply 200 TEST-CPU
    ask ReloadApp
    until ask GetInfo && grep -q AgentName reply.txt; do sleep 0.1; done
    expect_reply $wanted TEST-CountFiles /root/closed '*' 1 0 0
    expect_reply $wanted TEST-CountFiles /root/closed 'no*' 0 0 0
    expect_reply $wanted TEST-FileExists /proc/1/root/etc/passwd
    ask SetSettings 'Comment=tried'
    head -n 1 reply.txt | grep -q $wanted || { cat reply.txt; exit 1; }
done
if command -v logrotate >/dev/null; then
    logrotate -f -s /package-test/state /etc/logrotate.d/zot-unprivileged
    [ -s /var/log/zot-unprivileged/failed.log.1.gz ] || { echo "FAILED: no rotated log"; exit 1; }
fi
# The package knows of the service that somebody has chosen instead.
systemctl disable zot
systemctl enable zot-unprivileged
before=$(cat /run/zot-unprivileged/zot.pid)
dpkg -i zot_*.deb >/dev/null
[ "$(cat /run/zot-unprivileged/zot.pid)" != "$before" ] || { echo "FAILED: not restarted"; exit 1; }
dpkg -P zot >/dev/null
if pgrep -x zot || getent passwd zot-unprivileged; then echo "FAILED: left after the purge"; exit 1; fi
