#!/bin/bash
# Copies a folder from a service with accounts by rclone and wget, and compares the bytes.
# Usage: file_clients.sh BUILD. Needs the packages rclone and wget.
set -euo pipefail
target=$(cd "$1" && pwd)/target
fail() {
  echo "not so: $*" >&2
  exit 1
}
root=$(mktemp -d)
export ORVO_SYSROOT=$root
service=
cleanup() {
  [ -z "$service" ] || { kill "$service" && wait "$service"; } || true
  rm -rf "$root"
}
trap cleanup EXIT

season="$root/films/A series/Season 1"
mkdir -p "$root/etc.defaults" "$root/volume1" "$root/var/packages/Mirevo" "$season"
ln -s "$target" "$root/var/packages/Mirevo/target"
echo 'unique="orvo_x86_unit"' > "$root/etc.defaults/orvoinfo.conf"
head -c 3000000 /dev/urandom > "$season/it's \"one\" & (2019).mkv"
head -c 1000000 /dev/urandom > "$root/films/é + ü.mp4"
password='a pass-word'
"$target/bin/mirevo" account add anna <<< "$password"

mkfifo "$root/output"
"$target/bin/mirevo" serve --no-browser --no-analysis --port 0 -- "$root/films" > "$root/output" &
service=$!
read -r line < "$root/output"
address=${line#listening on }files/

rclone --config "$root/rclone.conf" copy :http: "$root/by-rclone" --http-url "$address" \
  --http-headers "Authorization,Basic $(printf 'anna:%s' "$password" | base64)" 2> /dev/null || fail "rclone copies"
diff -r "$root/films" "$root/by-rclone/films" || fail "rclone gets the same files"

wget --quiet --recursive --no-parent --no-host-directories --directory-prefix "$root/by-wget" --reject 'index.html*' \
  --user anna --password "$password" --auth-no-challenge "$address" || fail "wget copies"
diff -r "$root/films" "$root/by-wget/files/films" || fail "wget gets the same files"
echo "rclone and wget copied the films"
