#!/bin/sh
# package_test.sh BUILD: builds the Debian packages, looks into them, and installs, uses, upgrades,
# removes and purges them.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for release in 1 2 3; do build_packages "$build" $release "$work"; done
# The third release brings another file for the log rotation.
dpkg-deb -R "$work/zot_3.deb" "$work/3/zot"
echo "# new" >>"$work/3/zot/etc/logrotate.d/zot"
dpkg-deb -b "$work/3/zot" "$work/zot_3.deb" >/dev/null

# expect_contents PACKAGE: it has the files of the list, and of the other packages' programs none.
expect_contents() {
    dpkg-deb -c "$work/$1_1.deb" | awk '{print $1, $2, $6}' >"$work/contents.txt"
    while read -r expected; do
        grep -qxF -e "$expected" "$work/contents.txt" || {
            echo "not in $1: $expected"
            cat "$work/contents.txt"
            exit 1
        }
    done
    if awk '$3 ~ "^./usr/s?bin/." {print $3}' "$work/contents.txt" | grep -v "/$1\$"; then
        echo "does not belong to $1"
        exit 1
    fi
}

expect_contents zot <<END
-rwxr-xr-x root/root ./usr/sbin/zot
-rwxr-xr-x root/root ./usr/libexec/zot/zot_cpu.sh
-rwxr-xr-x root/root ./usr/libexec/zot/zot_proccnt.sh
-rwxr-xr-x root/root ./usr/libexec/zot/zot_proclist.sh
-rw------- root/root ./etc/zot/zot.cfg.sample
-rw-r--r-- root/root ./etc/logrotate.d/zot
-rw-r--r-- root/root ./usr/lib/systemd/system/zot.service
-rw-r--r-- root/root ./usr/share/man/man5/zot.cfg.5.gz
-rw-r--r-- root/root ./usr/share/man/man8/zot.8.gz
-rw-r--r-- root/root ./usr/share/doc/zot/guide.md
drwx------ root/root ./var/lib/zot/
drwxr-x--- root/root ./var/log/zot/
END
expect_contents zotq <<END
-rwxr-xr-x root/root ./usr/bin/zotq
-rw-r--r-- root/root ./usr/share/man/man1/zotq.1.gz
-rw-r--r-- root/root ./usr/share/man/man7/zot-commands.7.gz
-rw-r--r-- root/root ./usr/share/man/man7/zot-expr.7.gz
-rw-r--r-- root/root ./usr/share/bash-completion/completions/zotq
-rw-r--r-- root/root ./usr/share/zsh/vendor-completions/_zotq
-rw-r--r-- root/root ./usr/share/zotq/zot.conf
END
# A monitored host gets none of the libraries of the others.
dpkg-deb -f "$work/zot_1.deb" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//' | sort >"$work/needs.txt"
printf '%s\n' libc6 libgcc-s1 libstdc++6 | diff - "$work/needs.txt"
[ "$(dpkg-deb -f "$work/zot_1.deb" Version)" = "$("$build/zotq" --version | cut -d ' ' -f 2)-1" ]
dpkg-deb --fsys-tarfile "$work/zot_1.deb" | tar -xO ./etc/zot/zot.cfg.sample >"$work/sample.txt"
grep -qx 'zotpath=/usr/sbin/zot' "$work/sample.txt"
if grep -n '@' "$work/sample.txt"; then
    echo "a path was not filled in"
    exit 1
fi

cp "$here/life.sh" "$work"
run_in_private_root "$here/package_life.sh" "$work"

if [ -e "$work/zot-exporter_1.deb" ]; then
    expect_contents zot-exporter <<END
-rwxr-xr-x root/root ./usr/bin/zot-exporter
-rw-r--r-- root/root ./etc/zot/zot-exporter.yml.sample
-rw-r--r-- root/root ./usr/lib/systemd/system/zot-exporter.service
-rw-r--r-- root/root ./usr/lib/sysusers.d/zot-exporter.conf
-rw-r--r-- root/root ./usr/share/man/man8/zot-exporter.8.gz
-rw-r--r-- root/root ./usr/share/zot-exporter/alerts.yml
-rw-r--r-- root/root ./usr/share/zot-exporter/fleet.json
-rw-r--r-- root/root ./usr/share/zot-exporter/scrape.yml
-rw-r--r-- root/root ./usr/share/zot-exporter/zabbix.yaml
END
    run_in_private_root "$here/exporter_life.sh" "$work"
fi
