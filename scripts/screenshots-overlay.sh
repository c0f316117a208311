#!/usr/bin/env bash
# Regenerates docs/screenshots/overlay-*.png: the result window in capture, streaming, error and message
# states, light and dark, rendered on an Xvfb server of its own.
#
# usage: scripts/screenshots-overlay.sh [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
[ -f "$build/CMakeCache.txt" ] || cmake -S . -B "$build" -G Ninja
cmake --build "$build" --target overlay_screenshots
out=$PWD/docs/screenshots
tests/support/run-test.sh x11 "$PWD/$build/tools/screenshots/overlay_screenshots" "$out"
