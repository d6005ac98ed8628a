#!/bin/sh
# service_test.sh BUILD: installs the agent into a system of its own, which systemd boots as its first
# process, and tries there what becomes of the service after each event.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root
require_systemd

work=$(mktemp -d)
group=zot-trial-${work##*.}
finish() {
    remove_groups "$group"
    rm -rf "$work"
}
trap finish EXIT
tree=$work/tree
DESTDIR=$tree flock "$build/CPackConfig.cmake" cmake --install "$build" --prefix /usr >/dev/null
sed "s/^password=.*/password=of the trial/; s/^executeaction=.*/executeaction=1/" \
    "$tree/etc/zot/zot.cfg.sample" >"$tree/etc/zot/zot.cfg"
chmod 600 "$tree/etc/zot/zot.cfg"
mkdir "$tree/trial"
echo 'int main(void) { for (;;) pause(); }' |
    cc -include unistd.h -x c -o "$tree/trial/hangs.elf" -
cp "$here/service_life.sh" "$tree/trial"
units=$tree/etc/systemd/system
mkdir -p "$units/multi-user.target.wants" "$units/zot.service.d"
ln -s /lib/systemd/system/zot.service ../trial.service "$units/multi-user.target.wants"
# A shorter pause, or the trial would take minutes.
printf '[Service]\nRestartSec=300ms\n' >"$units/zot.service.d/trial.conf"
cat >"$units/trial.service" <<END
[Unit]
After=multi-user.target
SuccessAction=exit
FailureAction=exit
FailureActionExitStatus=1
[Service]
Type=oneshot
WorkingDirectory=/trial
Environment=PATH=/usr/sbin:/usr/bin:/sbin:/bin
ExecStart=/bin/sh -euc '. ./service_life.sh'
StandardOutput=file:/trial/output/log
StandardError=inherit
END
result=0
unshare --mount --pid --fork --kill-child --net --uts --ipc \
    sh -euc 'ip link set lo up; exec sh -eu "$@"' sh "$here/boot.sh" "$work" "$group" || result=$?
cat "$work/output/log"
[ $result -eq 0 ]
