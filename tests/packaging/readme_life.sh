# shellcheck shell=sh
# Sourced in a private system, beside README.md and the name of the source tree.
. ./terminal.sh

export PATH="/usr/local/sbin:/usr/local/bin:$PATH"
echo "127.0.0.1 monitored.example.org" >>/etc/hosts
cd "$(cat source.txt)" || exit
carry_out README.md
zotq QUIT
