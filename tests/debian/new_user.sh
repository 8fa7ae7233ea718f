#!/bin/bash
# Times the way of a new user from an empty Debian 12 to a playing film: the packages' dependencies are downloaded and
# installed, the service is started, and a film is opened and read. Needs root and the network.
# Usage: new_user.sh BUILD FILM
set -euo pipefail
build=$1 film=$2
here=$(cd "$(dirname "$0")" && pwd)
. /etc/os-release
mkdir -p "$build/package"
work=$(mktemp -d "$build/package/new_user.XXXXXX")
root=$work/root
trap 'umount --quiet "$root/proc" "$root/dev" 2> /dev/null || true; rm -rf --one-file-system "$work"' EXIT
"$here/../../tools/make-package" "$work" "$build"
# shellcheck disable=SC2016 # apt-get expands these itself
mirror=$(apt-get indextargets --format '$(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
  sed -n "s/^$VERSION_CODENAME //p" | head -n 1)
debootstrap --variant=minbase --include=ca-certificates --cache-dir=/var/cache/apt/archives \
  "$VERSION_CODENAME" "$root" "$mirror" > "$work/log" 2>&1 || { tail "$work/log" >&2; exit 1; }
rm -f "$root"/var/cache/apt/archives/*.deb
printf '#!/bin/sh\nexit 101\n' > "$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
cp "$work"/mirevo_*.deb "$work"/liborvoqmx1_*.deb "$root/tmp"
cp "$film" "$root/root/film.mkv"
cp "$here/inside_new_user.sh" "$root/root"

# shellcheck disable=SC2016 # the inner shell expands its own argument
unshare --mount --pid --fork --kill-child bash -c '
  mount --make-rprivate /
  mount -t proc proc "$1/proc"
  mount --rbind /dev "$1/dev"
  for name in resolv.conf hosts; do cp "/etc/$name" "$1/etc/$name"; done
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 ${http_proxy:+http_proxy="$http_proxy"} chroot "$1" bash /root/inside_new_user.sh
' - "$root"
