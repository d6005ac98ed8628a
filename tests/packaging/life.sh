# shellcheck shell=sh
# Sourced in a private system by the lives of the packages.

config=/etc/zot/zot.cfg
agentUnit=/usr/lib/systemd/system/zot.service

fail() {
    echo "FAILED: $*"
    exit 1
}

# Runs a line of the agent's unit as systemd does, without its doubled dollar signs.
run_unit_line() { sh -euc "$(sed -n "s/^$1=//p" "$agentUnit" | sed 's/\$\$/$/g')"; }

# Starts the installed agent, on a port of its own because others may run on this machine.
start_agent() {
    ZOT_PASSWORD=$(sed -n 's/^password=//p' $config)
    export ZOT_PASSWORD
    port=$((20000 + $(od -An -N 2 -tu2 /dev/urandom) % 10000))
    sed -i "s/^port=.*/port=$port/" $config
    run_unit_line ExecStart >/dev/null
}
