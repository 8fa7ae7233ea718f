#!/bin/bash
# Runs under a systemd of its own, in a plain Debian: installs the packages of the version before, upgrades while a film
# plays, purges. Ends with a message at the first thing that is wrong.
set -euo pipefail
fail() {
  echo "not so: $*" >&2
  journalctl --no-pager -n 20 -u mirevo >&2 || true
  exit 1
}
paths() { # all but what the machine itself writes while it runs
  find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /run -o -path /tmp -o -path /root \) -prune -o -print | sort
}
install() { apt-get install -y -qq --no-install-recommends -o Dpkg::Options::=--force-confold "$1"/*.deb > /root/log 2>&1 || { cat /root/log >&2; fail "$1 installs"; }; }
version() { dpkg-query --show --showformat '${Version}' "$1"; }
main() { systemctl show -P MainPID mirevo; }
api=http://127.0.0.1:8096/webapi/entry.cgi
call() { curl -s -b /root/jar "$api?api=ORVO.Mirevo2.$1&version=1&method=$2&${3:-}"; }
plays() {
  local address
  address=$(call Streaming open "format=http&path=/var/lib/mirevo/films/film.mkv" | sed -n 's/.*"url":"\([^"]*\)".*/\1/p')
  [ -n "$address" ] || fail "a film opens $1"
  (ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$address" || true) | sort -u > /root/played
  printf 'aac\nh264\n' | cmp - /root/played || fail "a film plays $1"
}

paths > /root/paths-before
begun=$(date +%s)
install /root/before
echo "installed $(version mirevo) in $(($(date +%s) - begun)) s"
systemctl -q is-active mirevo || fail "the service starts with the installation"
cp /root/film.mkv /var/lib/mirevo/films/film.mkv
# The first packages made no account.
password=$(cat /etc/mirevo/first-password 2> /dev/null || true)
if [ -n "$password" ]; then
  curl -s -c /root/jar --data-urlencode "passwd=$password" \
    --data "api=ORVO.Mirevo2.Auth&version=1&method=login&account=owner" "$api" | grep -q '"success":true' || fail "the owner can log in"
else
  touch /root/jar
fi
plays "before the upgrade"
history() { call History list | grep -o '"position":[0-9.]*' || true; }
curl -s -b /root/jar --data "api=ORVO.Mirevo2.History&version=1&method=save&path=/var/lib/mirevo/films/film.mkv&position=7&duration=60" "$api" > /root/saved
if grep -q '"success":true' /root/saved; then
  seen=$(history)
  [ -n "$seen" ] || fail "the place in a film is kept"
else
  seen=
  echo "the version before has no history"
fi
echo '# a line of the owner' >> /etc/mirevo/mirevo.conf

before=$(main)
begun=$(date +%s)
install /root/now
case "$(version mirevo) $(version liborvoqmx1)" in *0.9.9*) fail "the new version is installed" ;; esac
systemctl -q is-active mirevo || fail "the service runs after the upgrade"
[ "$(main)" != "$before" ] || fail "the new program runs"
echo "upgraded to $(version mirevo) in $(($(date +%s) - begun)) s"
grep -q '# a line of the owner' /etc/mirevo/mirevo.conf || fail "the owner's configuration stays"
[ "$(cat /etc/mirevo/first-password 2> /dev/null || true)" = "$password" ] || fail "the account stays"
[ "$(history)" = "$seen" ] || fail "the places in the films stay"
plays "after the upgrade, in the session of before"
curl -s -o /root/index -w '%{http_code}' ${password:+-u "owner:$password"} http://127.0.0.1:8096/files/films/ | grep -q 200 ||
  fail "the new version has what is new"
runuser -u mirevo -- mirevo doctor > /dev/null || fail "the machine is fit after the upgrade"

begun=$(date +%s)
apt-get purge -y -qq mirevo liborvoqmx1 > /root/log 2>&1 || { cat /root/log >&2; fail "purging works"; }
paths > /root/paths-after
comm -13 /root/paths-before /root/paths-after |
  grep -vE '^/(var/(lib/(dpkg|apt|systemd)|log|cache|tmp)|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$)' > /root/left &&
  { cat /root/left >&2; fail "purging leaves nothing"; }
systemctl cat mirevo > /dev/null 2>&1 && fail "purging removes the unit"
[ ! -e /run/mirevo ] || fail "purging removes the running state"
getent passwd mirevo > /dev/null && fail "purging removes the user"
echo "purged in $(($(date +%s) - begun)) s; nothing is left"
