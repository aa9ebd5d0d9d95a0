# What the tests of programs share. Sourced; it makes a folder for the test's files, works in it and
# takes it away in the end, with every process in `processes`.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
cd "$work" || exit 1
limited=(timeout --foreground 60) # hands a signal on, once, and returns the program's exit status
processes=()
faults=0

cleanUp() {
  ((${#processes[@]} == 0)) || kill "${processes[@]}" 2>/dev/null
  wait
  rm -rf "$work"
}
trap cleanUp EXIT

complain() {
  printf '%s, line %s: %s\n' "$(basename "$0")" "${BASH_LINENO[1]}" "$*" >&2
  tail -n 20 ./*.log 2>/dev/null | sed 's/^/  /' >&2
}

# Goes on after a check that fails; ends after what the rest builds on.
check() {
  "$@" && return
  complain "failed: $*"
  faults=$((faults + 1))
}
fail() {
  complain "$*"
  exit 1
}
finish() { exit $((faults > 0)); }

# Until a command succeeds, or a minute is over.
waitFor() {
  local deadline=$((SECONDS + 60))
  until "$@"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.05
  done
}

# Whether a program ends with a status, and says why in one line.
complains() {
  local wanted=$1 status
  shift
  "${limited[@]}" "$@" >/dev/null 2>complaint
  status=$?
  ((status == wanted && $(wc -l <complaint) == 1)) || { cat complaint && false; }
}

# A port that the system gave to a socket of ours a moment ago.
findPort() {
  local probe socket
  exec {probe}<>/dev/udp/127.0.0.1/9
  socket=$(readlink "/proc/$$/fd/$probe")
  port=$(awk -v socket="${socket//[^0-9]/}" '$10 == socket { print substr($2, 10) }' /proc/net/udp)
  port=$((16#$port))
  exec {probe}>&-
}

# Whether a PNG file has these sides.
hasSides() { # FILE WIDTH HEIGHT
  local file=$1 bytes
  shift
  bytes=$(od -An -tu1 -j16 -N8 "$file") # most significant byte first
  test "$(echo $bytes)" = "$(for side; do echo 0 0 $((side >> 8)) $((side & 255)); done | xargs)"
}

mkfifo silence
exec {silence}<>silence # an input that does not end

isSaid() { grep -qs -- "$1" test.log; }
hasEnded() { ! kill -0 "$process" 2>/dev/null; }

# Starts a receiver on a port of its own, which stands for PORT, and on a second one, if it wants it,
# for SECOND; on others when somebody was faster. What it says is in test.log.
start() {
  local command
  for _ in {1..10}; do
    findPort
    second=$port
    findPort
    command=("${@/PORT/$port}")
    "${limited[@]}" "${command[@]/SECOND/$second}" <&"$silence" &>test.log &
    process=$!
    processes+=("$process")
    waitFor eval 'isSaid "Receive process running" || hasEnded'
    isSaid 'taken\|bind' || return
  done
}

endsWith() {
  local status
  wait "$process"
  status=$?
  ((status == $1))
}
