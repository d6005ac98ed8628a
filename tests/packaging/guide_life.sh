# shellcheck shell=sh
# Sourced in a system of its own, beside the package, the guide and what stands in for systemd.

mv zot_1.deb "zot_$(dpkg-deb -f zot_1.deb Version)_amd64.deb"
install -m 755 unit_runner.sh /usr/local/sbin/systemctl
export PATH="/usr/local/sbin:$PATH"
# For the maintainer scripts systemd is there, and nothing keeps them from starting the service.
mkdir -p /run/systemd/system
rm -f /usr/sbin/policy-rc.d
# The ten hosts are this one.
for n in 1 2 3 4 5 6 7 8 9 10; do echo "127.0.0.1 web$n" >>/etc/hosts; done

awk '/^```sh$/ {name = sprintf("block-%02d.sh", ++count); next}
     /^```/ {name = ""}
     name {print >name}' guide.md
[ -e block-02.sh ] || { echo "FAILED: the guide has no commands"; exit 1; }
for block in block-*.sh; do
    sed 's/^/$ /' "$block"
    sh -eu "$block" >output.txt 2>&1 || { cat output.txt; echo "FAILED: $block"; exit 1; }
    cat output.txt
done

# What the guide promises of its log script: the new line, and only that.
if grep -q '/zot-watch' block-*.sh; then
    [ "$(sh -eu -c 'echo "error: again" >>/var/log/shop.log
        zot-watch web1 /var/log/shop.log error /root/shop.state')" = "error: again" ] ||
        { echo "FAILED: zot-watch"; exit 1; }
fi
systemctl stop
