#!/usr/bin/env bash
# Makes the skin bitmaps and the icon from their SVG sources: resources/skin/src/<id>.svg
# becomes resources/skin/bitmaps/<id>.png at the size its source declares, each pressed
# button picture is the normal one tinted red, and the icon is rendered at the sizes
# desktops ask for. The bitmaps are committed, so a build needs none of this.
set -euo pipefail
cd "$(dirname "$0")/.."

src=resources/skin/src
out=resources/skin/bitmaps
mkdir -p "$out"
render() { # svg png
  rsvg-convert "$1" -o "$2.tmp.png"
  # Opaque 24-bit pictures, as the skin's bitmaps are; no time stamps, so that an
  # unchanged source makes an unchanged file.
  convert "$2.tmp.png" -background '#26282c' -alpha remove -alpha off -define png:color-type=2 \
          -strip "$2"
  rm -f "$2.tmp.png"
}
for svg in "$src"/*.svg; do
  render "$svg" "$out/$(basename "$svg" .svg).png"
done
# pressed:normal pairs of the thirteen buttons
for pair in 138:139 136:137 140:141 142:143 134:135 131:132 144:145 146:147 129:130 \
            127:128 123:124 125:126 150:151; do
  convert "$out/${pair#*:}.png" -fill '#d42020' -colorize 38% -define png:color-type=2 -strip \
          "$out/${pair%%:*}.png"
done
for size in 16 32 48 64 128 256; do
  rsvg-convert -w "$size" -h "$size" resources/icon/kestrel-capture.svg \
               -o "resources/icon/kestrel-capture-$size.png"
done
cp resources/icon/kestrel-capture-256.png resources/icon/kestrel-capture.png
identify -format '%f %wx%h\n' "$out"/*.png | sort -n
