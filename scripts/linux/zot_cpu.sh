#!/bin/sh
# zot_cpu.sh
#
# Prints the CPU usage of half a second in per cent, all processors together, for the CPU test of
# zot. Time that waits for disks counts as idle.

read_times() {
    read -r _ user nice system idle wait irq softirq steal _ </proc/stat || exit 1
    busy=$((user + nice + system + irq + softirq + ${steal:-0}))
    total=$((busy + idle + wait))
}

read_times
old_busy=$busy
old_total=$total
sleep 0.5
read_times

busy=$((busy - old_busy))
total=$((total - old_total))
# The kernel may take back idle time that it has reported, so the counters can stop or go backwards.
if [ "$total" -le 0 ] || [ "$busy" -lt 0 ]; then busy=0 total=1; fi
[ "$busy" -le "$total" ] || busy=$total

hundredths=$((busy * 10000 / total))
printf '%d.%02d\n' $((hundredths / 100)) $((hundredths % 100))
