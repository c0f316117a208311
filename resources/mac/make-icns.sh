#!/bin/sh
# Builds the bundle's icon from the 512-pixel PNG with the tools every Mac has (sips scales, iconutil packs),
# so no icon binary is kept in the repository. Usage: make-icns.sh <icon_512x512.png> <output.icns>
set -eu
source_png=$1
output=$2
iconset="${output%.icns}.iconset"
rm -rf "$iconset"
mkdir -p "$iconset"
for size in 16 32 128 256 512; do
    sips -z "$size" "$size" "$source_png" --out "$iconset/icon_${size}x${size}.png" >/dev/null
    double=$((size * 2))
    # The source has 512 pixels; the 1024-pixel Retina slot is left out rather than filled with an upscale.
    if [ "$double" -le 512 ]; then
        sips -z "$double" "$double" "$source_png" --out "$iconset/icon_${size}x${size}@2x.png" >/dev/null
    fi
done
iconutil --convert icns --output "$output" "$iconset"
