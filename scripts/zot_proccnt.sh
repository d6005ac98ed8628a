#!/bin/sh
# zot_proccnt.sh NAME
#
# Prints how many processes have NAME in their command line, for the process test of zot.
# NAME is plain text: blanks and characters that mean something to a shell or to grep mean nothing
# here. Several arguments are one name with blanks, since the agent passes the name unquoted.
#
# Not counted: processes that have ended and wait for their parent, and every process that belongs
# to a run of this script (the calling shell, the script and what it starts, also when several run
# at once).
#
# POSIX sh, ps and awk; the same for FreeBSD and Linux.

LC_ALL=C
export LC_ALL

name=$*
# FreeBSD's ps shows each backslash doubled.
if [ "$(uname)" = FreeBSD ]; then name=$(printf '%s\n' "$name" | sed 's/\\/&&/g'); fi

# In the C locale ps puts other characters in the place of all that are not ASCII; awk is to compare
# bytes. The name travels in the environment: so it is on no command line but that of the script,
# and awk leaves its backslashes alone.
LC_ALL=C.UTF-8 ps -A -ww -o pid= -o ppid= -o stat= -o args= |
    ZOT_NAME="$name" ZOT_SCRIPT="$0" awk '
    {
        pid = $1
        parent[pid] = $2
        ended = $3 ~ /^Z/
        command = $0
        sub(/^ *[0-9]+ +[0-9]+ +[^ ]+ +/, "", command)
        if (index(command, ENVIRON["ZOT_SCRIPT"])) own[pid] = 1
        else if (!ended && index(command, ENVIRON["ZOT_NAME"])) found[pid] = 1
    }
    END {
        count = 0
        for (pid in found) if (!(parent[pid] in own)) ++count
        print count
    }'
