#!/usr/bin/env bash
# Kills the sender or the receiver of a stream of images at random times and restarts it:
# RestartTest.sh ENDLESS [ROUNDS]. The stream must resume each time, and the process that keeps
# running must not grow.
set -uo pipefail

endless=$(realpath "$1") rounds=${2:-100}
. "$(dirname "$0")/Support.sh"
findPort
: >arrived.log

start() { # send|receive
  "$endless" "$1" "$port" >>"$([[ $1 == receive ]] && echo arrived.log || echo /dev/null)" &
  pids[$1]=$!
  processes=("${pids[@]}") # only these: the IDs of ended processes may be in use again
}
killed() { # send|receive
  kill -KILL "${pids[$1]}"
  wait "${pids[$1]}" 2>/dev/null
}
arrivals() { grep -c whole arrived.log; }
isAtLeast() { (($(arrivals) >= $1)); }
resumes() { waitFor isAtLeast $(($(arrivals) + 3)); }
holdings() { # PID: descriptors, threads, kB
  ls "/proc/$1/fd" | wc -l
  ls "/proc/$1/task" | wc -l
  awk '/VmRSS/ { print $2 }' "/proc/$1/status"
}
holdsNoMore() { # PID and its earlier holdings
  local now
  mapfile -t now < <(holdings "$1")
  echo "process $1 held $2 $3 $4, holds ${now[*]}"
  ((now[0] <= $2 && now[1] <= $3 && now[2] <= $4 + 16000))
}
# Kills and restarts processes many times. The first argument names the process that keeps running,
# if any. It must not grow after the first round, in which it allocates what it needs.
rounds() { # STAYS|'' KILLED...
  local stays=$1 round before
  shift
  for ((round = 1; round <= rounds; ++round)); do
    sleep "0.$(printf %03d $((RANDOM % 100)))"
    for end in "$@"; do killed "$end"; done
    for end in "$@"; do start "$end"; done
    resumes || fail "round $round: nothing arrives after a restart of: $*"
    [[ -z $stays || round -gt 1 ]] || mapfile -t before < <(holdings "${pids[$stays]}")
  done
  [[ -z $stays ]] || check waitFor holdsNoMore "${pids[$stays]}" "${before[@]}"
}

declare -A pids
start receive
start send
resumes || fail 'Nothing arrives.'
rounds receive send
rounds send receive
rounds '' receive send
echo "$(arrivals) images arrived whole, $(grep -c altered arrived.log) altered"
check eval '! grep -q altered arrived.log'
finish
