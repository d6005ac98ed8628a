#!/bin/sh
# lint_test.sh SOURCE: manual pages must be clean for mandoc, scripts for shellcheck and for the
# shells that they are written for.
set -eu
cd "$1"

missing=
for tool in mandoc shellcheck bash; do
    command -v $tool >/dev/null || missing="$missing $tool"
done
if [ -n "$missing" ]; then
    echo "SKIPPED: needs$missing"
    exit 77
fi

failed=0
for page in docs/man/*.[1-9]; do
    # A page may name another that is not installed here.
    complaints=$(mandoc -T lint "$page" 2>&1 |
        grep -v -e 'referenced manual not found' -e 'outdated mandoc.db') || continue
    echo "$complaints"
    failed=1
done

# The two formatters that readers have must show the same, and tell nothing else; they break and
# hyphenate lines differently.
characters() { col -bx | sed '1d;$d' | tr '`' "'" | tr -d ' \n-'; }
for page in docs/man/*.[1-9]; do
    command -v groff >/dev/null || break
    [ "$(groff -mdoc -Tascii -P-c "$page" 2>&1 | characters)" = \
        "$(mandoc -Tascii "$page" | characters)" ] && continue
    echo "$page: groff and mandoc show it differently"
    failed=1
done

shellcheck -x -P SCRIPTDIR packaging/debian/*/p* packaging/rpm/*/p* \
    packaging/freebsd/zot.in packaging/freebsd/zot_watch.sh.in packaging/completion/zotq.bash \
    tests/packaging/*.sh tests/monitoring/*.sh tests/docs/*.sh tests/hardening.sh \
    tools/*.sh scripts/*.sh scripts/*/*.sh .ci/run || failed=1
bash -n packaging/completion/zotq.bash || failed=1
if command -v zsh >/dev/null; then zsh -n packaging/completion/_zotq || failed=1; fi
exit $failed
