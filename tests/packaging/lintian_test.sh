#!/bin/sh
# lintian_test.sh BUILD: Debian's checker has nothing to say about the packages.
set -eu
if ! command -v lintian >/dev/null || ! command -v dpkg-shlibdeps >/dev/null; then
    echo "SKIPPED: needs lintian and dpkg-dev"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(umask 022 && flock "$1/CPackConfig.cmake" \
    cpack --config "$1/CPackConfig.cmake" -G DEB -B "$work" >"$work/log" 2>&1) ||
    { cat "$work/log"; exit 1; }
[ "$(find "$work" -maxdepth 1 -name '*.deb' | wc -l)" -ge 2 ]
TMPDIR=$work lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$work"/*.deb
