#!/usr/bin/env bash
# Builds Kestrel Capture and runs it. Without a camcorder it runs on the virtual DV deck
# with the generated demo tape; without a display it runs under a virtual X server.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build/release -j "$(nproc)"

program=build/release/kestrel-capture
if [ ! -x "$program" ]; then
  echo "run: the program is not built yet on this checkout ($program missing)" >&2
  exit 1
fi
export KESTREL_VIRTUAL_DECK=${KESTREL_VIRTUAL_DECK:-demo}
if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1280x1024x24" "$program" "$@"
fi
exec "$program" "$@"
