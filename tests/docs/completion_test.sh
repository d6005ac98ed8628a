#!/usr/bin/env bash
# completion_test.sh SOURCE: what bash offers for the beginnings of command lines.
set -u
# shellcheck source=/dev/null
. "$1/packaging/completion/zotq.bash"
# shellcheck disable=SC2317
compopt() { :; }
failed=0

# offers EXPECTED WORD...: completes the last word; those before are as bash splits them.
offers() {
    expected=$1
    shift
    COMP_WORDS=(zotq "$@")
    COMP_CWORD=$#
    last=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    # Bash hands the word over without its opening quote.
    _zotq zotq "${last#[\'\"]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    [[ " ${COMPREPLY[*]} " == *" $expected "* ]] && return
    echo "FAILED: zotq $* offers: ${COMPREPLY[*]}"
    failed=1
}

offers status sta
offers TEST-UNC TEST-U
offers --at-once --at
offers ndjson -o n
offers ndjson --output = nd
offers critical --plugin --unreachable = c
offers agent --plugin -H web1 ag
offers 'CPU\ Usage=' set CPU
offers 'CPU Usage=' set "'CPU U"
offers 'CPU Usage=' set '"CPU U'
offers --canary --hosts = list upgrade --can
offers localhost --hostname = localh
exit $failed
