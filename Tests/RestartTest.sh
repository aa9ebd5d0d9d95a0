#!/usr/bin/env bash
# Kills the ends of a stream of images in the middle of a picture, and starts them again:
# RestartTest.sh ENDLESS [ROUNDS]. The stream has to go on each time, and whoever stays holds no more
# than before.
set -uo pipefail

endless=$(realpath "$1") rounds=${2:-100}
. "$(dirname "$0")/Support.sh"
findPort
: >arrived.log

start() { # send|receive
  "$endless" "$1" "$port" >>"$([[ $1 == receive ]] && echo arrived.log || echo /dev/null)" &
  pids[$1]=$!
  processes=("${pids[@]}") # and no more: the numbers of those that are gone may be somebody else's
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
holdsNoMore() { # PID, and what holdings said before
  local now
  mapfile -t now < <(holdings "$1")
  echo "process $1 held $2 $3 $4, holds ${now[*]}"
  ((now[0] <= $2 && now[1] <= $3 && now[2] <= $4 + 16000))
}
# Kills some and starts them again, many times; the one that is named first, if any, stays. After the
# first time it has surely worked, and holds what it needs for that.
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
