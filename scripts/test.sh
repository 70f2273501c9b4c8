#!/usr/bin/env bash
# Installs the dependencies, builds, and runs the whole test suite twice: a normal
# build (warnings as errors, hardening flags) and an AddressSanitizer +
# UndefinedBehaviorSanitizer build. Then cross-builds the Windows program and its tests
# with mingw-w64, runs them under Wine and makes the Windows package. Also checks
# formatting of the C++ sources.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh

jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1
# GStreamer tests use a private registry and never the user's plugins.
export GST_REGISTRY_FORK=no

echo "== format check"
files=$(git ls-files '*.cpp' '*.h' 2>/dev/null || true)
if [ -n "$files" ]; then
  # shellcheck disable=SC2086
  clang-format --dry-run -Werror $files
fi

run_suite() {
  local dir=$1; shift
  echo "== build $dir ($*)"
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > "$dir.configure.log" 2>&1 \
    || { cat "$dir.configure.log"; exit 1; }
  grep -E '^--   ' "$dir.configure.log" || true
  cmake --build "$dir" -j "$jobs"
  echo "== test $dir"
  (cd "$dir" && ctest -j "$jobs" --timeout 600 --label-exclude firewire)
}

mkdir -p build
run_suite build/release
# LeakSanitizer reports the media framework's and toolkit's one-time allocations as
# leaks; our own objects' lifetimes are checked by the reference counts in the tests.
ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build/sanitize -DKC_SANITIZE=ON -DKC_WITH_BENCH=OFF

# The Windows build: the core's unit tests and the Windows platform tests, run under Wine
# in the build folder's own Wine prefix (cmake/wine-run.sh), on a virtual X server for
# the tests that make windows. The prefix's Wine processes are ended afterwards, so none
# outlives the run.
windows=build/windows
echo "== build $windows (mingw-w64, tests under Wine)"
cmake -S . -B "$windows" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DKC_WITH_BENCH=OFF \
  > "$windows.configure.log" 2>&1 || { cat "$windows.configure.log"; exit 1; }
grep -E '^--   ' "$windows.configure.log" || true
cmake --build "$windows" -j "$jobs"
echo "== test $windows (Wine)"
# The build ran the test programs (to list their tests) without a display; a Wine server
# still up from then would give the dialog tests its display-less desktop. -k only asks
# it to end; -w waits until it has, so that no test reaches a server on its way out.
WINEPREFIX="$PWD/$windows/wine-prefix" wineserver -k 2>/dev/null || true
WINEPREFIX="$PWD/$windows/wine-prefix" wineserver -w 2>/dev/null || true
status=0
(cd "$windows" && xvfb-run -a -s "-screen 0 1280x1024x24" ctest -j "$jobs" --timeout 600) || status=$?
WINEPREFIX="$PWD/$windows/wine-prefix" wineserver -k 2>/dev/null || true
[ "$status" -eq 0 ] || exit "$status"
echo "== package $windows"
cmake --build "$windows" --target windows-package
package=$(ls "$windows"/kestrel-capture-*-windows-x64.zip)
listing=$(cmake -E tar tf "$package")
for part in "bin/kestrel-capture.exe" "Manual/CManualIndex.htm" "docs/screenshots/main-window.png" "README.txt"; do
  grep -qF "Kestrel Capture/$part" <<<"$listing" || { echo "$package lacks $part"; exit 1; }
done
echo "$package"
echo "== all tests passed"
