#!/usr/bin/env bash
# Runs one test executable in a private home, on the offscreen platform or under an Xvfb of its own.
# usage: run-test.sh offscreen|x11 EXECUTABLE [ARGS...]
set -u
mode=$1
shift

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/vontrel-test.XXXXXX")
xvfb_pid=
cleanup() {
    if [ -n "$xvfb_pid" ]; then
        kill "$xvfb_pid" 2>/dev/null
        wait "$xvfb_pid" 2>/dev/null
    fi
    rm -rf "$sandbox"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$sandbox/home" "$sandbox/config" "$sandbox/cache" "$sandbox/data" "$sandbox/tmp" "$sandbox/runtime"
chmod 700 "$sandbox/runtime"
export HOME="$sandbox/home"
export XDG_CONFIG_HOME="$sandbox/config"
export XDG_CACHE_HOME="$sandbox/cache"
export XDG_DATA_HOME="$sandbox/data"
export XDG_RUNTIME_DIR="$sandbox/runtime"
export TMPDIR="$sandbox/tmp"
export LC_ALL=C.UTF-8
unset WAYLAND_DISPLAY XDG_SESSION_TYPE DBUS_SESSION_BUS_ADDRESS

if [ "$mode" = x11 ]; then
    command -v Xvfb >/dev/null || { echo "run-test.sh: Xvfb is not installed" >&2; exit 1; }
    # -displayfd lets the server pick a free display, so tests may run in parallel.
    mkfifo "$sandbox/displayfd"
    Xvfb -displayfd 9 -screen 0 1600x1000x24 -nolisten tcp -noreset 9>"$sandbox/displayfd" \
        2>"$sandbox/xvfb.log" &
    xvfb_pid=$!
    display=
    read -r -t 20 display <"$sandbox/displayfd"
    if [ -z "$display" ]; then
        echo "run-test.sh: Xvfb did not start:" >&2
        cat "$sandbox/xvfb.log" >&2
        exit 1
    fi
    export DISPLAY=":$display"
    export QT_QPA_PLATFORM=xcb
else
    unset DISPLAY
    export QT_QPA_PLATFORM=offscreen
fi

"$@"
