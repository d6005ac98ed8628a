#!/bin/sh
# zot_proclist.sh
#
# Prints the command lines of all processes, one a line, for the process list of zot. What is
# listed is what zot_proccnt.sh searches, so any part of a line is a name for the process test.
# A longer command line is cut: the agent takes lines of up to 511 bytes.
#
# Not listed: every process that belongs to a run of this script (the calling shell, the script and
# what it starts, also when several run at once).
#
# POSIX sh, ps and awk; the same for FreeBSD and Linux.

LC_ALL=C
export LC_ALL

# In the C locale ps puts other characters in the place of all that are not ASCII; awk is to count
# bytes. FreeBSD's ps shows each backslash doubled.
LC_ALL=C.UTF-8 ps -A -ww -o pid= -o ppid= -o args= |
    ZOT_SCRIPT="$0" awk -v doubled="$(uname | grep -c FreeBSD)" '
    {
        pid[NR] = $1
        parent[NR] = $2
        line = $0
        sub(/^ *[0-9]+ +[0-9]+ +/, "", line)
        if (index(line, ENVIRON["ZOT_SCRIPT"])) own[$1] = 1
        if (doubled) gsub(/\\\\/, "\\", line)
        command[NR] = substr(line, 1, 500)
    }
    END {
        for (i = 1; i <= NR; ++i) if (!(pid[i] in own) && !(parent[i] in own)) print command[i]
    }'
