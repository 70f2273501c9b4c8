#!/usr/bin/env bash
# The real program on a machine without a camcorder and without the virtual deck: it must
# say that it found no camera, end with -1, and still write its settings at exit.
#   program_without_camera.sh <kestrel-capture>
set -u
program=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
out=$home/out.txt
env -u KESTREL_VIRTUAL_DECK XDG_CONFIG_HOME="$home/config" HOME="$home" \
  QT_QPA_PLATFORM=offscreen KESTREL_AUDIO_SINK=fakesink \
  timeout 120 "$program" --tour > "$out" 2>&1
status=$?
cat "$out"
if [ "$status" -eq 0 ] && grep -q "main window up" "$out"; then
  echo "SKIP: this machine has a capture device of its own"
  exit 77
fi
fail() { echo "FAIL: $*"; exit 1; }
[ "$status" -eq 255 ] || fail "exit code $status, expected 255 (-1)"
grep -q "the program says: Kestrel capture was unable to detect your camera. Please check that it is plugged in, check that it is turned on, then restart Kestrel capture (8)" "$out" \
  || fail "the camera-not-detected message was not shown"
settings=$home/config/larkspur/kestrel_cap.reg
[ -f "$settings" ] || fail "no settings written at exit ($settings)"
grep -q '^\[HKEY_CURRENT_USER\\Software\\larkspur\\kestrel_cap\]' "$settings" \
  || fail "the settings file has no settings key"
grep -q '^"DefaultScene"="kestrel"' "$settings" || fail "the scene name setting is missing"
echo "PASS"
