# shellcheck shell=bash
# Completion of zotq for bash.

_zotq_commands='ACT-ExternalCmd ACT-Syslog ACT-TCPUDPsend GetFilesList GetInfo GetProcessesList
GetSettings QUIT ReloadApp ReloadCfg SetSettings TEST-CPU TEST-CountFiles TEST-ExternalPrg
TEST-FileCompare TEST-FileExists TEST-FileHash TEST-FolderSize TEST-Process TEST-ShellScript
TEST-TCP TEST-TextLog TEST-TextLog2 TEST-UDP TEST-UNC set settings upgrade'
_zotq_checks='age cpu disk files hash log process script size tcp'
_zotq_options='-H --hostname -p --port -t --timeout -P -u --json --show-password --plugin
-w --warning -c --critical --state -h --help -V --version'
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

# Settings have blanks in their names, so each line is one candidate.
_zotq_settings() {
    local name quoted
    compopt -o nospace 2>/dev/null
    while IFS= read -r name; do
        printf -v quoted '%q' "$name"
        # What was typed so far may be quoted in any way; compare what it means.
        [[ $name == "${1//\\/}"* ]] && COMPREPLY+=("${quoted//\\=/=}")
    done <<<"$_zotq_names"
}

_zotq_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_zotq() {
    local current=$2 previous=$3 word='' plugin='' i
    COMPREPLY=()
    case $previous in
    -H | --hostname) mapfile -t COMPREPLY < <(compgen -A hostname -- "$current"); return ;;
    -P | --state) _zotq_files "$current"; return ;;
    -p | --port | -t | --timeout | -w | --warning | -c | --critical) return ;;
    esac
    # The command is the first word that is neither an option nor the value of one.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        -[HptPwc] | --hostname | --port | --timeout | --warning | --critical | --state) ((++i)) ;;
        --plugin) plugin=yes ;;
        -*) ;;
        *) word=${COMP_WORDS[i]}; break ;;
        esac
    done
    if [[ -z $word && $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$_zotq_options" -- "$current")
    elif [[ -z $word && $plugin ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$_zotq_checks" -- "$current")
    elif [[ -z $word ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$_zotq_commands" -- "$current")
    elif [[ $word == set || $word == SetSettings ]]; then
        _zotq_settings "$current"
    else
        _zotq_files "$current"
    fi
}

complete -F _zotq zotq
