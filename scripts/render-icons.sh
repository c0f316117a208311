#!/usr/bin/env bash
# Renders the two raster icons from their SVG sources with rsvg-convert (librsvg):
#   resources/icons/vontrel-menu-icon.png  44x44, from vontrel-menu-icon.svg
#   resources/icons/icon_512x512.png       512x512, from source/icon_512x512.svg
set -eu
cd "$(dirname "$0")/../resources/icons"
command -v rsvg-convert >/dev/null || { echo "rsvg-convert not found (package librsvg2-bin)" >&2; exit 1; }

render() { # svg size out
    rsvg-convert --width "$2" --height "$2" --keep-aspect-ratio --format png "$1" --output "$3"
}

render vontrel-menu-icon.svg 44 vontrel-menu-icon.png
render source/icon_512x512.svg 512 icon_512x512.png
echo "rendered vontrel-menu-icon.png (44x44) and icon_512x512.png (512x512)"
