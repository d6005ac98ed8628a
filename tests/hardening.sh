#!/bin/sh
# The mitigations of a release build, read from what was built:
#   sh tests/hardening.sh LIBRARY EXECUTABLE...
set -eu
failed=0
# expect WHAT PATTERN TEXT: the text shows the mitigation.
expect() {
    printf '%s\n' "$3" | grep -Eq -e "$2" && return
    echo "$file: no $1"
    failed=1
}
file=$1
shift
if [ "$(uname -s)-$(uname -m)" = Linux-x86_64 ]; then
    # Checked in the agent's own code: for the mark on an executable the system's start-up code must
    # have it too.
    expect "control-flow protection" 'IBT, SHSTK' "$(readelf -nW "$file")"
fi
for file in "$@"; do
    expect "position-independent executable" 'Type: +DYN' "$(readelf -hW "$file")"
    segments=$(readelf -lW "$file")
    expect "read-only relocations" 'GNU_RELRO' "$segments"
    expect "stack without execution" 'GNU_STACK.* RW ' "$segments"
    if printf '%s\n' "$segments" | grep -q ' RWE '; then
        echo "$file: a segment that is writable and executable"
        failed=1
    fi
    expect "binding at the start" 'BIND_NOW|Flags:.*NOW' "$(readelf -dW "$file")"
    symbols=$(readelf -sW --dyn-syms "$file")
    expect "stack protector" '__stack_chk_fail' "$symbols"
    expect "checked copies and formats" '__v?snprintf_chk' "$symbols"
done
exit $failed
