#!/bin/sh
# zot_proclist.sh
#
# Prints the command lines of all processes, one a line, for the process list of zot. What is
# listed is what zot_proccnt.sh searches, so any part of a line is a name for the process test.
# A longer command line is cut: the agent takes lines of up to 511 bytes.
#
# POSIX sh, ps and cut; the same for FreeBSD and Linux.

LC_ALL=C
export LC_ALL

# FreeBSD's ps shows each backslash doubled.
as_it_is() { if [ "$(uname)" = FreeBSD ]; then sed 's/\\\\/\\/g'; else cat; fi; }

# In the C locale ps puts other characters in the place of all that are not ASCII.
LC_ALL=C.UTF-8 ps -A -ww -o args= | as_it_is | cut -b 1-500
