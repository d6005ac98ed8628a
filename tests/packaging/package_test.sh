#!/bin/sh
# package_test.sh BUILD: builds the Debian package, looks into it, and installs, uses, upgrades,
# removes and purges it.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build_package "$build" 1 "$work"
build_package "$build" 2 "$work"

dpkg-deb -c "$work/zot_1.deb" | awk '{print $1, $2, $6}' >"$work/contents.txt"
while read -r expected; do
    grep -qxF -e "$expected" "$work/contents.txt" || {
        echo "not in the package: $expected"
        cat "$work/contents.txt"
        exit 1
    }
done <<END
-rwxr-xr-x root/root ./usr/sbin/zot
-rwxr-xr-x root/root ./usr/sbin/zot_cpu.sh
-rwxr-xr-x root/root ./usr/sbin/zot_proccnt.sh
-rwxr-xr-x root/root ./usr/sbin/zot_proclist.sh
-rwxr-xr-x root/root ./usr/bin/zotq
-rw------- root/root ./etc/zot/zot.cfg.sample
-rw-r--r-- root/root ./etc/logrotate.d/zot
-rw-r--r-- root/root ./usr/lib/systemd/system/zot.service
-rw-r--r-- root/root ./usr/share/man/man1/zotq.1
-rw-r--r-- root/root ./usr/share/man/man5/zot.cfg.5
-rw-r--r-- root/root ./usr/share/man/man7/zot-commands.7
-rw-r--r-- root/root ./usr/share/man/man7/zot-expr.7
-rw-r--r-- root/root ./usr/share/man/man8/zot.8
-rw-r--r-- root/root ./usr/share/doc/zot/guide.md
-rw-r--r-- root/root ./usr/share/bash-completion/completions/zotq
drwx------ root/root ./var/lib/zot/
drwxr-x--- root/root ./var/log/zot/
END
if grep exporter "$work/contents.txt"; then
    echo "the exporter does not belong to a monitored host"
    exit 1
fi
dpkg-deb -I "$work/zot_1.deb" control | grep -q '^Depends: .*libstdc++6'
[ "$(dpkg-deb -f "$work/zot_1.deb" Version)" = "$("$build/zotq" --version | cut -d ' ' -f 2)-1" ]
dpkg-deb --fsys-tarfile "$work/zot_1.deb" | tar -xO ./etc/zot/zot.cfg.sample >"$work/sample.txt"
grep -qx 'zotpath=/usr/sbin/zot' "$work/sample.txt"
if grep -n '@' "$work/sample.txt"; then
    echo "a path was not filled in"
    exit 1
fi

run_in_private_root "$here/package_life.sh" "$work"
