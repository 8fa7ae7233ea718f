#!/bin/bash
# Installs the packages into a plain Debian, plays a film from the service there as its user, removes them
# and looks for what is left. Usage: install_and_play.sh BUILD FILM
#
# Exit status 77, with the reason, where this machine cannot do that.
set -euo pipefail
build=$1 film=$2
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/debian/plain_debian.sh
. "$here/plain_debian.sh"
prepare_packages "$build"

work=$(mktemp -d "$folder/root.XXXXXX")
root=$work/root
cleanup() {
  # Whatever still runs in there ends with the process namespace that it was started in.
  umount --quiet "$root/proc" "$root/dev" 2> /dev/null || true
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT
mkdir "$root"
tar --zstd -C "$root" -xf "$base"
cp "$folder"/*.deb "$root/tmp"
cp "$film" "$root/root/film.mkv"
cp "$here/inside.sh" "$root/root"

# shellcheck disable=SC2016 # the inner shell expands its own argument
unshare --mount --pid --fork --kill-child --net bash -c '
  mount --make-rprivate /
  mount -t proc proc "$1/proc"
  mount --rbind /dev "$1/dev"
  ip link set lo up 2> /dev/null || true
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 chroot "$1" bash /root/inside.sh
' - "$root"
