#!/usr/bin/env bash
# Tries the project as a new user would on a fresh Debian 12 machine: a
# minimal Debian 12 root made by debootstrap, a clean clone of the current
# HEAD copied into it, and the README's two commands, `make run` and
# `make test`, run inside it with chroot as root.  Each command's time is
# printed with its CPU time (and kept in build-fresh/times.txt).  `make fresh-machine`.
#
#   tools/fresh-machine.sh [command...]     (default: both commands)
#
# The minimal root is made once and kept as build-fresh/base.tar; every run
# starts from a new copy of it, so nothing from an earlier run (packages,
# build directories, sysroots) is reused.  /proc, /sys, /dev, /dev/pts,
# /dev/shm and a tmpfs /tmp are mounted in the root while it runs and
# unmounted on exit.  KP120_DEBIAN_MIRROR picks the Debian mirror.
set -euo pipefail

cd "$(dirname "$0")/.."
src=$PWD
out=$src/build-fresh
root=$out/root
base=$out/base.tar
mirror=${KP120_DEBIAN_MIRROR:-http://deb.debian.org/debian}
security=${KP120_DEBIAN_SECURITY_MIRROR:-http://deb.debian.org/debian-security}
if [ $# -eq 0 ]; then set -- "make run" "make test"; fi

if [ "$(id -u)" -ne 0 ]; then
    echo "fresh-machine: chroot and debootstrap need root; run: sudo tools/fresh-machine.sh" >&2
    exit 1
fi
command -v debootstrap >/dev/null || tools/deps.sh cross

mounted=()
unmount_all() {
    local i
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
        umount -l "${mounted[$i]}" 2>/dev/null || true
    done
    mounted=()
}
trap unmount_all EXIT
trap 'exit 130' INT TERM
mount_in() { # mount_in TYPE-OR-BIND SOURCE TARGET
    mkdir -p "$root$3"
    if [ "$1" = bind ]; then mount --bind "$2" "$root$3"; else mount -t "$1" "$2" "$root$3"; fi
    mounted+=("$root$3")
}

mkdir -p "$out"
# A leftover root (an interrupted run) may still have something mounted.
if [ -d "$root" ]; then
    grep -o " $root/[^ ]*" /proc/mounts | sort -r | while read -r m; do umount -l "$m" || true; done
    rm -rf --one-file-system "$root"
fi

if [ ! -f "$base" ]; then
    echo "fresh-machine: making the minimal Debian 12 root (debootstrap, $mirror)"
    rm -rf "$out/base.tmp"
    if ! debootstrap --variant=minbase --include=make bookworm "$out/base.tmp" "$mirror" >"$out/debootstrap.log" 2>&1; then
        tail -5 "$out/debootstrap.log" >&2
        echo "fresh-machine: debootstrap failed (log $out/debootstrap.log); run again later or set KP120_DEBIAN_MIRROR" >&2
        exit 1
    fi
    tar -C "$out/base.tmp" --one-file-system -cf "$base.tmp" .
    mv "$base.tmp" "$base"
    rm -rf "$out/base.tmp"
fi

mkdir -p "$root"
tar -C "$root" -xf "$base"
# The sources of an installed Debian 12 machine, its security updates included.
cat >"$root/etc/apt/sources.list" <<EOF
deb $mirror bookworm main
deb $mirror bookworm-updates main
deb $security bookworm-security main
EOF
cp -L /etc/resolv.conf "$root/etc/resolv.conf"
# The project as a new user gets it: a clean clone of HEAD, no build directory.
git clone -q --no-hardlinks "$src" "$root/root/kp120"
# A new user's machine has git; a clone's copy has no other use for it here.
rm -rf "$root/root/kp120/.git"

mount_in proc proc /proc
mount_in sysfs sysfs /sys
mount_in bind /dev /dev
mount_in devpts devpts /dev/pts
mount_in tmpfs tmpfs /dev/shm
mount_in tmpfs tmpfs /tmp

: >"$out/times.txt"
status=0
TIMEFORMAT='%R %U %S'
for cmd in "$@"; do
    log=$out/$(echo "$cmd" | tr ' ' _).log
    echo "== fresh-machine: $cmd (log $log)"
    set +e
    { time chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb LANG=C.UTF-8 \
        bash -c "cd /root/kp120 && $cmd" >"$log" 2>&1; } 2>"$out/time.tmp"
    rc=$?
    set -e
    read -r real user sys <"$out/time.tmp"
    line=$(awk -v c="$cmd" -v rc=$rc -v r="$real" -v u="$user" -v s="$sys" 'BEGIN {
        printf "%s: exit %d, %d min %02d s (CPU: user %d min %02d s, sys %d min %02d s)", c, rc,
            r / 60, r % 60, u / 60, u % 60, s / 60, s % 60 }')
    echo "$line" | tee -a "$out/times.txt"
    tail -3 "$log"
    [ $rc -eq 0 ] || status=1
done
exit $status
