# shellcheck shell=bash
# Completion of zotq for bash.

_zotq_subcommands='age cpu disk files hash hosts info log process script set settings size status tcp
upgrade'
_zotq_commands='ACT-ExternalCmd ACT-Syslog ACT-TCPUDPsend GetFilesList GetInfo GetProcessesList
GetSettings QUIT ReloadApp ReloadCfg SetSettings TEST-CPU TEST-CountFiles TEST-ExternalPrg
TEST-FileCompare TEST-FileExists TEST-FileHash TEST-FolderSize TEST-Process TEST-ShellScript
TEST-TCP TEST-TextLog TEST-TextLog2 TEST-UDP TEST-UNC'
_zotq_checks='age agent cpu disk files hash log process script size tcp'
_zotq_options='-H --hostname -p --port -t --timeout -P -o --output --fields --hosts -x --exclude
--pick --at-once --fold --diff --failed -u --json --show-password --plugin -w --warning
-c --critical --state --hold --unreachable --dry-run --force --canary --batch --max-failures
--pause --list --check -h --help -V --version'
_zotq_names='Comment=
Port=
Timeout=
Password=
LogOkConn=
LogBadConn=
OkLogFile=
BadLogFile=
Ping=
TCP=
UDP=
UNC=
Drive Space=
Folder Size=
Count Files=
File Availability=
File Compare=
Text Log=
File Integrity=
Process=
Service=
NT Event Log=
CPU Usage=
Perf Counter=
Script=
External=
SNMP=
Execute external command=
TCP/UDP send=
Syslog=
IPFiltering=
IPFilterAddr=
IPFilterMarks=
AllowUpdates=
AllowRManage=
UpdateAddr=
ManageAddr='

_zotq_list() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2"); }

# Settings have blanks in their names, so each line is one candidate.
_zotq_settings() {
    local name quoted
    compopt -o nospace 2>/dev/null
    while IFS= read -r name; do
        case ${COMP_WORDS[COMP_CWORD]} in
        # Inside quotes it is written as it is, otherwise with its blanks escaped.
        [\'\"]*) quoted=$name ;;
        *) printf -v quoted '%q' "$name"; quoted=${quoted//\\=/=} ;;
        esac
        # What was typed so far may be quoted in any way; compare what it means.
        [[ $name == "${1//[\\\'\"]/}"* ]] && COMPREPLY+=("$quoted")
    done <<<"$_zotq_names"
}

_zotq_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

# Those of the usual list, and those that the system knows.
_zotq_hosts() {
    local known
    known=$(zotq --hosts all hosts 2>/dev/null | sed 's/[: ].*//')
    mapfile -t COMPREPLY < <(compgen -W "$known" -- "$1"; compgen -A hostname -- "$1")
}

_zotq() {
    local current=$2 previous=$3 word='' plugin='' i
    COMPREPLY=()
    # The value of --hostname=web1 is a word of its own, and so is the equals sign.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    -H | --hostname | -x | --exclude | --canary) _zotq_hosts "$current"; return ;;
    -P | --state | --hosts | --failed | --list) _zotq_files "$current"; return ;;
    -o | --output) _zotq_list 'table json ndjson csv raw' "$current"; return ;;
    --unreachable) _zotq_list 'ok warning critical unknown' "$current"; return ;;
    -p | --port | -t | --timeout | -w | --warning | -c | --critical | --fields | --pick | \
        --at-once | --hold | --batch | --max-failures | --pause) return ;;
    esac
    # The command is the first word that is neither an option nor the value of one.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        -[HptPwcox] | --hostname | --port | --timeout | --warning | --critical | --state | \
            --output | --fields | --hosts | --exclude | --pick | --at-once | --failed | --hold | \
            --unreachable | --canary | --batch | --max-failures | --pause | --list)
            [[ ${COMP_WORDS[i + 1]} == = ]] && ((++i))
            ((++i))
            ;;
        --plugin) plugin=yes ;;
        -*) ;;
        *) word=${COMP_WORDS[i]}; break ;;
        esac
    done
    if [[ $current == -* ]] && { [[ -z $word ]] || [[ " ${_zotq_subcommands//$'\n'/ } " == *" $word "* ]]; }; then
        _zotq_list "$_zotq_options" "$current"
    elif [[ -z $word && $plugin ]]; then
        _zotq_list "$_zotq_checks" "$current"
    elif [[ -z $word ]]; then
        _zotq_list "$_zotq_subcommands $_zotq_commands" "$current"
    elif [[ $word == set || $word == SetSettings ]]; then
        _zotq_settings "$current"
    else
        _zotq_files "$current"
    fi
}

complete -F _zotq zotq
