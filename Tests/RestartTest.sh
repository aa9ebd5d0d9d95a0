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
  processes+=($!)
  pids[$1]=$!
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
moment() { sleep "0.$(printf %03d $((RANDOM % 100)))"; }

declare -A pids
start receive
start send
resumes || fail 'Nothing arrives.'

mapfile -t before < <(holdings "${pids[receive]}")
for ((round = 1; round <= rounds; ++round)); do
  moment
  killed send
  start send
  resumes || fail "round $round: nothing arrives from a new sender"
done
check waitFor holdsNoMore "${pids[receive]}" "${before[@]}"

mapfile -t before < <(holdings "${pids[send]}")
for ((round = 1; round <= rounds; ++round)); do
  moment
  killed receive
  start receive
  resumes || fail "round $round: nothing arrives at a new receiver"
done
check waitFor holdsNoMore "${pids[send]}" "${before[@]}"

for ((round = 1; round <= rounds; ++round)); do
  moment
  killed send
  killed receive
  start receive
  start send
  resumes || fail "round $round: nothing arrives when both are new"
done
echo "$(arrivals) images arrived whole, $(grep -c altered arrived.log) altered"
check eval '! grep -q altered arrived.log'
finish
