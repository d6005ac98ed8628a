#!/bin/sh
# browser_test.sh BUILD: the exporter's pages in a real browser, which lets no script run in them. What the
# pages' own rules forbid, such as a style from elsewhere, it tells in its log.
set -eu
build=$1
for tool in chromium curl; do
    command -v $tool >/dev/null || { echo "SKIPPED: needs $tool"; exit 77; }
done
work=$(mktemp -d)
exporter=
finish() {
    [ -z "$exporter" ] || kill "$exporter" 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

printf 'web1:1 addr=127.0.0.1 groups=shop\nweb2:1 addr=127.0.0.1\n' >"$work/hosts"
printf 'hosts: hosts\nmodules: {base: {checks: [{name: agent, type: info}]}}\n' >"$work/e.yml"
"$build/zot-exporter" --config.file="$work/e.yml" --web.listen-address=127.0.0.1:0 \
    2>"$work/told" &
exporter=$!
until url=$(sed -n 's/.*listens at \(http:[^,]*\),.*/\1/p' "$work/told") && [ -n "$url" ]; do
    kill -0 $exporter || { cat "$work/told"; exit 1; }
    sleep 0.1
done
curl -s "$url/probe?target=web1&module=base" >/dev/null

# run_browser PATH WIDTH OPTION: prints what the browser makes of the page.
run_browser() {
    chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync \
        --enable-logging=stderr --user-data-dir="$work/profile" \
        --window-size="$2,900" "$3" "$url$1" 2>"$work/log" || { cat "$work/log"; exit 1; }
    if grep CONSOLE "$work/log" >&2; then exit 1; fi
}
show() { run_browser "$1" "$2" --dump-dom >"$work/dom.html"; }
has() { grep -q -e "$1" "$work/dom.html" || { cat "$work/dom.html"; echo "not there: $1"; exit 1; }; }

show / 1100
has '2 hosts: <span class="failed">1 failed'
has 'href="host?name=web1">web1</a> <span class="soft">shop'
has 'data-label="Reason">connect_refused: '
has 'data-label="Last probe" class="number">never'
show '/?state=failed&q=web' 400
has '>web1</a>'
if grep -q '>web2</a>' "$work/dom.html"; then exit 1; fi
show '/host?name=web1' 1100
has 'probe_failure_info{reason="connect_refused"} 1'
