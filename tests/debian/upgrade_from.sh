#!/bin/bash
# Upgrades from the packages of an older commit to those of a build folder, under a systemd of its own: installs, plays,
# upgrades, plays, purges.
# Usage: upgrade_from.sh COMMIT BUILD FILM
#
# The older packages are compiled from the repository's history, which takes minutes, and stay in BUILD/package.
# Exit status 77, with the reason, if this machine cannot do that.
set -Eeuo pipefail
here=$(cd "$(dirname "$0")" && pwd)
commit=$(git -C "$here" rev-parse --verify "$1^{commit}")
build=$(cd "$2" && pwd)
film=$(realpath "$3")
before=$build/package/before-${commit:0:12}
work=$before.making

# Compiles the tree of the commit. The target "all" of an early one has its tests, too; they are left out.
make_packages() (
  rm -rf "$work"
  mkdir -p "$work/tree"
  git -C "$here/../.." archive "$commit" | tar -x -C "$work/tree"
  cd "$work/tree"
  cmake -S . -B build/before -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DORVO_BUILD_TESTS=OFF
  cmake --build build/before
  MIREVO_PREBUILT=$PWD/build/before dpkg-buildpackage --build=binary --no-check-builddeps --unsigned-changes --no-sign -rfakeroot
  mkdir "$work/packages"
  mv "$work"/*.deb "$work/packages"
)

if [ ! -e "$before" ]; then
  mkdir -p "$build/package"
  trap 'tail -n 20 "$before.log" >&2' ERR
  make_packages > "$before.log" 2>&1
  trap - ERR
  mv "$work/packages" "$before"
  rm -rf "$work" "$before.log"
fi
exec "$here/under_systemd.sh" "$build" "$film" "$before"
