#!/usr/bin/env bash
# A headless GNOME Shell 43 with its real desktop portals, for test_gnome_session and for trying Vontrel on
# GNOME by hand.
#
# usage: tests/wayland/gnome-session.sh COMMAND [ARGS...]
#   runs COMMAND inside the session (with WAYLAND_DISPLAY, the private buses and a private HOME), then ends
#   the session. Where the session cannot start, COMMAND still runs (offscreen) with
#   VONTREL_WAYLAND_UNAVAILABLE set to the reason, so a test can skip and say why.
#   tests/wayland/gnome-input.js sends keys and pointer input, e.g. to answer the "Allow Applications to Take
#   Screenshots?" dialog: gjs tests/wayland/gnome-input.js key ff09 key ff0d
#
# Needs gnome-shell, xdg-desktop-portal-gnome, gjs and dbus (Debian 12). As root the shell runs as uid 1000
# of a user namespace. The session bus activates the installed services (the portals, the shell's gjs
# notification service); a second private bus stands in for the system bus, so nothing looks for logind.
set -u
here=$(cd "$(dirname "$0")" && pwd)
unavailable() {
    echo "gnome-session.sh: $1" >&2
    VONTREL_WAYLAND_UNAVAILABLE=$1 QT_QPA_PLATFORM=offscreen "${@:2}"
    exit
}
for program in gnome-shell gjs dbus-daemon /usr/libexec/xdg-desktop-portal-gnome; do
    command -v "$program" >/dev/null || unavailable "$program is not installed" "$@"
done

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/vontrel-gnome.XXXXXX")
pids=
cleanup() {
    local pid
    # The shell first, then the buses; the services the session bus activated end with their bus.
    for pid in $pids; do
        kill "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    done
    fusermount3 -u "$sandbox/runtime/doc" 2>/dev/null
    rm -rf "$sandbox"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$sandbox/home" "$sandbox/runtime" "$sandbox/tmp"
chmod 700 "$sandbox/runtime"
export HOME="$sandbox/home" XDG_RUNTIME_DIR="$sandbox/runtime" TMPDIR="$sandbox/tmp"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
export XDG_CURRENT_DESKTOP=GNOME XDG_SESSION_TYPE=wayland GSETTINGS_BACKEND=keyfile
# gnome-input.js moves the pointer through the top left corner, which must not open the activities overview.
mkdir -p "$XDG_CONFIG_HOME/glib-2.0/settings"
printf '[org/gnome/desktop/interface]\nenable-hot-corners=false\n' >"$XDG_CONFIG_HOME/glib-2.0/settings/keyfile"
unset DISPLAY WAYLAND_DISPLAY

start_bus() { # type address-file; prints the address
    local type=$1
    local services='<standard_session_servicedirs/>'
    [ "$type" = system ] && services=
    printf '%s\n' \
        '<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"' \
        ' "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">' \
        "<busconfig><type>$type</type><listen>unix:path=$XDG_RUNTIME_DIR/$type-bus</listen>" \
        "<auth>EXTERNAL</auth>$services<policy context=\"default\"><allow send_destination=\"*\"/>" \
        '<allow receive_sender="*"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>' \
        >"$sandbox/$type.conf"
    dbus-daemon --config-file="$sandbox/$type.conf" --nofork --nopidfile --print-address=1 \
        >"$sandbox/$type.address" 2>"$sandbox/$type.log" &
    pids="$! $pids"
    local waited=0
    until [ -s "$sandbox/$type.address" ]; do
        [ "$waited" -ge 100 ] && { echo "gnome-session.sh: the $type bus did not start" >&2; exit 1; }
        sleep 0.1
        waited=$((waited + 1))
    done
}
start_bus session
start_bus system
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$sandbox/session.address")
DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$sandbox/system.address")
export DBUS_SESSION_BUS_ADDRESS DBUS_SYSTEM_BUS_ADDRESS

runner=()
[ "$(id -u)" -eq 0 ] && runner=(unshare --user --map-user=1000 --map-group=1000)
"${runner[@]}" gnome-shell --headless --wayland --no-x11 --virtual-monitor 1280x800 >"$sandbox/shell.log" 2>&1 &
pids="$! $pids"
waited=0
until grep -qs "GNOME Shell started" "$sandbox/shell.log"; do
    if [ "$waited" -ge 600 ] || ! kill -0 "${pids%% *}" 2>/dev/null; then
        tail -n 20 "$sandbox/shell.log" >&2
        unavailable "gnome-shell did not start" "$@"
    fi
    sleep 0.1
    waited=$((waited + 1))
done
WAYLAND_DISPLAY=$(basename "$(compgen -G "$XDG_RUNTIME_DIR/wayland-*[0-9]" | head -n 1)")
export WAYLAND_DISPLAY QT_QPA_PLATFORM=wayland
# Services the bus starts later (the portals) inherit this environment, not the bus's own.
dbus-update-activation-environment WAYLAND_DISPLAY XDG_CURRENT_DESKTOP XDG_SESSION_TYPE XDG_RUNTIME_DIR HOME \
    XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME GSETTINGS_BACKEND DBUS_SYSTEM_BUS_ADDRESS TMPDIR
export VONTREL_GNOME_INPUT="$here/gnome-input.js" VONTREL_GNOME_SANDBOX="$sandbox"
# The shell starts in the activities overview, as after a login; Escape leaves it for the plain desktop. The
# input session stays for the session's life: its keyboard gives the seat one, as on a real desktop, without
# which no client gets the keyboard focus or the clipboard.
gjs "$here/gnome-input.js" key ff1b move 640 400 hold &
pids="$! $pids"
"$@"
