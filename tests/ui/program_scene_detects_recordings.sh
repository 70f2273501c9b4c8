#!/usr/bin/env bash
# The real program on the virtual deck, offscreen: Play, Record with scene detection on,
# and let the tape run out. Four recordings (the second after a timecode jump, the third
# a start flagged for a whole second, long enough for two of the capture's looks at the
# tape to find it, the fourth flagged for two frames, which the looks may miss, both with
# the timecode running on) must give four files, each after the first holding its whole
# recording, exact at both ends, the capture ending by itself at the tape's end, with
# nothing lost that is not counted.
#   program_scene_detects_recordings.sh <kestrel-capture> <kestrel-tape>
set -u
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/captures"
"$2" --out "$work/tape.dv" 00:10:00:00,8,One 01:25:40:00,6,Two 01:25:46:00,6,Three,25 \
  01:25:52:00,4,Four,2 \
  || { echo "FAIL: no tape"; exit 1; }
# Stop would come after 60 s; the tape runs out well before.
XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" QT_QPA_PLATFORM=offscreen \
  KESTREL_VIRTUAL_DECK="$work/tape.dv" KESTREL_AUDIO_SINK=fakesink \
  timeout 200 "$program" --self-test-capture 60 --scenes --output "$work/captures" \
  > "$work/out.txt" 2>&1
status=$?
cat "$work/out.txt"
fail() { echo "FAIL: $*"; ls -l "$work/captures"; exit 1; }
[ "$status" -eq 0 ] || fail "exit code $status"
grep -q "scene-detection capture running" "$work/out.txt" || fail "no capture ran"
count=$(ls "$work/captures"/*.avi 2>/dev/null | wc -l)
[ "$count" -eq 4 ] || fail "$count files for four recordings"
value() { sed -n "s/^$2: //p" "$1" | head -n 1; }
for n in 1 2 3 4; do
  log="$work/captures/kestrel 000 $n.log"
  [ -s "$log" ] || fail "no log for file $n"
  echo "== file $n"; cat "$log"
  frames=$(value "$log" frames)
  packets=$(ffprobe -v error -count_packets -select_streams v:0 \
    -show_entries stream=nb_read_packets -of csv=p=0 "$work/captures/kestrel 000 $n.avi")
  [ "$frames" = "$packets" ] || fail "file $n holds $packets frames, its log says $frames"
done
# The second to fourth recordings are 150, 150 and 100 frames, whole, counted losses
# included.
for n in 2 3 4; do
  log="$work/captures/kestrel 000 $n.log"
  total=$(( $(value "$log" frames) + $(value "$log" "dropped frames") ))
  expected=$([ "$n" -eq 4 ] && echo 100 || echo 150)
  [ "$total" -eq "$expected" ] || fail "file $n: $total frames of its $expected"
  grep -q "(the recording break the previous file ended at)" "$log" \
    || fail "file $n does not begin at the break"
done
grep -q "^first frame: 01:25:40:00" "$work/captures/kestrel 000 2.log" || fail "file 2's start"
grep -q "^last frame: 01:25:45:24" "$work/captures/kestrel 000 2.log" || fail "file 2's end"
grep -q "^first frame: 01:25:46:00" "$work/captures/kestrel 000 3.log" || fail "file 3's start"
grep -q "^last frame: 01:25:51:24" "$work/captures/kestrel 000 3.log" || fail "file 3's end"
grep -q "^first frame: 01:25:52:00" "$work/captures/kestrel 000 4.log" || fail "file 4's start"
grep -q "^last frame: 01:25:55:24" "$work/captures/kestrel 000 4.log" || fail "file 4's end"
grep -q "^last frame: 00:10:07:24" "$work/captures/kestrel 000 1.log" || fail "file 1's end"
echo "PASS"
