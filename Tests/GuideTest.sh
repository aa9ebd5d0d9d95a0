#!/usr/bin/env bash
# Runs the programs of the guide against each other, and compares what arrives with what was sent:
# GuideTest.sh RECEIVEPICTURES SENDSCREEN RECEIVEMEDIA PEER.
set -uo pipefail

receivepictures=$(realpath "$1") sendscreen=$(realpath "$2")
receivemedia=$(realpath "$3") peer=$(realpath "$4")
seeds=$(realpath "$(dirname "$0")/../Fuzzing/Seeds/FuzzImages")
. "$(dirname "$0")/Support.sh"

for program in "$receivepictures" "$sendscreen" "$receivemedia" "$peer"; do
  check complains 1 "$program"
done

# A datagram may be lost on a busy machine: then all is sent again.
pictures() { grep -cx 'the screen came\|a region came' test.log; }
screenArrives() {
  local before
  before=$(pictures)
  "$sendscreen" 127.0.0.1 "$port" &>said || return
  (($(pictures) - before == $(grep -c '^frame [0-9]* sent' said)))
}
start "$receivepictures" PORT screen.png
check waitFor screenArrives
echo >&"$silence"
check endsWith 0
sides=$(od -An -tu1 -j16 -N8 screen.png) # a PNG file's, most significant byte first
check test "$(echo $sides)" = "0 0 1 64 0 0 0 180"

{ head -c 5000 /dev/urandom && cat "$seeds/444.jpg"; } >sent
frameArrives() { "$peer" 127.0.0.1 "$port" sent &>said && cmp -s sent frame-1; }
recordingArrives() {
  printf 'recorded|3|wav|5' >&"$audio"
  printf abcde >&"$audio"
  grep -qsx abcde recording-3
}
start "$receivemedia" PORT SECOND
exec {audio}>"/dev/udp/127.0.0.1/$second"
check waitFor frameArrives
check isSaid 'the video starts'
check isSaid 'the video stops'
check waitFor recordingArrives
kill "$process"
check endsWith 143 # by the signal
check complains 1 "$peer" 127.0.0.1 "$port" sent # nobody is there
check grep -q 'nobody receives there' complaint

finish
