#!/bin/sh
# service_test.sh BUILD: installs the agent into a system of its own, which systemd boots as its first
# process, and tries there what becomes of the service after each event.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root
if [ ! -x /lib/systemd/systemd ] || ! command -v ip >/dev/null; then
    echo "SKIPPED: needs systemd and ip"
    exit 77
fi

work=$(mktemp -d)
group=zot-trial-${work##*.}
# The control group is empty once the system's processes are gone.
finish() {
    mkdir "$work/groups"
    # The inner shell expands what is in single quotes.
    # shellcheck disable=SC2016
    unshare --mount sh -euc 'mount -t cgroup2 cgroup2 "$1"
        [ ! -d "$1/$2" ] || find "$1/$2" -depth -type d -exec rmdir {} +' sh "$work/groups" "$group"
    rm -rf "$work"
}
trap finish EXIT
DESTDIR=$work/tree cmake --install "$build" --prefix /usr >/dev/null
echo 'int main(void) { for (;;) pause(); }' | cc -include unistd.h -x c -o "$work/hangs.elf" -
mkdir "$work/layer" "$work/output"
result=0
unshare --mount --pid --fork --kill-child --net --uts --ipc \
    sh -eu "$here/service_boot.sh" "$work" "$group" "$here/service_life.sh" || result=$?
cat "$work/output/log"
[ $result -eq 0 ]
