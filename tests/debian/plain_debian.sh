# For the tests that install the packages into a plain Debian; they source this file.
# shellcheck shell=bash
skip() {
  echo "skipped: $*" >&2
  exit 77
}

# Makes the packages of a build folder, and a plain Debian, which later runs take from the build folder.
# Sets: folder, with the packages in it; base, the plain Debian as an archive.
prepare_packages() {
  local build=$1 here program
  here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
  [ "$(id -u)" -eq 0 ] || skip "only root can install packages into a root of its own"
  for program in debootstrap dh dpkg-buildpackage zstd; do
    command -v "$program" > /dev/null || skip "$program is missing (tools/install-packages package)"
  done
  folder=$build/package
  mkdir -p "$folder"
  exec {lock}> "$folder/.lock"
  flock "$lock"
  # Another recipe makes another base.
  base=$folder/base-$(sha256sum < "$here/make_base.sh" | cut -c 1-12).tar.zst
  if [ ! -e "$base" ]; then
    rm -f "$folder"/base*.tar.zst
    "$here/make_base.sh" "$base" || skip "no plain Debian could be fetched"
  fi
  rm -f "$folder"/*.deb
  "$here/../../tools/make-package" "$folder" "$build"
}
