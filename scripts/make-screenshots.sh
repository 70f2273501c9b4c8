#!/usr/bin/env bash
# Pictures of the main window and of every dialog, taken from the real program on the
# virtual deck under a virtual X server, for the manual and the README. The program tours
# its own windows (--tour): it logs a scene, batch-captures it, opens the properties and
# the seek dialog, and runs a scene-detection capture.
#   BUILD_DIR=...   the build to use (default build/release, built if missing)
set -euo pipefail
cd "$(dirname "$0")/.."

build=${BUILD_DIR:-build/release}
if [ ! -x "$build/kestrel-capture" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
  cmake --build "$build" -j "$(nproc)" --target kestrel-capture
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/config" docs/screenshots
XDG_CONFIG_HOME=$work/config KESTREL_VIRTUAL_DECK=${KESTREL_VIRTUAL_DECK:-demo} \
KESTREL_AUDIO_SINK=fakesink \
  xvfb-run -a -s "-screen 0 1280x1024x24" \
  "$build/kestrel-capture" --tour --output "$work/captures" --screenshots "$work/shots"
for shot in "$work"/shots/*.png; do
  # Stripped of their time stamps, so that unchanged pictures do not show as changed.
  convert "$shot" -strip "docs/screenshots/$(basename "$shot")"
done
ls -l docs/screenshots
