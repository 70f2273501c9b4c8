#!/usr/bin/env bash
# Builds the Windows program with mingw-w64 and runs its self-test capture under Wine on a
# virtual X server, on the virtual DV deck with the demo tape: it plays the tape, saves a
# picture of the main window, captures for CAPTURE_SECONDS (default 20; scene detection,
# or one recording with CAPTURE_MODE=record), quits, and the files written are listed
# with their durations, as scripts/run.sh does on Linux, and their streams as ffprobe
# reads them.
#   RUN_DIR=...   where captures and the picture go (default build/windows/self-test)
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/list-captures.sh
source scripts/lib/list-captures.sh

./scripts/install-deps.sh
# The demo tape is written by the Linux tape tool; the Windows deck plays it as a file.
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)" --target kestrel-tape
cmake -S . -B build/windows -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DKC_WITH_BENCH=OFF > /dev/null
cmake --build build/windows -j "$(nproc)" --target kestrel-capture

seconds=${CAPTURE_SECONDS:-20}
run_dir=$(realpath -m "${RUN_DIR:-build/windows/self-test}")
captures=$run_dir/captures
picture=$run_dir/main-window.bmp
tape=$run_dir/demo-pal.dv
rm -rf "$captures"
mkdir -p "$captures"
[ -f "$tape" ] || build/release/deck/kestrel-tape --demo --out "$tape"
# A Wine prefix of this run's own, never the user's nor the tests': the program starts
# with its default settings, and the settings it writes at exit stay here. Wine sees this
# machine's root as its drive Z:.
export WINEPREFIX=$run_dir/wine-prefix
export WINEDEBUG=-all
winpath() { printf 'Z:%s' "${1//\//\\}"; }
export KESTREL_VIRTUAL_DECK
KESTREL_VIRTUAL_DECK=$(winpath "$tape")
mode=(--scenes)
[ "${CAPTURE_MODE:-scenes}" = record ] && mode=()

wineserver -k 2>/dev/null || true
wineserver -w 2>/dev/null || true
echo "run-windows: Wine under Xvfb, the virtual deck with $tape, capturing for $seconds s"
status=0
xvfb-run -a -s "-screen 0 1280x1024x24" \
  wine build/windows/kestrel-capture.exe --self-test-capture "$seconds" "${mode[@]}" \
  --output "$(winpath "$captures")" --screenshot "$(winpath "$picture")" "$@" || status=$?
wineserver -k 2>/dev/null || true
echo "run-windows: the program ended with exit code $status"

echo "run-windows: files written to $captures:"
list_captures "$captures"
echo "run-windows: their streams, as ffprobe reads them:"
describe_streams "$captures"
[ -f "$picture" ] && echo "run-windows: picture of the main window: $picture"
echo "run-windows: settings written at exit:"
wine reg query 'HKCU\Software\larkspur\kestrel_cap' 2>/dev/null | tr -d '\r' | sed -n 's/^ \+/  /p'
wineserver -k 2>/dev/null || true
if [ "$status" -ne 0 ] || [ "$found" -eq 0 ]; then
  exit 1
fi
