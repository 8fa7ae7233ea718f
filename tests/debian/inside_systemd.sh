#!/bin/bash
# Runs under a systemd of its own, in a plain Debian. Ends with a message at the first thing that is wrong.
set -euo pipefail
fail() {
  echo "not so: $*" >&2
  systemctl status --no-pager --lines=0 mirevo >&2 || true
  journalctl --no-pager -n 20 -u mirevo >&2 || true
  exit 1
}
is() { # PROPERTY VALUE: of the unit
  [ "$(systemctl show -P "$1" mirevo)" = "$2" ] || fail "$1 is $2, but $(systemctl show -P "$1" mirevo)"
}
main() { systemctl show -P MainPID mirevo; }
# The processes of the service's user.
processes() { grep -ls "^Uid:[[:space:]]$(id -u mirevo)[[:space:]]" /proc/[0-9]*/status | cut -d / -f 3 || true; }
started() { cut -d ' ' -f 22 "/proc/$1/stat" 2> /dev/null; } # in ticks; nothing once it has ended
answers() { curl -s "$(cat /run/mirevo/address)" | grep -qi '<html' || fail "the page is there $1"; }
# Waits until the unit is active with another main process than PID.
is_new() {
  local _
  for _ in $(seq 300); do
    [ "$(main)" != "$1" ] && systemctl -q is-active mirevo && return
    sleep 0.1
  done
  fail "the service starts again $2"
}
install() { apt-get install -y -qq --no-install-recommends "$1"/*.deb > /root/log 2>&1 || { cat /root/log >&2; fail "$1 installs"; }; }

install /root/before
systemctl -q is-enabled mirevo || fail "the unit is enabled"
systemctl -q is-active mirevo || fail "the unit starts with the installation"
is StatusText "listening on http://127.0.0.1:8096/"
answers "after the first start"
complaints=$(systemd-analyze verify --man=no mirevo.service 2>&1 | grep -i 'mirevo' || true)
[ -z "$complaints" ] || fail "systemd has no complaint about the unit: $complaints"
runuser -u mirevo -- mirevo doctor --json > /root/doctor || { cat /root/doctor >&2; fail "the machine is fit"; }

journalctl --no-pager -u mirevo | grep 'films are' && fail "the unit lets the service confine what reads films"

# A film plays inside the unit's restrictions.
cp /root/film.mkv /var/lib/mirevo/films/film.mkv
api=http://127.0.0.1:8096/webapi/entry.cgi
password=$(cat /etc/mirevo/first-password)
curl -s -c /root/jar --data-urlencode "passwd=$password" \
  --data "api=ORVO.Mirevo2.Auth&version=1&method=login&account=owner" "$api" | grep -q '"success":true' || fail "the owner can log in"
open_film() {
  curl -s -b /root/jar "$api?api=ORVO.Mirevo2.Streaming&version=1&method=open&format=http&path=/var/lib/mirevo/films/film.mkv" |
    sed -n 's/.*"url":"\([^"]*\)".*/\1/p'
}
address=$(open_film)
[ -n "$address" ] || fail "a film can be opened"
(curl -s --max-time 20 "$address" || true) | head -c 20000 > /root/played || true
[ "$(stat -c %s /root/played)" = 20000 ] || { cat /root/played >&2; fail "the film plays"; }

