#!/usr/bin/env bash
# Sends video, audio and PINs from one process to another and compares the received with the sent
# files: MediaTest.sh MEDIASEND MEDIARECEIVE DEMO. The demo's receiver answers the PINs.
set -uo pipefail

sender=$(realpath "$1") receiver=$(realpath "$2") demo=$(realpath "$3")
seeds=$(realpath "$(dirname "$0")/../Fuzzing/Seeds/FuzzImages")
. "$(dirname "$0")/Support.sh"

littleEndian() { # NUMBER BYTES
  local i
  for ((i = 0; i < $2; ++i)); do printf '%b' "\\x$(printf %02x $(($1 >> 8 * i & 255)))"; done
}

# Writes a WAV file with standard input as its samples.
wav() {
  cat >samples
  local size
  size=$(wc -c <samples)
  printf RIFF && littleEndian $((size + 36)) 4 && printf 'WAVEfmt ' && littleEndian 16 4
  littleEndian 1 2 && littleEndian 1 2 && littleEndian 8000 4 && littleEndian 8000 4
  littleEndian 1 2 && littleEndian 8 2 && printf data && littleEndian "$size" 4
  cat samples
}

# Writes a picture with standard input as a segment with this marker.
picture() { # MARKER
  cat >segment
  local size
  size=$(($(wc -c <segment) + 2))
  printf '%b' "\\xff\\xd8\\xff\\x$1\\x$(printf %02x $((size >> 8)))\\x$(printf %02x $((size & 255)))"
  cat segment
  tail -c +3 "$seeds/444.jpg"
}

application=e1 comment=fe
repeated() { printf "%$1s" '' | tr ' ' "$2"; }

# End markers in a thumbnail or a comment do not end a picture. Padding belongs to no picture.
cp "$seeds/420.jpg" sent-1.jpg
picture $application <"$seeds/422.jpg" >sent-2.jpg
head -c 60000 /dev/urandom | picture $comment >sent-3.jpg
# In chunks of 16 bytes, the second chunk begins at the comment's message or separators.
printf '0123456789stop|abcdefghijk' | picture $comment >sent-4.jpg
printf '0123456789videoframe|1|x|y' | picture $comment >sent-5.jpg
{ printf 0123456789 && repeated 40 '|'; } | picture $comment >sent-6.jpg
{ cat sent-1.jpg sent-2.jpg && head -c 100 /dev/zero && cat sent-3.jpg && head -c 400 sent-2.jpg; } \
  >pictures.mjpeg
cat sent-[456].jpg >messages.mjpeg

# Sends all six pictures as frames to a new receiver.
sendPictures() {
  rm -rf frames && mkdir frames
  start "$receiver" video frames --port PORT
  "$sender" video 127.0.0.1 pictures.mjpeg --port "$port" --fps 100 &>said &&
    grep -q 'skipped incomplete pictures: 1' said && grep -q 'sent frames: 3' said &&
    "$sender" video 127.0.0.1 - --port "$port" --chunk 16 <messages.mjpeg &>said &&
    waitFor test -e frames/frame-000006.jpg
}

mkdir recordings full
for _ in {1..3}; do # a busy machine may lose a datagram, which is not sent again
  sendPictures && break
  kill "$process"
done
for i in {1..6}; do check cmp "sent-$i.jpg" "frames/frame-00000$i.jpg"; done
check complains 1 "$receiver" video frames --port "$port"
check complains 1 "$receiver" audio frames --port "$port"

# An input that stalls, and a sender that ends at a signal.
mkfifo stalled
exec {stalled}<>stalled
cat sent-1.jpg >&"$stalled"
"${limited[@]}" "$sender" video 127.0.0.1 stalled --port "$port" &>said &
stalling=$!
processes+=("$stalling")
check waitFor test -e frames/frame-000007.jpg
check cmp sent-1.jpg frames/frame-000007.jpg
kill -TERM "$stalling"
check wait "$stalling"
check grep -q 'sent frames: 1' said
head -c 12 /dev/zero >&"$stalled"
check complains 1 "$sender" audio 127.0.0.1 stalled

