# shellcheck shell=sh
# boot.sh DIRECTORY GROUP: run with namespaces of its own. Lays DIRECTORY/tree over this machine's
# files and lets systemd boot there, in a control group of that name. DIRECTORY/output is /trial/output.
layer=$1/layer
root=$layer/root
mkdir "$layer"
mount -t tmpfs tmpfs "$layer"
mkdir "$layer/upper" "$layer/work" "$root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$layer/upper,workdir=$layer/work" "$root"
# Of this machine nothing is started.
rm -rf "$root/etc/fstab" "$root"/etc/systemd/system/* "$root"/etc/rc?.d/* "$root/usr/sbin/policy-rc.d"
# An installation need not read the lists of packages nor all manual pages.
rm -rf "$root"/var/lib/apt/lists/* "$root/var/lib/man-db/auto-update"
cp -a "$1/tree/." "$root"
mkdir -p "$root/trial/output" "$1/output"
mount --bind "$1/output" "$root/trial/output"
for folder in run tmp dev; do mount -t tmpfs tmpfs "$root/$folder"; done
for name in null zero full random urandom tty; do
    : >"$root/dev/$name"
    mount --bind "/dev/$name" "$root/dev/$name"
done
mkdir "$root/dev/shm" "$root/dev/pts"
ln -s /proc/self/fd "$root/dev/fd"
mount -t proc proc "$root/proc"
# The kernel's settings are this machine's.
mount --bind "$root/proc/sys" "$root/proc/sys"
mount -o remount,ro,bind "$root/proc/sys"
mount -t sysfs -o ro sysfs "$root/sys"
mount -t cgroup2 cgroup2 "$root/mnt"
mkdir "$root/mnt/$2"
echo 0 >"$root/mnt/$2/cgroup.procs"
umount "$root/mnt"
# The inner shell expands what is in single quotes.
# shellcheck disable=SC2016
exec unshare --cgroup sh -euc '
    mount -t cgroup2 cgroup2 "$1/sys/fs/cgroup"
    cd "$1"
    pivot_root . mnt
    umount -l mnt
    exec env -i container=other /lib/systemd/systemd --unit=multi-user.target --show-status=no
' sh "$root"
