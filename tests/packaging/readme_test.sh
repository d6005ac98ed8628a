#!/bin/sh
# readme_test.sh SOURCE: runs the README's commands as printed, in a copy of the source tree with
# what was built there.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "$1" >"$work/source.txt"
cp "$here/terminal.sh" "$here/unit_runner.sh" "$work"
run_in_private_root "$here/readme_life.sh" "$work" "$1"
