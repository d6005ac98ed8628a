#!/bin/sh
# port_test.sh SOURCE CMAKE: collects what a FreeBSD installation has besides programs and pages,
# and compares it with the list of the port.
set -eu
source=$1
cmake=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for part in agent client exporter; do
    DESTDIR="$work/root" "$cmake" -D ZOT_PART=$part -D ZOT_SYSTEM=FreeBSD \
        -D CMAKE_INSTALL_PREFIX=/usr/local -D ZOT_SBIN=sbin -D ZOT_LIBEXEC=libexec -D ZOT_SYSCONF=etc \
        -D ZOT_PACKAGING_DIR="$source/packaging" -D ZOT_SCRATCH_DIR="$work/scratch" \
        -P "$source/cmake/install_configured.cmake" >/dev/null
done
cd "$work/root"
find . -type f | sed 's|^\./usr/local/||' | sort >"$work/laid-out.txt"
# The rest of the list is what every system gets: programs, scripts, pages and completions.
sed -n -e 's/^@sample[^ ]* //' -e '/^etc\//p' -e '/zsh/p' -e '/watch/p' "$source/packaging/freebsd/port/pkg-plist" |
    sort >"$work/listed.txt"
diff "$work/listed.txt" "$work/laid-out.txt"
sed -n 's/^@dir([^)]*) //p' "$source/packaging/freebsd/port/pkg-plist" >"$work/directories.txt"
while read -r directory; do
    [ -d ".$directory" ] || { echo "no $directory"; exit 1; }
done <"$work/directories.txt"
if grep -rn '@ZOT' .; then exit 1; fi
sh -n usr/local/etc/rc.d/zot
sh -n usr/local/libexec/zot/zot_watch.sh
for page in "$source"/docs/man/*; do
    grep -q "/$(basename "$page").gz\$" "$source/packaging/freebsd/port/pkg-plist"
done
grep -qx 'command="/usr/local/sbin/zot"' usr/local/etc/rc.d/zot
grep -qx 'zotpath=/usr/local/sbin/zot' usr/local/etc/zot/zot.cfg.sample
grep -qx 'cpuusagescript=/usr/local/libexec/zot/zot_cpu.sh' usr/local/etc/zot/zot.cfg.sample
