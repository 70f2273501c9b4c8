#!/usr/bin/env bash
# Installs every Debian package Kestrel Capture needs to build, test and run.
# Idempotent and non-interactive: packages already present are left alone.
set -euo pipefail

packages=(
  # toolchain and test framework
  build-essential cmake ninja-build pkg-config clang-format
  libgtest-dev libgmock-dev
  # media platform: GStreamer 1.22 with the DV elements, encoders, ffprobe for checks
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
  gstreamer1.0-libav gstreamer1.0-tools ffmpeg
  # FireWire DV device control (librom1394 ships in libavc1394-dev)
  libavc1394-dev libraw1394-dev libiec61883-dev
  # the program's windows, its skin art, and running it without a display
  qt6-base-dev qt6-svg-dev librsvg2-bin xvfb xauth imagemagick
  # the Windows cross build (GCC 12 with POSIX threads, windres, mingw-w64 10 headers) and
  # Wine to run its tests: wine64 runs 64-bit programs, wine gives the wine and wineboot
  # commands, fonts-wine the dialog fonts
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
  wine wine64 fonts-wine
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
