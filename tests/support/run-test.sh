#!/usr/bin/env bash
# Runs one test executable in a private home, on the offscreen platform, under an Xvfb of its own, under a
# Wayland compositor (weston) of its own, or under a headless sway with the real desktop portals
# (tests/wayland/sway-session.sh); the dbus, wayland and sway modes also get a private session bus.
# usage: run-test.sh offscreen|dbus|x11|wayland|sway EXECUTABLE [ARGS...]
# When the compositor cannot start, a wayland or sway test still runs (offscreen) with
# VONTREL_WAYLAND_UNAVAILABLE set to the reason, so it can skip and say why.
set -u
mode=$1
shift

# The wlroots screenshot portal writes a fixed /tmp/out.png: a sway test gets a /tmp of its own where the
# system lets it, so parallel tests do not share that file and a test can see whether it was left behind.
if [ "$mode" = sway ] && [ -z "${VONTREL_PRIVATE_TMP:-}" ] &&
    unshare --mount --propagation private true 2>/dev/null; then
    exec unshare --mount --propagation private env VONTREL_PRIVATE_TMP=1 bash -c \
        'mount -t tmpfs -o mode=1777 vontrel-tmp /tmp && exec "$0" "$@"' "$0" "$mode" "$@"
fi
if [ "${VONTREL_PRIVATE_TMP:-}" = 1 ]; then
    export TMPDIR=/tmp
fi

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/vontrel-test.XXXXXX")
xvfb_pid=
weston_pid=
bus_pid=
session_pids=
cleanup() {
    local pid
    for pid in $session_pids $weston_pid $bus_pid $xvfb_pid; do
        kill "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    done
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
unset WAYLAND_DISPLAY XDG_SESSION_TYPE DBUS_SESSION_BUS_ADDRESS VONTREL_WAYLAND_UNAVAILABLE

# A bus without service activation, so nothing installed on the machine (a real desktop portal, an
# accessibility bus) starts on it.
start_private_bus() {
    command -v dbus-daemon >/dev/null || { echo "run-test.sh: dbus-daemon is not installed" >&2; exit 1; }
    printf '%s\n' \
        '<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"' \
        ' "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">' \
        '<busconfig><type>session</type>' \
        "<listen>unix:path=$XDG_RUNTIME_DIR/bus</listen><auth>EXTERNAL</auth>" \
        '<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>' \
        '<allow own="*"/></policy></busconfig>' >"$sandbox/bus.conf"
    dbus-daemon --config-file="$sandbox/bus.conf" --nofork --nopidfile --print-address=1 \
        >"$sandbox/bus.address" 2>"$sandbox/bus.log" &
    bus_pid=$!
    local waited=0
    while [ ! -s "$sandbox/bus.address" ]; do
        if ! kill -0 "$bus_pid" 2>/dev/null || [ "$waited" -ge 200 ]; then
            echo "run-test.sh: the private session bus did not start:" >&2
            cat "$sandbox/bus.log" >&2
            exit 1
        fi
        sleep 0.1
        waited=$((waited + 1))
    done
    DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$sandbox/bus.address")
    export DBUS_SESSION_BUS_ADDRESS
}

# Sets $display to the number of a new Xvfb server.
start_xvfb() {
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
}

# On failure sets VONTREL_WAYLAND_UNAVAILABLE rather than stopping, so the test reports the reason as a skip.
start_weston() {
    if ! command -v weston >/dev/null; then
        VONTREL_WAYLAND_UNAVAILABLE="weston is not installed (Debian package weston)"
        return
    fi
    if ! compgen -G "/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so" >/dev/null; then
        VONTREL_WAYLAND_UNAVAILABLE="Qt's Wayland platform plugin is not installed (Debian package qt6-wayland)"
        return
    fi
    # weston's headless backend has no seat, and without a seat no client may own the clipboard; its X11
    # backend, nested in an Xvfb of its own, has one. The test itself sees only the Wayland display.
    start_xvfb
    DISPLAY=":$display" weston --backend=x11-backend.so --socket=wayland-vontrel --width=1600 --height=1000 \
        --idle-time=0 --no-config >"$sandbox/weston.log" 2>&1 &
    weston_pid=$!
    local waited=0
    while [ ! -S "$XDG_RUNTIME_DIR/wayland-vontrel" ]; do
        if ! kill -0 "$weston_pid" 2>/dev/null || [ "$waited" -ge 200 ]; then
            VONTREL_WAYLAND_UNAVAILABLE="weston did not start: $(tail -n 3 "$sandbox/weston.log" | tr '\n' ' ')"
            return
        fi
        sleep 0.1
        waited=$((waited + 1))
    done
    export WAYLAND_DISPLAY=wayland-vontrel
    export XDG_SESSION_TYPE=wayland
}

if [ "$mode" = x11 ]; then
    start_xvfb
    export DISPLAY=":$display"
    export QT_QPA_PLATFORM=xcb
elif [ "$mode" = wayland ]; then
    unset DISPLAY
    start_private_bus
    VONTREL_WAYLAND_UNAVAILABLE=
    start_weston
    if [ -n "$VONTREL_WAYLAND_UNAVAILABLE" ]; then
        export VONTREL_WAYLAND_UNAVAILABLE
        export QT_QPA_PLATFORM=offscreen
    else
        export QT_QPA_PLATFORM=wayland
    fi
elif [ "$mode" = sway ]; then
    unset DISPLAY
    start_private_bus
    . "$(dirname "$0")/../wayland/sway-session.sh"
    VONTREL_WAYLAND_UNAVAILABLE=
    start_sway_session
    if [ -n "$VONTREL_WAYLAND_UNAVAILABLE" ]; then
        export VONTREL_WAYLAND_UNAVAILABLE
        export QT_QPA_PLATFORM=offscreen
    else
        export QT_QPA_PLATFORM=wayland
    fi
else
    unset DISPLAY
    [ "$mode" = dbus ] && start_private_bus
    export QT_QPA_PLATFORM=offscreen
fi

"$@"
