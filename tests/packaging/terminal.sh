# shellcheck shell=sh
# Sourced in a private system: runs the commands of a document as its reader would.

# Ends the agent in the terminal as soon as it listens, as Ctrl-C does (a shell without a terminal
# keeps that signal from background programs), and returns only when a daemon answers.
zot() {
    if [ "$1" = -d ]; then
        command zot "$@"
        until ZOT_PASSWORD=$password command zotq GetInfo >/dev/null 2>&1; do sleep 0.1; done
        return
    fi
    command zot "$@" >/package-test/terminal.txt 2>&1 &
    until grep -q Listening /package-test/terminal.txt; do
        kill -0 $! || { cat /package-test/terminal.txt; return 1; }
        sleep 0.1
    done
    kill $!
    wait $! || true
}

# As a plugin it may find something wrong with this machine.
zotq() {
    command zotq "$@" || {
        code=$?
        case " $* " in *" --plugin "*) [ "$code" -le 2 ] ;; *) return "$code" ;; esac
    }
}

# The reader sets the password.
password=choose-a-long-one
vi() { sed -i "s/^password=.*/password=$password/" "$1"; }

# carry_out FILE: runs all ```sh blocks of the document, in one shell, and prints each line first.
carry_out() {
    awk '/^ *```sh$/ {inside = 1; next}
         /^ *```/ {inside = 0}
         inside {print}' "$1" >/package-test/commands.sh
    [ -s /package-test/commands.sh ] || { echo "FAILED: $1 has no commands"; exit 1; }
    set -v
    # shellcheck source=/dev/null
    . /package-test/commands.sh
    set +v
}
