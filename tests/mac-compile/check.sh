#!/usr/bin/env bash
# Builds the macOS compile check (see CMakeLists.txt here) in the given directory; fails on any compile or link
# error. Incremental: a second run rebuilds only what changed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../../build/mac-compile}
clang=$(command -v clang++)
launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_OBJCXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="$clang" -DCMAKE_OBJCXX_COMPILER="$clang" \
    -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" >/dev/null
cmake --build "$build"
"$build/mac_native_test"
