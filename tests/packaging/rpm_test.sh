#!/bin/sh
# rpm_test.sh BUILD: builds the RPM packages, looks into them, and installs, uses and removes them.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root
if ! command -v rpmbuild >/dev/null; then
    echo "SKIPPED: needs rpmbuild"
    exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flock "$build/CPackConfig.cmake" \
    cpack --config "$build/CPackConfig.cmake" -G RPM -B "$work/rpm" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; exit 1; }
if grep -i warning "$work/cpack.log" | grep -v RELOCATABLE; then exit 1; fi
for package in "$work"/rpm/*.rpm; do
    name=$(rpm -qp --qf '%{NAME}' "$package")
    mv "$package" "$work/$name.rpm"
    rpm -qpl "$work/$name.rpm" | sed "s/^/$name /"
done >"$work/files.txt"
rpm -qpc "$work/zot.rpm" >"$work/config.txt"
printf '%s\n' /etc/logrotate.d/zot /etc/zot/zot.cfg.sample | diff - "$work/config.txt"
# Each program and its page is in one package, and no package takes folders of the system.
while read -r expected; do
    [ "$(grep " ${expected#* }\$" "$work/files.txt")" = "$expected" ] ||
        { echo "not as expected: $expected"; exit 1; }
done <<END
zot /usr/sbin/zot
zot /usr/lib/systemd/system/zot.service
zot /var/lib/zot
zotq /usr/bin/zotq
zotq /usr/share/zsh/site-functions/_zotq
END
if grep -E ' (/etc|/var|/var/lib|/var/log|/usr/s?bin|/usr/lib/systemd.*[^e]|/usr/share/man.)$' \
    "$work/files.txt"; then
    echo "folders of the system"
    exit 1
fi
cp "$here/life.sh" "$work"
run_in_private_root "$here/rpm_life.sh" "$work"
