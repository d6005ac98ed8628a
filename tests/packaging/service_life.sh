# shellcheck shell=sh
# Run by systemd in a system of its own: what becomes of the service after each event. One line for
# each tells what was seen.

zot=/usr/sbin/zot
config=/etc/zot/zot.cfg
pidfile=/run/zot.pid
ZOT_PASSWORD=$(sed -n 's/^password=//p' $config)
export ZOT_PASSWORD

fail() {
    echo "FAILED: $*"
    systemctl status --no-pager zot || true
    journalctl --no-pager -u zot | tail -n 40
    exit 1
}
state() { systemctl show --value -p "$1" zot; }
answers() { zotq -t 2 GetInfo >/dev/null 2>&1; }
agent_pid() { state MainPID; }
begins() { agent_pid >before; } # the next event begins: remembers the agent

# is STATE: "new" is another agent than before, "same" that one; both are in service.
is() {
    case $1 in
    new | same)
        [ "$(state ActiveState)" = active ] && answers || return 1
        [ ! -e $pidfile ] || [ "$(cat $pidfile)" = "$(agent_pid)" ] || return 1
        if [ "$(cat before)" = "$(agent_pid)" ]; then [ "$1" = same ]; else [ "$1" = new ]; fi
        ;;
    *) [ "$(state ActiveState)" = "$1" ] && ! pgrep -x 'zot|zot-hangs' >/dev/null ;;
    esac
}

# becomes STATE EVENT: and it stays so for longer than the pause before a restart.
becomes() {
    tries=0
    until is "$1"; do
        tries=$((tries + 1))
        [ $tries -lt 100 ] || fail "$2: not $1"
        sleep 0.1
    done
    case $1 in inactive | failed)
        sleep 0.6
        is "$1" || fail "$2: did not stay $1"
        ;;
    esac
    [ ! -e $zot.previous ] || fail "$2: left $zot.previous"
    printf '%-60s %s\n' "$2" "$(state ActiveState), $(state Result), $1"
}
# told TEXT: the journal has it since the last look.
told() {
    journalctl --sync
    journalctl --no-pager -u zot --cursor-file=cursor | grep -q -e "$1" || fail "not told: $1"
}

echo 0 >before
becomes new "boot"
systemctl stop zot
becomes inactive "stop"
mv $config mended
systemctl start zot && fail "started without a configuration"
becomes failed "start without a configuration"
told 'Cannot open configuration file'
mv mended $config

begins
{ systemctl start zot && answers; } || fail "the start returned too early"
becomes new "start"
for _ in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
    begins
    { systemctl restart zot && answers; } || fail "the restart returned too early"
done
becomes new "restart, asked at once, 20 times"

for signal in KILL SEGV ABRT BUS; do
    begins
    agent=$(agent_pid)
    kill -$signal "$agent"
    # A fault repeats itself, a signal from outside does not.
    if [ $signal = SEGV ]; then sleep 0.2 && kill -SEGV "$agent"; fi
    becomes new "kill -$signal"
done
begins
zotq ACT-ExternalCmd 'sleep 1000' / 0 -1 >/dev/null
kill -KILL "$(agent_pid)"
becomes new "kill -KILL while a program that it started runs"

begins
zotq ReloadApp >/dev/null
becomes new "restart over the network"
begins
kill -KILL "$(agent_pid)"
becomes new "kill -KILL after a restart over the network"
begins
zotq QUIT >/dev/null
becomes inactive "QUIT"
systemctl start zot
zotq ReloadApp >/dev/null
systemctl stop zot
becomes inactive "stop right after a restart over the network"
systemctl start zot
kill -TERM "$(agent_pid)"
becomes inactive "kill -TERM"

# The next program, and ones that end at once or never listen.
{ cat $zot; echo next; } >next
chmod 711 $zot
systemctl start zot
begins
zotq upgrade next >/dev/null || fail "upgrade"
becomes new "upgrade over the network"
cmp next $zot || fail "the executable after an upgrade"
[ "$(stat -c %a $zot)" = 711 ] || fail "the mode after an upgrade"
begins
kill -KILL "$(agent_pid)"
becomes new "kill -KILL after an upgrade"
begins
zotq upgrade /usr/bin/false >/dev/null 2>&1 && fail "an upgrade to a program that ends"
becomes new "upgrade to a program that ends at once: undone"
cmp next $zot || fail "the executable after an upgrade that was undone"
begins
kill -KILL "$(agent_pid)"
becomes new "kill -KILL after an upgrade that was undone"

hand_over() {
    zotq upgrade hangs.elf >upgrade.log 2>&1 &
    tries=0
    until [ -e $zot.previous ] && cmp -s hangs.elf $zot && pgrep -f '^/usr/sbin/zot -d' >/dev/null; do
        tries=$((tries + 1))
        [ $tries -lt 100 ] || fail "no hand-over"
        sleep 0.1
    done
    sleep 0.3
    [ "$(state ActiveState)" = active ] || fail "not active during a hand-over"
}
hand_over
systemctl stop zot
becomes inactive "stop during an upgrade"
cmp next $zot || fail "the executable after a stop during an upgrade"
systemctl start zot
hand_over
begins
systemctl kill -s KILL zot
becomes new "everything killed during an upgrade"
cmp next $zot || fail "the executable after a kill during an upgrade"
systemctl stop zot
begins
cp $zot $zot.previous
systemctl start zot
becomes new "start with the file of an upgrade that never ended"
cp $zot $zot.previous
systemctl stop zot
[ "$(state ActiveState)" = failed ] || fail "a left file is no failure"
told "$zot.previous is left"
systemctl start zot

begins
cp -p $config mended
echo 'filteractiv=1' >>$config
systemctl reload zot && fail "a reload with a mistake"
becomes same "reload with a mistake: refused"
told 'did you mean filteractive'
cp -p mended $config
systemctl reload zot || fail "reload"
becomes same "reload"
sed -i 's/^password=.*/password=/' $config
kill -KILL "$(agent_pid)"
becomes failed "kill -KILL, and a configuration that cannot work"
told 'Password is not specified'
systemctl reset-failed zot
systemctl start zot && fail "started without a password"
becomes failed "start with a configuration that cannot work"
told 'Password is not specified'

mv mended $config
begins
systemctl restart zot
becomes new "restart with the mistake mended"
begins
zotq ReloadApp >/dev/null
systemctl restart zot
becomes new "restart right after a restart over the network"
sed -i 's/^pidfile=.*/pidfile=/' $config
begins
systemctl restart zot
becomes new "restart without a pid file"
begins
zotq ReloadApp >/dev/null
becomes new "restart over the network without a pid file"
