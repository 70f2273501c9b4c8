#!/usr/bin/env bash
# The real program on the virtual deck, offscreen: Play, Record with scene detection on,
# and let the tape run out. The demo tape's three recordings (the second after a timecode
# jump, the third a flagged start with the timecode running on) must give three files,
# each after the first holding its whole recording, exact at both ends, the capture ending
# by itself at the tape's end, with nothing lost that is not counted.
#   program_scene_detects_demo_tape.sh <kestrel-capture>
set -u
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/captures"
# Stop would come after 60 s; the tape runs out well before.
XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" QT_QPA_PLATFORM=offscreen \
  KESTREL_VIRTUAL_DECK=demo KESTREL_AUDIO_SINK=fakesink \
  timeout 200 "$program" --self-test-capture 60 --scenes --output "$work/captures" \
  > "$work/out.txt" 2>&1
status=$?
cat "$work/out.txt"
fail() { echo "FAIL: $*"; ls -l "$work/captures"; exit 1; }
[ "$status" -eq 0 ] || fail "exit code $status"
grep -q "scene-detection capture running" "$work/out.txt" || fail "no capture ran"
count=$(ls "$work/captures"/*.avi 2>/dev/null | wc -l)
[ "$count" -eq 3 ] || fail "$count files for three recordings"
value() { sed -n "s/^$2: //p" "$1" | head -n 1; }
for n in 1 2 3; do
  log="$work/captures/kestrel 000 $n.log"
  [ -s "$log" ] || fail "no log for file $n"
  echo "== file $n"; cat "$log"
  frames=$(value "$log" frames)
  packets=$(ffprobe -v error -count_packets -select_streams v:0 \
    -show_entries stream=nb_read_packets -of csv=p=0 "$work/captures/kestrel 000 $n.avi")
  [ "$frames" = "$packets" ] || fail "file $n holds $packets frames, its log says $frames"
done
# Every recording is 200 frames; the second and third are whole, counted losses included.
for n in 2 3; do
  log="$work/captures/kestrel 000 $n.log"
  total=$(( $(value "$log" frames) + $(value "$log" "dropped frames") ))
  [ "$total" -eq 200 ] || fail "file $n: $total frames of its 200"
  grep -q "(the recording break the previous file ended at)" "$log" \
    || fail "file $n does not begin at the break"
done
grep -q "^first frame: 01:25:40:00" "$work/captures/kestrel 000 2.log" || fail "file 2's start"
grep -q "^last frame: 01:25:47:24" "$work/captures/kestrel 000 2.log" || fail "file 2's end"
grep -q "^first frame: 01:25:48:00" "$work/captures/kestrel 000 3.log" || fail "file 3's start"
grep -q "^last frame: 01:25:55:24" "$work/captures/kestrel 000 3.log" || fail "file 3's end"
grep -q "^last frame: 00:10:07:24" "$work/captures/kestrel 000 1.log" || fail "file 1's end"
echo "PASS"
