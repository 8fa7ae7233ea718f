#!/bin/bash
# Runs in the plain Debian: installs, plays, removes. Ends with a message at the first thing that is wrong.
set -euo pipefail
fail() {
  echo "not so: $*" >&2
  exit 1
}
as_service=(setpriv --reuid mirevo --regid mirevo --init-groups --)
export DEBIAN_FRONTEND=noninteractive

find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /root \) -prune -o -print | sort > /root/before
begun=$EPOCHREALTIME
after() {
  awk -v begun="$begun" -v now="$EPOCHREALTIME" -v what="$1" 'BEGIN { printf "%s after %.1f s\n", what, now - begun }'
}
apt-get install -y -qq --no-install-recommends /tmp/mirevo_*.deb /tmp/liborvoqmx1_*.deb > /root/log 2>&1 ||
  { cat /root/log >&2; fail "the packages can be installed"; }

after "installed"

mirevo --version | grep -q '^mirevo [0-9]' || fail "mirevo is in the path"
[ "$(stat -c %U /var/lib/mirevo)" = mirevo ] || fail "the service's folder is its own"
[ -e /lib/systemd/system/mirevo.service ] || fail "there is a unit"
zgrep -q 'mirevo' /usr/share/man/man1/mirevo.1.gz 2> /dev/null || [ ! -d /usr/share/man/man1 ] ||
  fail "there is a manual"
cp /root/film.mkv /var/lib/mirevo/films/film.mkv
"${as_service[@]}" mirevo doctor --json > /root/doctor || { cat /root/doctor >&2; fail "the machine is fit"; }

# As the unit starts it.
command=$(sed -n 's/^ExecStart=//p' /lib/systemd/system/mirevo.service)
mkfifo /root/output
exec {output}<> /root/output
# shellcheck disable=SC2086
"${as_service[@]}" $command >&"$output" 2>&1 &
service=$!
read -r -t 60 -u "$output" line || fail "the service starts"
case $line in "listening on http"*) ;; *) fail "the service listens: $line" ;; esac

password=$(cat /etc/mirevo/first-password)
[ "$(stat -c '%a %U' /etc/mirevo/first-password)" = "600 root" ] || fail "only root can read the first password"
grep -qF "$password" /root/log && fail "the first password is in no log"
grep -qF /etc/mirevo/first-password /root/log || fail "the place of the first password is shown"
api="${line#listening on }webapi/entry.cgi?api=ORVO.Mirevo2"
curl -s "$api.Library&version=1&method=list" | grep -q '"Unauthorized"' || fail "a login is needed"
curl -s -d account=owner --data-urlencode "passwd=$password" "$api.Auth&version=1&method=login" |
  grep -q '"success":true' || fail "the first password is the owner's"

address=$(mirevo play --format http /var/lib/mirevo/films/film.mkv) || fail "a film can be opened"
(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$address" || true) | sort -u > /root/played
printf 'aac\nh264\n' | cmp - /root/played || fail "the film plays, as H.264 and AAC"
after "the film plays"
mirevo status --json | grep -q '"kind" : "HTTP"' || fail "the status shows the stream"

kill -TERM "$service"
wait "$service" || fail "the service ends well: $?"
[ ! -e /run/mirevo/address ] || fail "the service takes its address away"
grep -ls "^Uid:[[:space:]]$(id -u mirevo)[[:space:]]" /proc/[0-9]*/status && fail "no process is left"

apt-get purge -y -qq mirevo liborvoqmx1 > /root/log 2>&1 || { cat /root/log >&2; fail "purging works"; }
find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /root \) -prune -o -print | sort > /root/after
comm -13 /root/before /root/after |
  grep -vE '^/(var/(lib/(dpkg|apt|systemd)|log|cache)|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$)' > /root/left &&
  { cat /root/left >&2; fail "purging leaves nothing"; }
getent passwd mirevo > /dev/null && fail "purging removes the user"
echo "installed, played, removed"
