#!/bin/bash
# Runs the packaged unit under a systemd of its own: first start, reload, watchdog, crash, upgrade, stop.
# Usage: under_systemd.sh BUILD FILM [BEFORE]
#
# With BEFORE, a folder with packages of an earlier version, it runs the upgrade from these and a purge instead.
# Exit status 77, with the reason, if this machine cannot do that.
set -euo pipefail
build=$1 film=$2 before=${3:+$(cd "$3" && pwd)}
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/debian/plain_debian.sh
. "$here/plain_debian.sh"
prepare_packages "$build"

work=$(mktemp -d "$folder/systemd.XXXXXX")
root=$work/root
manager=
cleanup() {
  [ -z "$manager" ] || kill -KILL "$manager" 2> /dev/null || true
  wait
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT
mkdir "$root"

# The plain Debian, with systemd; kept for later runs.
prepared=${base%.tar.zst}-systemd.tar.zst
if [ ! -e "$prepared" ]; then
  tar --zstd -C "$root" -xf "$base"
  rm "$root/usr/sbin/policy-rc.d" # here, services start
  # The programs of the base's own that systemd brings along.
  DEBIAN_FRONTEND=noninteractive chroot "$root" apt-get install -y -qq --no-install-recommends systemd dbus \
    > "$work/log" 2>&1 || { tail -n 3 "$work/log" >&2; skip "systemd could not be fetched"; }
  chroot "$root" apt-get clean
  tar --zstd -C "$root" -cf "$work/prepared" .
  mv "$work/prepared" "$prepared"
else
  tar --zstd -C "$root" -xf "$prepared"
fi

# The version before gets an older number than any other.
older() {
  local package=$1 name
  name=$(basename "$package")
  dpkg-deb -R "$package" "$work/older"
  sed -i -E 's/^Version: .*/Version: 0.9.9/; s/\((>?=) [0-9][^)]*\) *($|,)/&/; s/(liborvoqmx1) \(>?= [^)]*\)/\1 (= 0.9.9)/g' "$work/older/DEBIAN/control"
  dpkg-deb --build --root-owner-group -Znone "$work/older" "$root/root/before/$name" > /dev/null
  rm -r "$work/older"
}
mkdir -p "$root/root/before" "$root/root/now"
cp "$folder"/mirevo_*.deb "$folder"/liborvoqmx1_*.deb "$root/root/now"
for package in "${before:-$root/root/now}"/{mirevo,liborvoqmx1}_*.deb; do
  older "$package"
done
flock -u "$lock"
cp "$film" "$root/root/film.mkv"
cp "$here/inside_systemd.sh" "$here/inside_upgrade.sh" "$root/root"
script=${before:+inside_upgrade.sh}

# A machine of its own but for the kernel: processes, mounts, network, names and control groups.
# shellcheck disable=SC2016 # the inner shell expands its own argument
unshare --mount --pid --fork --kill-child --net --uts --ipc --cgroup bash -euc '
  root=$1
  mount --make-rprivate /
  mount --bind "$root" "$root"
  mount -t proc proc "$root/proc"
  mount -t sysfs sysfs "$root/sys"
  mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
  for name in run dev tmp; do mount -t tmpfs tmpfs "$root/$name"; done
  for name in null zero full random urandom tty; do
    : > "$root/dev/$name"
    mount --bind "/dev/$name" "$root/dev/$name"
  done
  ln -s /proc/self/fd "$root/dev/fd"
  mkdir "$root/dev/shm"
  ip link set lo up 2> /dev/null || true
  exec env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$root" \
    /lib/systemd/systemd --log-target=console --show-status=no
' - "$root" < /dev/null > "$work/manager.log" 2>&1 &
unshared=$!

inside() {
  nsenter --target "$manager" --all --root --wd -- env -i \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
# The manager is the child of unshare. It answers soon or never.
state=
for _ in $(seq 300); do
  manager=$(cat "/proc/$unshared/task/$unshared/children" 2> /dev/null) || break
  manager=${manager%% *}
  if [ -n "$manager" ] && [ -S "/proc/$manager/root/run/systemd/private" ]; then
    state=$(inside timeout 60 systemctl is-system-running --wait 2>> "$work/manager.log" || true)
    break
  fi
  sleep 0.1
done
case $state in
  running | degraded) ;;
  *) tail -n 5 "$work/manager.log" >&2; skip "systemd does not start in a namespace here (${state:-no answer})" ;;
esac
inside bash "/root/${script:-inside_systemd.sh}"
