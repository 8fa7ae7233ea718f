#!/bin/bash
# Runs in the empty Debian: what README tells a new user to do, with the time of each step.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
begun=$EPOCHREALTIME
step() {
  awk -v begun="$begun" -v now="$EPOCHREALTIME" -v what="$1" 'BEGIN { printf "%-60s %6.1f s\n", what, now - begun }'
  begun=$EPOCHREALTIME
}
quietly() {
  "$@" > /root/log 2>&1 || { cat /root/log >&2; exit 1; }
}
quietly apt-get update -qq
step "the package lists are downloaded"
quietly apt-get install -y -qq --download-only /tmp/mirevo_*.deb /tmp/liborvoqmx1_*.deb
step "the packages are downloaded ($(du -cm /var/cache/apt/archives/*.deb | awk 'END { print $1 }') MB)"
quietly apt-get install -y -qq /tmp/mirevo_*.deb /tmp/liborvoqmx1_*.deb
step "the packages are installed"
cp /root/film.mkv /var/lib/mirevo/films
# As the unit starts it.
command=$(sed -n 's/^ExecStart=//p' /lib/systemd/system/mirevo.service)
mkfifo /root/output
exec {output}<> /root/output
# shellcheck disable=SC2086
setpriv --reuid mirevo --regid mirevo --init-groups -- $command >&"$output" 2>&1 &
service=$!
read -r -t 60 -u "$output" line
case $line in "listening on http"*) ;; *) echo "$line" >&2; exit 1 ;; esac
step "the service listens"
ffprobe -v error "$(mirevo play --format hls /var/lib/mirevo/films/film.mkv)"
step "the film plays"
kill -TERM "$service"
wait "$service"
