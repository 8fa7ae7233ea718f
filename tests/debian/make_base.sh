#!/bin/bash
# Makes a plain Debian with what the packages depend on, packed, to install them into again and again.
# Usage: make_base.sh TARBALL. Needs root and the network.
set -euo pipefail
tarball=$1
. /etc/os-release
[ -e "$tarball" ] && exit 0
work=$(mktemp -d "$tarball.XXXXXX")
trap 'rm -rf --one-file-system "$work"' EXIT

# Where this machine's own packages come from.
# shellcheck disable=SC2016 # apt-get expands these itself
mirror=$(apt-get indextargets --format '$(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
  sed -n "s/^$VERSION_CODENAME //p" | head -n 1)
# Packages that this machine has downloaded already need not come again.
debootstrap --variant=minbase --include=ca-certificates --cache-dir=/var/cache/apt/archives \
  "$VERSION_CODENAME" "$work/root" "$mirror" > "$work/log" 2>&1 || { tail "$work/log" >&2; exit 1; }

# What would be a service of its own must not start.
printf '#!/bin/sh\nexit 101\n' > "$work/root/usr/sbin/policy-rc.d"
chmod 755 "$work/root/usr/sbin/policy-rc.d"
DEBIAN_FRONTEND=noninteractive chroot "$work/root" apt-get install -y -qq --no-install-recommends \
  curl ffmpeg libcurl4 libgstreamer-plugins-base1.0-0 libgstreamer1.0-0 libgupnp-1.6-0 libgupnp-av-1.0-3 libjsoncpp25 \
  libprotobuf-lite32 libsodium23 libuchardet0 libsqlite3-0 lighttpd lighttpd-mod-openssl lighttpd-modules-lua \
  systemd-standalone-sysusers systemd-standalone-tmpfiles > "$work/log" 2>&1 ||
  { tail "$work/log" >&2; exit 1; }
chroot "$work/root" apt-get clean
tar --zstd -C "$work/root" -cf "$work/base.tar.zst" .
mv "$work/base.tar.zst" "$tarball"
