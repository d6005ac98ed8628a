#!/bin/sh
# tunnel_test.sh SOURCE BUILD: the guide's tunnel, with addresses and ports of this test: the agent is
# reached through it, and by nobody with another key.
set -eu
source=$1
build=$2
command -v stunnel4 >/dev/null || { echo "SKIPPED: needs stunnel4"; exit 77; }
work=$(mktemp -d)
processes=
finish() {
    for process in $processes; do kill "$process" 2>/dev/null || true; done
    wait
    rm -rf "$work"
}
trap finish EXIT
export ZOT_PASSWORD=secret
port=$((3000 + $$ % 6000))
printf 'port=%s\nhost=127.0.0.1\npassword=secret\nzotpath=%s\nfilteractive=1\nfilterlist=127.0.0.1\nfiltermarks=1\n' \
    $port "$build/zot" >"$work/zot.cfg"
"$build/zot" -i "$work/zot.cfg" >"$work/log" 2>&1 &
processes=$!
echo "zot:$(openssl rand -hex 32)" >"$work/zot.psk"
echo "zot:$(openssl rand -hex 32)" >"$work/other.psk"
chmod 600 "$work"/*.psk
# tunnel NAME KEY PORT: starts one end, the server's at PORT.
tunnel() {
    sed -n "/^; .*$1.conf/,/^\`\`\`/p" "$source/docs/guide.md" |
        sed -e '/^```/d' -e "s#/etc/stunnel/zot.psk#$work/$2#" \
            -e "s#192.0.2.11:1056#127.0.0.2:$((port + 1))#; s#:1055#:$port#; s#:11055#:$3#" \
            >"$work/$3.conf"
    stunnel4 "$work/$3.conf" >>"$work/log" 2>&1 &
    processes="$processes $!"
}
tunnel zot-agent zot.psk 0
tunnel zot-server zot.psk $((port + 2))
tunnel zot-server other.psk $((port + 3))
tries=0
until "$build/zotq" -p $((port + 2)) GetInfo >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 100 ] || { cat "$work/log"; exit 1; }
    sleep 0.1
done
if "$build/zotq" -p $((port + 3)) GetInfo; then
    echo "another key opens the tunnel"
    exit 1
fi
grep -q 'Service \[web1\] connected remote server' "$work/log"
