#!/usr/bin/env bash
# Shares the desktop of one X server with a viewer on another over 127.0.0.1 and compares both:
# ScreenTest.sh SCREENSHARE SCREENVIEW DISPLAYS RECEIVEPICTURES [SCREENSHOT.png]
set -uo pipefail
screenshare=$(realpath "$1") screenview=$(realpath "$2") displays=$(realpath "$3")
receivepictures=$(realpath "$4") screenshot=$(realpath "${5:-/dev/null}")
. "$(dirname "$0")/Support.sh"

alike=30 # decibels: at least 34 for JPEG at the default quality, under 20 with a misplaced window

# Starts an X server on a free display number. Its name is in $display.
startServer() {
  Xvfb -displayfd 3 -screen 0 1024x640x24 -nolisten tcp -noreset 3>display &>xvfb.log &
  server=$!
  processes+=("$server")
  waitFor test -s display || fail 'Xvfb does not start'
  display=":$(<display)"
  : >display
}

startSharer() {
  "$screenshare" 127.0.0.1 --port "$port" --display "$desktop" "$@" &>sharer.log &
  sharer=$!
  processes+=("$sharer")
}

# Avoids 3D drivers, in which sanitizers find races, and ignores leaks in other libraries.
startViewer() {
  ASAN_OPTIONS=detect_leaks=0 DISPLAY=$wall SDL_RENDER_DRIVER=software SDL_FRAMEBUFFER_ACCELERATION=0 \
    "$screenview" --port "$port" --fullscreen &>viewer.log &
  viewer=$!
  processes+=("$viewer")
  waitFor grep -qs 'Receive process running' viewer.log || fail 'the viewer does not start'
}

# Ends a process with SIGTERM and returns its exit status.
ends() {
  kill -TERM "$1"
  wait "$1"
}

# Whether two pictures, or one area of both, differ no more than JPEG makes them differ.
isAlike() {
  local similarity
  similarity=$("$displays" compare "$@") &&
    awk -v is="$similarity" -v wanted="$alike" 'BEGIN { exit !(is == "inf" || is >= wanted) }'
}

# Starts a program on the shared desktop.
show() {
  DISPLAY=$desktop "$@" &>/dev/null &
  processes+=("$!")
}
findWindow() {
  window=$(DISPLAY=$desktop xdotool search --onlyvisible --class "$1" | tail -n 1) && [[ $window ]];
}

moveTo() {
  DISPLAY=$desktop xdotool windowmove --sync "$logo" "$1" "$2"
}

startServer && desktop=$display
startServer && wall=$display
show xmessage -geometry 560x400+40+40 -fn fixed -file "$here/../Examples/Receiver.cpp"
show xcalc -geometry 260x304+720+300
show xclock -geometry 164x164+820+40 -bg '#f4ecd8'
show xlogo -geometry 150x150+630+50 -fg '#c8553d' -bg white
DISPLAY=$desktop xsetroot -solid '#27546e'
waitFor findWindow XLogo || fail 'there is no window to move'
logo=$window
for class in Xmessage XCalc XClock; do waitFor findWindow "$class" || fail "there is no $class"; done

findPort
startViewer
startSharer --refresh 3600 # changes must arrive without a refresh
check waitFor isAlike "$desktop" "$wall"
for place in '600 120' '520 220' '480 300' '460 420'; do moveTo $place; done
check waitFor isAlike "$desktop" "$wall" 630 50 150 150 # its old place
check waitFor isAlike "$desktop" "$wall" 460 420 150 150
check waitFor isAlike "$desktop" "$wall"
"$displays" save "$wall" "$screenshot"

# A sharer that restarts after the desktop has changed.
check ends "$sharer"
moveTo 100 460
startSharer --refresh 1 --chunk 1400
check waitFor isAlike "$desktop" "$wall"

# A viewer that starts late, and a scaled picture.
check ends "$viewer"
startViewer
check waitFor isAlike "$desktop" "$wall"
check ends "$sharer"
startSharer --scale 0.5
alike=18 check waitFor isAlike "$desktop" "$wall"
check ends "$viewer"
check ends "$sharer"

# Saves to a file without a window. On a busy machine the picture may still be incomplete.
startSharer --refresh 1
savesAlike() {
  "${limited[@]}" "$screenview" --port "$port" --save saved.png --after 2 >viewer.log &&
    isAlike "$desktop" saved.png
}
check waitFor savesAlike

# On a full disk, the old file remains unchanged.
cp saved.png before.png
(trap '' XFSZ && ulimit -f 8 && complains 1 "$screenview" --port "$port" --save saved.png --after 0) ||
  complain 'a full disk is not noticed'
check cmp before.png saved.png
check test -z "$(ls -A | grep '^\.new')"

# The guide's receiver. If it starts late, it assembles the screen from regions.
saves() { # WIDTH HEIGHT
  echo >&"$silence"
  endsWith 0 && read -r -u "$silence" && hasSides received.png "$@" && isAlike received.png "$desktop"
}
savesLate() {
  shared=$port
  start "$receivepictures" "$shared" received.png
  port=$shared
  sleep 2 # until all regions have arrived
  saves 1024 640
}
check waitFor savesLate
check ends "$sharer"
wholeComes() {
  local before
  before=$(grep -c 'the screen came' test.log)
  startSharer --refresh 3600 "$@"
  for _ in {1..60}; do
    (($(grep -c 'the screen came' test.log) > before)) && return
    sleep 0.05
  done
  ends "$sharer" && false
}
start "$receivepictures" PORT received.png
check waitFor wholeComes --chunk 1400
check saves 1024 640
check ends "$sharer"
start "$receivepictures" PORT received.png
check waitFor wholeComes
check ends "$sharer"
check waitFor wholeComes --scale 0.5
check saves 512 320
check ends "$sharer"
startSharer

check complains 1 "$screenshare" 127.0.0.1 --display :9999
check complains 1 env -u DISPLAY "$screenshare" 127.0.0.1
check complains 2 "$screenshare" host.example --display "$desktop"
check complains 1 env DISPLAY=:9999 SDL_VIDEODRIVER=x11 ASAN_OPTIONS=detect_leaks=0 "$screenview" --port "$port"
check complains 1 "$screenview" --port "$port" --save missing/directory.png
check complains 2 "$screenshare" 127.0.0.1 --fps 0
check complains 2 "$screenview" --port none
startServer && wall=$display
startViewer
check complains 1 "$screenview" --port "$port" --save saved.png

# The viewer's X server ends while pictures arrive.
show bash -c 'for ((i = 0;; i = !i)); do xsetroot -solid "#27546$i"; sleep 0.01; done'
for _ in {1..3}; do
  check waitFor eval '(($(grep -c "^New frame" viewer.log) > 50))'
  kill "$server"
  process=$viewer
  check waitFor hasEnded
  wait "$viewer"
  check test "$?" -lt 128 # not ended by a signal
  check eval '! grep -q Sanitizer viewer.log'
  startServer && wall=$display
  startViewer
done
check ends "$viewer"

# The sharer's X server ends.
kill "${processes[0]}"
wait "$sharer"
check test "$?" -eq 1
check grep -q 'does not answer any more' sharer.log

finish
