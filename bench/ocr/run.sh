#!/usr/bin/env bash
# Builds and runs the OCR benchmark: generates the screen-text image sets (clean, and messy captures with frames,
# rules, icons, neighbouring windows and desktop around the text), recognises them with our provider and
# with the tesseract command line, and prints the error rates and times side by side.
# usage: bench/ocr/run.sh [BUILD_DIR] [--] [--variants N] [--messy N] [--seed N] [--no-clean] [--verbose]
#        [--keep DIR] [--no-cli] [--windows DIR]
# --windows DIR also reads regions of real application windows, made by
#     ./dev.sh corpus DIR   (installs Chromium, GTK 3, Tk, zenity, yad and xterm, renders them under Xvfb)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
build_dir=$source_dir/build-bench
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    build_dir=$1
    shift
fi
if [ "${1:-}" = "--" ]; then
    shift
fi

command -v tesseract >/dev/null || echo "run.sh: the tesseract command line is not installed (apt-get install tesseract-ocr); only our figures will be shown" >&2
if [ ! -f "$build_dir/CMakeCache.txt" ]; then
    cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build_dir" --target bench_ocr --parallel 2 >/dev/null
QT_QPA_PLATFORM=offscreen "$build_dir/bench/bench_ocr" "$@"
