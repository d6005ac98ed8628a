#!/bin/sh
# guide_test.sh BUILD GUIDE: runs the guide's commands (its ```sh blocks) as printed, in their
# order, on a system that begins without the package.
set -eu
build=$1
guide=$2
here=$(cd "$(dirname "$0")" && pwd)
. "$here/private_root.sh"
require_private_root

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build_packages "$build" 2 "$work"
cp "$guide" "$work/guide.md"
cp "$here/unit_runner.sh" "$here/terminal.sh" "$work"
run_in_private_root "$here/guide_life.sh" "$work"