# Missing frame numbers, and a receiver that ends at a signal.
exec {peer}>"/dev/udp/127.0.0.1/$port"
for message in start 'videoframe|2|x|3' abc 'videoframe|5|x|3' def; do
  printf %s "$message" >&"$peer"
done
check waitFor isSaid 'missing frames 3 to 4'
check isSaid 'missing frame 1$'
kill -TERM "$process"
check endsWith 0
check isSaid 'the stream starts'
check isSaid 'the stream stops'
check isSaid 'saved frames: 9, missing: 3'
check test "$(ls -A frames | wc -l)" = 9

# Files that fit into the system's receive buffer, in case the receiver has to wait.
head -c 100000 /dev/urandom | wav >sent-1.wav
{ head -c 5000 /dev/zero && repeated 4000 '|' && repeated 99 x && repeated 3000 '~'; } | wav >sent-2.wav
# In chunks of 44 bytes, the second chunk begins where the header ends.
printf 'recorded|7|x|%s' "$(repeated 31 y)" | wav >sent-3.wav
printf 'wave|1|a|2|b|%s' "$(repeated 31 3)" | wav >sent-4.wav
# Names that are taken by a file or by a dangling link.
echo kept >recordings/recording-0001.wav
ln -s ../elsewhere recordings/recording-0002.wav
start "$receiver" audio recordings --port PORT --count 4
check "$sender" audio 127.0.0.1 sent-1.wav --port "$port" &>said
check "$sender" audio 127.0.0.1 sent-2.wav --port "$port" &>said
check "$sender" audio 127.0.0.1 sent-3.wav --port "$port" --chunk 44 &>said
check "$sender" audio 127.0.0.1 sent-4.wav --port "$port" --chunk 44 --number 9 &>said
check endsWith 0
check isSaid 'recording 9'
for i in {1..4}; do check cmp "sent-$i.wav" "recordings/recording-000$((i + 2)).wav"; done
check grep -qx kept recordings/recording-0001.wav
check test ! -e elsewhere

# On a full disk, no file remains.
start bash -c 'trap "" XFSZ; ulimit -f 8; exec "$@"' limited "$receiver" audio full --port PORT
check "$sender" audio 127.0.0.1 sent-1.wav --port "$port" &>said
check endsWith 1
check isSaid 'cannot write to full'
check test -z "$(ls -A full)"

check complains 1 "$sender" pin 127.0.0.1 5183 --port "$port" # no receiver is running
start "$demo" --receive PORT --output "$work"
check waitFor "$sender" pin 127.0.0.1 5183 --port "$port" &>said
check complains 1 "$sender" pin 127.0.0.1 0000 --port "$port"
check grep -q rejected complaint

: >empty
for file in empty missing "$work" sent-1.wav; do
  check complains 1 "$sender" video 127.0.0.1 "$file"
done
for file in empty missing "$work" sent-1.jpg; do
  check complains 1 "$sender" audio 127.0.0.1 "$file"
done
head -c 140000 /dev/zero | tr '\0' '|' | wav >separators.wav
check complains 1 "$sender" audio 127.0.0.1 separators.wav --port "$port"
for address in host.example 192.168.1 1.2.3.256 ' 1.2.3.4'; do
  check complains 2 "$sender" audio "$address" sent-1.wav
done
check grep -q 'no IPv4 address' complaint
for program in "$sender" "$receiver" "$demo"; do
  check grep -qx "$(basename "$program") [0-9]*\.[0-9]*\.[0-9]*" <("$program" --version)
done
check complains 1 "$receiver" audio absent
check grep -q mkdir complaint
wav </dev/null >long.wav && truncate -s 513M long.wav
check complains 1 "$sender" audio 127.0.0.1 long.wav
check grep -q 'longer than' complaint
rm long.wav
check complains 2 "$sender" video 127.0.0.1 pictures.mjpeg --fps 0
check complains 2 "$sender" pin 127.0.0.1 '51|83'
check complains 2 "$sender"
check complains 2 "$receiver" video frames --count 0

finish
