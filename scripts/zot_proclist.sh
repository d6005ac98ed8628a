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

ps -A -ww -o args= | cut -c 1-500
