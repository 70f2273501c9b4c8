#!/usr/bin/env bash
# The real program on the virtual deck, offscreen, driven through its own windows: Play,
# Record, wait, Record again. The recording must be the next numbered AVI file in the
# output folder, DV that ffprobe reads, as long as the time between the presses, with its
# capture log beside it.
#   program_records_from_deck.sh <kestrel-capture>
set -u
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=$work/out.txt
mkdir -p "$work/captures"
# A file already there: the recording must take the number after it.
: > "$work/captures/kestrel 004.avi"
XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" QT_QPA_PLATFORM=offscreen \
  KESTREL_VIRTUAL_DECK=demo KESTREL_AUDIO_SINK=fakesink \
  timeout 170 "$program" --self-test-capture 5 --output "$work/captures" > "$out" 2>&1
status=$?
cat "$out"
fail() { echo "FAIL: $*"; ls -l "$work/captures"; exit 1; }
[ "$status" -eq 0 ] || fail "exit code $status"
file="$work/captures/kestrel 005.avi"
[ -s "$file" ] || fail "no recording written as $file"
codecs=$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$file" | paste -sd, -)
[ "$codecs" = dvvideo ] || [ "$codecs" = "dvvideo,pcm_s16le" ] || fail "streams: $codecs"
frames=$(ffprobe -v error -count_packets -select_streams v:0 -show_entries stream=nb_read_packets \
  -of csv=p=0 "$file")
echo "recorded $frames frames ($codecs)"
# The log beside the file counts the same frames. A loaded machine may lose some at the
# deck, as a bus does: each loss is a line of the log, and they add up to its count.
log="$work/captures/kestrel 005.log"
[ -s "$log" ] || fail "no capture log $log"
cat "$log"
grep -qx "frames: $frames" "$log" || fail "the log counts other frames"
dropped=$(sed -n 's/^dropped frames: //p' "$log")
listed=$(awk '/^dropped: [0-9]+ frames?,/ { n += $2 } END { print n + 0 }' "$log")
[ "${dropped:-x}" = "${listed:-0}" ] || fail "$dropped frames counted lost, $listed listed"
# Five seconds between the presses at 25 frames a second, less the moment the graph takes
# to start: what the tape gives, and no more than it can.
taken=$((frames + dropped))
[ "$taken" -ge 95 ] && [ "$taken" -le 132 ] || fail "$taken frames for five seconds"
echo "PASS"
