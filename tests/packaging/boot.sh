# shellcheck shell=sh
# service_boot.sh DIRECTORY GROUP LIFE: run with namespaces of its own. Lays DIRECTORY/tree over this
# machine's files, and lets systemd boot there to run the script LIFE.
ip link set lo up
layer=$1/layer
root=$layer/root
mount -t tmpfs tmpfs "$layer"
mkdir "$layer/upper" "$layer/work" "$root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$layer/upper,workdir=$layer/work" "$root"
cp -a "$1/tree/." "$root"
mkdir -p "$root/trial/output"
cp "$3" "$1/hangs.elf" "$root/trial"
sed "s/^password=.*/password=of the trial/; s/^executeaction=.*/executeaction=1/" \
    "$root/etc/zot/zot.cfg.sample" >"$root/etc/zot/zot.cfg"
chmod 600 "$root/etc/zot/zot.cfg"
# Of this machine nothing is started.
rm -rf "$root/etc/fstab" "$root"/etc/systemd/system/*
mkdir "$root/etc/systemd/system/multi-user.target.wants"
ln -s /lib/systemd/system/zot.service "$root/etc/systemd/system/multi-user.target.wants"
mkdir "$root/etc/systemd/system/zot.service.d"
printf '[Service]\nRestartSec=300ms\n' >"$root/etc/systemd/system/zot.service.d/trial.conf"
cat >"$root/etc/systemd/system/trial.service" <<END
[Unit]
After=multi-user.target
SuccessAction=exit
FailureAction=exit
FailureActionExitStatus=1
[Service]
Type=oneshot
WorkingDirectory=/trial
Environment=PATH=/usr/sbin:/usr/bin:/sbin:/bin
ExecStart=/bin/sh -euc '. ./$(basename "$3")'
StandardOutput=file:/trial/output/log
StandardError=inherit
END
ln -s ../trial.service "$root/etc/systemd/system/multi-user.target.wants"
mount --bind "$1/output" "$root/trial/output"
for folder in run tmp dev; do mount -t tmpfs tmpfs "$root/$folder"; done
for name in null zero full random urandom tty; do
    : >"$root/dev/$name"
    mount --bind "/dev/$name" "$root/dev/$name"
done
mkdir "$root/dev/shm" "$root/dev/pts"
ln -s /proc/self/fd "$root/dev/fd"
mount -t proc proc "$root/proc"
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