# Conversions with a unit of their own: the service leaves them alone, and a film is converted inside the unit's
# restrictions. The unit starts again after a crash, and goes on with the queue.
converter() { systemctl show -P MainPID orvovideoconversiond; }
convert() { runuser -u mirevo -- mirevo convert "$@"; }
# Waits until a command succeeds.
waits() { # REASON COMMAND...
  local reason=$1 _
  shift
  for _ in $(seq 900); do
    "$@" && return
    sleep 0.1
  done
  convert list >&2
  systemctl status --no-pager --lines=20 orvovideoconversiond >&2 || true
  fail "$reason"
}
# Is there another converter than PID, and does the file name it?
is_converter() {
  local pid
  pid=$(converter)
  [ "$pid" != 0 ] && [ "$pid" != "$1" ] && [ "$(cat /run/orvovideoconversiond.pid)" = "$pid" ]
}
is_ready() { convert list | grep -q ready; }
echo "no-conversions = true" >> /etc/mirevo/mirevo.conf
systemctl restart mirevo
[ ! -s /run/orvovideoconversiond.pid ] || fail "the service itself does not convert"
systemctl enable --now -q orvovideoconversiond || fail "the unit of the conversions starts"
complaints=$(systemd-analyze verify --man=no orvovideoconversiond.service 2>&1 | grep -i 'conver' || true)
[ -z "$complaints" ] || fail "systemd has no complaint about the unit of the conversions: $complaints"
waits "the file names the converter" is_converter 0
ffmpeg -v error -f lavfi -i testsrc2=s=160x90:r=12:d=2 -c:v libx264 /var/lib/mirevo/films/short.mkv
convert pause
convert add /var/lib/mirevo/films/short.mkv > /root/id || fail "a film can be queued"
before=$(converter)
kill -KILL "$before"
waits "the converter starts again" is_converter "$before"
convert pause --off
waits "the film is converted" is_ready
# Both end and start together.
systemctl stop mirevo
systemctl -q is-active orvovideoconversiond && fail "the conversions end with the service"
[ -z "$(processes)" ] || fail "no process is left of the conversions"
systemctl start mirevo
systemctl -q is-active orvovideoconversiond || fail "the conversions start with the service"
sed -i '/^no-conversions/d' /etc/mirevo/mirevo.conf
systemctl disable --now -q orvovideoconversiond
systemctl restart mirevo

# Reload: there is none; the request changes nothing, and "reload-or-restart" restarts.
before=$(main)
systemctl reload mirevo 2> /dev/null && fail "a reload is refused"
[ "$(main)" = "$before" ] || fail "a refused reload changes nothing"
systemctl reload-or-restart mirevo || fail "the service can be restarted"
[ "$(main)" != "$before" ] || fail "it has restarted"
answers "after a restart"

# Watchdog: the service calls in time, and is replaced when it hangs.
mkdir -p /etc/systemd/system/mirevo.service.d
printf '[Service]\nWatchdogSec=4\nTimeoutAbortSec=2\n' > /etc/systemd/system/mirevo.service.d/test.conf
systemctl daemon-reload
systemctl restart mirevo
before=$(main)
sleep 9 # two periods of the watchdog
[ "$(main)" = "$before" ] || fail "a service that works is left alone"
kill -STOP "$before"
is_new "$before" "when it hangs"
answers "after it hung"

# Crash: all processes of the old one are gone, and a new one runs.
before=$(main)
address=$(open_film)
curl -s --max-time 60 "$address" > /dev/null 2>&1 &
kill -KILL "$before"
is_new "$before" "after a crash"
answers "after a crash"
oldest=$(started "$(main)")
for pid in $(processes); do
  [ "$(started "$pid" || echo "$oldest")" -ge "$oldest" ] ||
    fail "no process is older than the service: $(tr '\0' ' ' < "/proc/$pid/cmdline")"
done

# Upgrade: a new process, and the same account.
before=$(main)
install /root/now
dpkg -s mirevo | grep -q '^Version: 0.9.9' && fail "the new version is installed"
is_new "$before" "after an upgrade"
answers "after an upgrade"
[ "$(cat /etc/mirevo/first-password)" = "$password" ] || fail "an upgrade keeps the account"

systemctl stop mirevo
is Result success
is ExecMainStatus 0
[ ! -e /run/mirevo/address ] || fail "the service takes its address away"
[ -z "$(processes)" ] || fail "no process is left"
echo "started, converted in a unit of its own, refused a reload, restarted, hung, crashed, upgraded, stopped"
