#!/usr/bin/env bash
# Renders the raster icons from their SVG sources with rsvg-convert (librsvg):
#   resources/icons/vontrel-menu-icon.png  44x44, from vontrel-menu-icon.svg
#   resources/icons/icon_512x512.png       512x512, from source/icon_512x512.svg
#   resources/icons/hicolor/NxN/app.vontrel.Vontrel.png, the sizes desktops look up in the hicolor theme
set -eu
cd "$(dirname "$0")/../resources/icons"
command -v rsvg-convert >/dev/null || { echo "rsvg-convert not found (package librsvg2-bin)" >&2; exit 1; }

render() { # svg size out
    rsvg-convert --width "$2" --height "$2" --keep-aspect-ratio --format png "$1" --output "$3"
}

render vontrel-menu-icon.svg 44 vontrel-menu-icon.png
render source/icon_512x512.svg 512 icon_512x512.png
for size in 16 22 24 32 48 64 128 256 512; do
    mkdir -p "hicolor/${size}x${size}"
    render source/icon_512x512.svg "$size" "hicolor/${size}x${size}/app.vontrel.Vontrel.png"
done
echo "rendered vontrel-menu-icon.png (44x44), icon_512x512.png (512x512) and the hicolor sizes"
