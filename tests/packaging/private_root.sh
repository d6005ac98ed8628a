# shellcheck shell=sh
# Sourced by tests that install the package. They work in a private system: the files of this
# machine under a layer in memory, and processes of its own; both disappear with the test.

# can_layer DIRECTORY: whether files of this machine can be laid under others there.
can_layer() {
    # The inner shell expands what is in single quotes.
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child sh -euc '
        mount -t tmpfs tmpfs "$1"
        mkdir "$1/upper" "$1/work" "$1/root"
        mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root"
    ' sh "$1" 2>/dev/null
}

# require_private_root: ends the test as skipped where there are no dpkg and ip, where we may not use
# them, or where the machine, a container for example, allows no private system.
require_private_root() {
    probe=$(mktemp -d)
    if [ "$(id -u)" -ne 0 ] || ! command -v dpkg-deb >/dev/null || ! command -v ip >/dev/null ||
        ! can_layer "$probe"; then
        rmdir "$probe"
        echo "SKIPPED: needs root on a system with dpkg and ip, and with overlays of its own"
        exit 77
    fi
    rmdir "$probe"
}

# build_packages BUILD RELEASE DIRECTORY [PARTS]: leaves zot_RELEASE.deb, zotq_RELEASE.deb and, where
# it was built, zot-exporter_RELEASE.deb in the directory, or only what is in the list of parts.
# Installing writes into the build directory too, so whoever does it locks its list of packages.
build_packages() {
    flock "$1/CPackConfig.cmake" cpack --config "$1/CPackConfig.cmake" -G DEB -B "$3/$2" \
        -D "CPACK_DEBIAN_PACKAGE_RELEASE=$2" ${4:+-D "CPACK_COMPONENTS_ALL=$4"} \
        >"$3/cpack-$2.log" 2>&1 || { cat "$3/cpack-$2.log"; exit 1; }
    for package in "$3/$2"/*.deb; do
        mv "$package" "$3/$(dpkg-deb -f "$package" Package)_$2.deb"
    done
}

# run_in_private_root SCRIPT DIRECTORY [TREE]: runs the script as root there, in a copy of the
# directory, with a network of its own. The tree is there too, at its own place, on whatever file
# system it is.
run_in_private_root() {
    # The inner shell expands what is in single quotes.
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child --net sh -euc '
        ip link set lo up
        mkdir -p "$2/layer"
        mount -t tmpfs tmpfs "$2/layer"
        mkdir "$2/layer/upper" "$2/layer/work" "$2/layer/root"
        mount -t overlay overlay \
            -o "lowerdir=/,upperdir=$2/layer/upper,workdir=$2/layer/work" "$2/layer/root"
        mount -t proc proc "$2/layer/root/proc"
        mount --rbind /dev "$2/layer/root/dev"
        if [ -n "$3" ]; then
            mkdir -p "$2/layer/upper-tree" "$2/layer/work-tree" "$2/layer/root/$3"
            mount -t overlay overlay \
                -o "lowerdir=$3,upperdir=$2/layer/upper-tree,workdir=$2/layer/work-tree" \
                "$2/layer/root/$3"
        fi
        mkdir "$2/layer/root/package-test"
        cp "$1" "$2"/*.* "$2/layer/root/package-test"
        exec chroot "$2/layer/root" sh -euc "cd /package-test; . ./$(basename "$1")"
    ' sh "$1" "$2" "${3:-}"
}

# require_systemd: ends the test as skipped where boot.sh could not boot a system.
require_systemd() {
    if [ ! -x /lib/systemd/systemd ]; then
        echo "SKIPPED: needs systemd"
        exit 77
    fi
}

# remove_groups PREFIX: the control groups of boot.sh, as soon as the processes in them have ended.
remove_groups() {
    folder=$(mktemp -d)
    # The inner shell expands what is in single quotes.
    # shellcheck disable=SC2016
    unshare --mount sh -euc 'mount -t cgroup2 cgroup2 "$1"
        for _ in 1 2 3 4 5 6 7 8 9 10; do
            find "$1" -depth -type d -path "$1/$2*" -exec rmdir {} + 2>/dev/null && break
            sleep 0.3
        done' sh "$folder" "$1"
    rmdir "$folder"
}
