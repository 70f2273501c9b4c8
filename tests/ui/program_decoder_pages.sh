#!/usr/bin/env bash
# The real program on the virtual deck, offscreen: Properties, "DV Capture properties",
# the half display resolution, OK. The decoder's page must list the resolutions, the
# preview must then come from our small-picture decoder at half the PAL frame, 360 x 288
# (it was the pane's size before), and the page opened again must show what was chosen.
#   program_decoder_pages.sh <kestrel-capture>
set -u
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=$work/out.txt
XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" QT_QPA_PLATFORM=offscreen \
  KESTREL_VIRTUAL_DECK=demo KESTREL_AUDIO_SINK=fakesink \
  timeout 170 "$program" --self-test-properties "half" --output "$work/captures" > "$out" 2>&1
status=$?
cat "$out"
fail() { echo "FAIL: $*"; exit 1; }
[ "$status" -eq 0 ] || fail "exit code $status"
grep -q 'decoder page "DV Capture" offers 4 resolutions, shows full' "$out" \
  || fail "the decoder's page did not open on its resolutions"
sizes=$(sed -n 's/^self-test: preview frame \([0-9]*x[0-9]*\)$/\1/p' "$out" | paste -sd' ' -)
before=${sizes%% *}
after=${sizes##* }
[ "$before" != "0x0" ] && [ "$before" != "360x288" ] || fail "preview before: $before"
[ "$after" = "360x288" ] || fail "preview after choosing half: $after (before $before)"
grep -q '^self-test: decoder resolution half$' "$out" || fail "the page does not show half"
echo "PASS"
