# Functions for the tests of programs, which source this file. The test runs in a new temporary
# directory. At the end, the directory is removed and every process in `processes` is killed.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
cd "$work" || exit 1
limited=(timeout --foreground 60) # forwards a signal once and returns the program's exit status
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

# check() continues after a failure. fail() ends the test.
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

# Repeats a command until it succeeds, for at most a minute.
waitFor() {
  local deadline=$((SECONDS + 60))
  until "$@"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.05
  done
}

# Whether a program ends with this status and one line on standard error.
complains() {
  local wanted=$1 status
  shift
  "${limited[@]}" "$@" >/dev/null 2>complaint
  status=$?
  ((status == wanted && $(wc -l <complaint) == 1)) || { cat complaint && false; }
}

# Sets $port to a free port: the system has just assigned it to a socket, which is closed again.
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

# Starts a receiver. Free ports replace PORT and SECOND in its arguments, others if one is taken
# meanwhile. Its output is in test.log.
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
