#!/usr/bin/env bash
# Builds Kestrel Capture and runs it. Without a camcorder it runs on the virtual DV deck
# with the generated demo tape.
#
# With a display, the program starts for a person to use. Without one (a server, CI) it
# runs under a virtual X server and drives its own window: it plays the demo tape, saves a
# screenshot of the main window, captures with scene detection for CAPTURE_SECONDS
# (default 20), quits, and then the files written are listed with their durations.
#   CAPTURE_MODE=record   a single recording instead of scene detection
#   RUN_DIR=...           where captures, settings and the screenshot go
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/list-captures.sh
source scripts/lib/list-captures.sh

./scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)"

program=build/release/kestrel-capture
if [ ! -x "$program" ]; then
  echo "run: the program is not built yet on this checkout ($program missing)" >&2
  exit 1
fi
export KESTREL_VIRTUAL_DECK=${KESTREL_VIRTUAL_DECK:-demo}
if [ -n "${DISPLAY:-}" ]; then
  exec "$program" "$@"
fi

# --- Unattended run under Xvfb --------------------------------------------------------
seconds=${CAPTURE_SECONDS:-20}
run_dir=$(realpath -m "${RUN_DIR:-build/release/self-test}")
captures=$run_dir/captures
screenshot=$run_dir/main-window.png
rm -rf "$captures"
mkdir -p "$captures" "$run_dir/config"
# A settings file of this run's own: the user's settings are not touched, and the file
# shows that the program writes its settings at exit.
export XDG_CONFIG_HOME=$run_dir/config
# A machine without a person usually has no sound card either: the preview's sound goes
# nowhere instead of into error messages from the audio system.
export KESTREL_AUDIO_SINK=${KESTREL_AUDIO_SINK:-fakesink}
mode=(--scenes)
[ "${CAPTURE_MODE:-scenes}" = record ] && mode=()

echo "run: no display; running under Xvfb on the virtual deck ($KESTREL_VIRTUAL_DECK)," \
     "capturing for $seconds s"
status=0
xvfb-run -a -s "-screen 0 1280x1024x24" \
  "$program" --self-test-capture "$seconds" "${mode[@]}" \
  --output "$captures" --screenshot "$screenshot" "$@" || status=$?
echo "run: the program ended with exit code $status"

echo "run: files written to $captures:"
list_captures "$captures"
[ -f "$screenshot" ] && echo "run: screenshot of the main window: $screenshot"
settings_file=$XDG_CONFIG_HOME/larkspur/kestrel_cap.reg
[ -f "$settings_file" ] && echo "run: settings written at exit: $settings_file"
if [ "$status" -ne 0 ] || [ "$found" -eq 0 ]; then
  exit 1
fi
