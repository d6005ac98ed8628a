#!/bin/sh
# zot_cpu.sh
#
# Prints the CPU usage of half a second in per cent, all processors together, for the CPU test of
# zot.

read_times() {
    times=$(sysctl -n kern.cp_time) || exit 1
    read -r user nice system interrupt idle <<END
$times
END
    busy=$((user + nice + system + interrupt))
    total=$((busy + idle))
}

read_times
old_busy=$busy
old_total=$total
sleep 0.5
read_times

busy=$((busy - old_busy))
total=$((total - old_total))
if [ "$total" -le 0 ] || [ "$busy" -lt 0 ]; then busy=0 total=1; fi
[ "$busy" -le "$total" ] || busy=$total

hundredths=$((busy * 10000 / total))
printf '%d.%02d\n' $((hundredths / 100)) $((hundredths % 100))
