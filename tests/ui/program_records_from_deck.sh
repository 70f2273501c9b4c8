#!/usr/bin/env bash
# The real program on the virtual deck, offscreen, driven through its own windows: Play,
# Record, wait, Record again. The recording must be the next numbered AVI file in the
# output folder, DV that ffprobe reads, about as long as the time between the presses.
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
duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$file")
echo "recorded $duration s ($codecs)"
# Five seconds between the presses; the graph takes a moment to start and stop.
awk -v d="$duration" 'BEGIN { exit !(d >= 2.5 && d <= 9) }' || fail "duration $duration s"
echo "PASS"
