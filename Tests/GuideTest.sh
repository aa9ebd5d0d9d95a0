#!/usr/bin/env bash
# Runs the guide's programs against each other and compares the received with the sent data:
# GuideTest.sh RECEIVEPICTURES SENDSCREEN RECEIVEMEDIA PEER.
set -uo pipefail

receivepictures=$(realpath "$1") sendscreen=$(realpath "$2")
receivemedia=$(realpath "$3") peer=$(realpath "$4")
seeds=$(realpath "$(dirname "$0")/../Fuzzing/Seeds/FuzzImages")
. "$(dirname "$0")/Support.sh"

for program in "$receivepictures" "$sendscreen" "$receivemedia" "$peer"; do
  check complains 1 "$program"
done
for number in 0 65536 99999 -1 5000x x ''; do
  check complains 1 "$receivepictures" "$number" screen.png
  check complains 1 "$sendscreen" 127.0.0.1 "$number"
  check complains 1 "$receivemedia" "$number" 5002
  check complains 1 "$peer" 127.0.0.1 "$number" screen.png
  check grep -q 'no port' complaint
done

# Presses Enter, which the receiver polls for but does not read, and checks the size of the picture.
saves() { # WIDTH HEIGHT
  echo >&"$silence"
  endsWith 0 && read -r -u "$silence" && hasSides screen.png "$@"
}

# A busy machine may lose a datagram. Then everything is sent again.
pictures() { grep -cx 'the screen came\|a region came' test.log; }
screenArrives() {
  local before
  before=$(pictures)
  "$sendscreen" 127.0.0.1 "$port" &>said || return
  (($(pictures) - before == $(grep -c '^frame [0-9]* sent' said)))
}
start "$receivepictures" PORT screen.png
check waitFor screenArrives
check saves 320 180

# A screen assembled from regions: one is scaled, and one is beyond any screen. In the second round,
# a preview of the whole screen gives its size.
arrives() { # IMAGE X Y WIDTH HEIGHT
  local before
  before=$(pictures)
  printf 'Size|%s|Rect|~%s~%s~%s~%s' "$(wc -c <"$seeds/$1")" "${@:2}" >&"$images"
  cat "$seeds/$1" >&"$images" 2>/dev/null
  sleep 0.1
  (($(pictures) > before))
}
for screen in '40 50' '64 48'; do
  start "$receivepictures" PORT screen.png
  exec {images}>"/dev/udp/127.0.0.1/$port"
  check waitFor arrives 444.jpg 30 40 10 10
  [[ $screen == '40 50' ]] || check waitFor arrives 444.jpg 0 0 $screen
  check waitFor arrives gray.jpg 1000000 0 1000000 1000000
  check saves $screen
done

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
check endsWith 143 # by SIGTERM
check complains 1 "$peer" 127.0.0.1 "$port" sent # no receiver is running
check grep -q 'nobody receives there' complaint

finish
