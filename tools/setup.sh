# shellcheck shell=sh
# Sourced by the other scripts: installs missing build tools where it may, and knows the machine.
# Callers have changed to the root of the tree.

cpu_count() { getconf _NPROCESSORS_ONLN 2>/dev/null || echo 1; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
        sudo "$@"
    else
        echo "Not root, so please install: $missing" >&2
        exit 1
    fi
}

# want PACKAGE TEST...: notes the package as missing when the test fails.
want() {
    package=$1
    shift
    "$@" >/dev/null 2>&1 || missing="$missing $package"
}

have_header() { test -e "/usr/include/$1" || test -e "/usr/local/include/$1"; }

install_missing() {
    [ -z "$missing" ] && return 0
    echo "Installing:$missing"
    # The list is split into words on purpose.
    # shellcheck disable=SC2086
    if command -v apt-get >/dev/null 2>&1; then
        as_root apt-get update -qq
        as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
            $missing >/dev/null
    elif command -v pkg >/dev/null 2>&1; then
        as_root pkg install -y -q $missing
    else
        echo "Please install: $missing" >&2
        exit 1
    fi
    missing=
}

# What a plain build needs; with "tests", what the tests need too.
install_tools() {
    missing=
    want cmake command -v cmake
    if command -v apt-get >/dev/null 2>&1; then
        want g++ command -v c++
        want make command -v make
        want libcli11-dev have_header CLI/CLI.hpp
        want nlohmann-json3-dev have_header nlohmann/json.hpp
        want libc-ares-dev have_header ares.h
        want libyaml-cpp-dev have_header yaml-cpp/yaml.h
        want libmicrohttpd-dev have_header microhttpd.h
        want libgnutls28-dev have_header gnutls/gnutls.h
        if [ "${1:-}" = tests ]; then
            want libgtest-dev have_header gtest/gtest.h
            want mandoc command -v mandoc
            want groff-base command -v groff
            want shellcheck command -v shellcheck
            want curl command -v curl
            want openssl command -v openssl
        fi
    else
        want cli11 have_header CLI/CLI.hpp
        want nlohmann-json have_header nlohmann/json.hpp
        want c-ares have_header ares.h
        want yaml-cpp have_header yaml-cpp/yaml.h
        want libmicrohttpd have_header microhttpd.h
        want gnutls have_header gnutls/gnutls.h
        if [ "${1:-}" = tests ]; then
            want googletest have_header gtest/gtest.h
            want hs-ShellCheck command -v shellcheck
            want curl command -v curl
        fi
    fi
    install_missing
}

# The programs that tests hold zot against; without them these tests are skipped. Some of them are
# services, which the system starts: for machines that are there for tests.
install_peers() {
    missing=
    command -v apt-get >/dev/null 2>&1 || return 0
    want ansible-core command -v ansible-playbook
    want chromium command -v chromium
    want cron command -v cron
    want dpkg-dev command -v dpkg-shlibdeps
    want icinga2-bin command -v icinga2
    want iproute2 command -v ip
    want lintian command -v lintian
    want nagios4-core command -v nagios4
    want php-cgi command -v php-cgi
    want php-cli command -v php
    want php-pgsql sh -c 'php -m | grep -q pgsql'
    want postgresql test -d /usr/lib/postgresql
    want prometheus command -v promtool
    want prometheus-alertmanager command -v prometheus-alertmanager
    want python3-apt python3 -c 'import apt'
    want rpm command -v rpmbuild
    want stunnel4 command -v stunnel4
    want systemd test -x /lib/systemd/systemd
    want zabbix-frontend-php test -d /usr/share/zabbix
    want zabbix-server-pgsql command -v zabbix_server
    install_missing
}
