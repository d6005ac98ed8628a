# shellcheck shell=sh
# Sourced in a private system, beside README.md and the name of the source tree.
. ./terminal.sh

install -m 755 unit_runner.sh /usr/local/sbin/systemctl
# Not once more for the tour.
export BUILD_DIR=build
export PATH="/usr/local/sbin:/usr/local/bin:$PATH"
echo "127.0.0.1 monitored.example.org" >>/etc/hosts
cd "$(cat source.txt)" || exit
carry_out README.md
if command -v logrotate >/dev/null; then logrotate -d /etc/logrotate.d/zot; fi
zotq QUIT
