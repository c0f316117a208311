# Sourced by tests/support/run-test.sh: a headless sway with the real desktop portal stack on the private
# session bus, for the tests labelled sway. Expects $sandbox, XDG_RUNTIME_DIR and DBUS_SESSION_BUS_ADDRESS to be
# set; exports WAYLAND_DISPLAY, SWAYSOCK and XDG_CURRENT_DESKTOP. On failure it sets
# VONTREL_WAYLAND_UNAVAILABLE to the reason and returns, so the test skips and says why. Every process it
# starts is added to $session_pids for the caller's cleanup.
#
# Also usable by hand, to look at a session as the tests see it:
#   bash tests/support/run-test.sh sway bash -c 'swaymsg -t get_tree; exec bash -i'

session_pids=${session_pids:-}

sway_missing_component() {
    local program package
    for program in sway:sway pipewire:pipewire /usr/libexec/xdg-desktop-portal:xdg-desktop-portal \
        /usr/libexec/xdg-desktop-portal-wlr:xdg-desktop-portal-wlr \
        /usr/libexec/xdg-desktop-portal-gtk:xdg-desktop-portal-gtk mako:mako-notifier foot:foot \
        wl-copy:wl-clipboard dbus-send:dbus; do
        package=${program#*:}
        program=${program%%:*}
        if ! command -v "$program" >/dev/null; then
            echo "$program is not installed (Debian package $package)"
            return
        fi
    done
}

# Waits up to 20 s for a condition; false when it never held.
sway_wait_for() {
    local waited=0
    until "$@"; do
        [ "$waited" -ge 200 ] && return 1
        sleep 0.1
        waited=$((waited + 1))
    done
}

sway_bus_has() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner "string:$1" 2>/dev/null | grep -q 'boolean true'
}

sway_ipc_socket() {
    SWAYSOCK=$(compgen -G "$XDG_RUNTIME_DIR/sway-ipc.*.sock" | head -n 1)
    [ -n "$SWAYSOCK" ] && swaymsg -s "$SWAYSOCK" -t get_version >/dev/null 2>&1
}

start_sway_session() {
    VONTREL_WAYLAND_UNAVAILABLE=$(sway_missing_component)
    [ -n "$VONTREL_WAYLAND_UNAVAILABLE" ] && return
    if ! compgen -G "/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so" >/dev/null; then
        VONTREL_WAYLAND_UNAVAILABLE="Qt's Wayland platform plugin is not installed (Debian package qt6-wayland)"
        return
    fi

    # No bar: a plain sway has no tray host. No Xwayland: the tests see Wayland clients only.
    printf '%s\n' 'xwayland disable' 'output HEADLESS-1 resolution 1280x800 position 0 0' \
        'default_border none' 'focus_follows_mouse no' >"$sandbox/sway.config"
    # sway refuses to run as root; as root it runs as uid 1000 of a user namespace, which the files and
    # sockets it creates map back to root outside.
    local runner=()
    if [ "$(id -u)" -eq 0 ]; then
        if ! unshare --user --map-user=1000 --map-group=1000 true 2>/dev/null; then
            VONTREL_WAYLAND_UNAVAILABLE="sway refuses root, and no user namespace can be made here (unshare --user)"
            return
        fi
        runner=(unshare --user --map-user=1000 --map-group=1000)
    fi
    WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman WAYLAND_DISPLAY= \
        "${runner[@]}" sway --config "$sandbox/sway.config" >"$sandbox/sway.log" 2>&1 &
    session_pids="$session_pids $!"
    if ! sway_wait_for sway_ipc_socket; then
        VONTREL_WAYLAND_UNAVAILABLE="sway did not start: $(tail -n 3 "$sandbox/sway.log" | tr '\n' ' ')"
        return
    fi
    export SWAYSOCK
    WAYLAND_DISPLAY=$(basename "$(compgen -G "$XDG_RUNTIME_DIR/wayland-*[0-9]" | head -n 1)")
    export WAYLAND_DISPLAY XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=sway
    export GDK_BACKEND=wayland

    # The portal's wlroots backend connects to PipeWire at start and gives up without it.
    pipewire >"$sandbox/pipewire.log" 2>&1 &
    session_pids="$session_pids $!"
    if ! sway_wait_for test -S "$XDG_RUNTIME_DIR/pipewire-0"; then
        VONTREL_WAYLAND_UNAVAILABLE="pipewire did not start: $(tail -n 3 "$sandbox/pipewire.log" | tr '\n' ' ')"
        return
    fi
    # The wlroots backend provides the screenshot; the 1.16 front end offers the Screenshot interface only
    # where some backend also provides Access, which the GTK backend does.
    /usr/libexec/xdg-desktop-portal-wlr >"$sandbox/portal-wlr.log" 2>&1 &
    session_pids="$session_pids $!"
    /usr/libexec/xdg-desktop-portal-gtk >"$sandbox/portal-gtk.log" 2>&1 &
    session_pids="$session_pids $!"
    if ! sway_wait_for sway_bus_has org.freedesktop.impl.portal.desktop.wlr ||
        ! sway_wait_for sway_bus_has org.freedesktop.impl.portal.desktop.gtk; then
        VONTREL_WAYLAND_UNAVAILABLE="a portal backend did not start: $(tail -n 3 "$sandbox"/portal-*.log | tr '\n' ' ')"
        return
    fi
    /usr/libexec/xdg-desktop-portal >"$sandbox/portal.log" 2>&1 &
    session_pids="$session_pids $!"
    # Notifications stay until dismissed, so a test finds one however slowly it looks.
    mako --ignore-timeout 1 --default-timeout 0 >"$sandbox/mako.log" 2>&1 &
    session_pids="$session_pids $!"
    if ! sway_wait_for sway_bus_has org.freedesktop.portal.Desktop; then
        VONTREL_WAYLAND_UNAVAILABLE="xdg-desktop-portal did not start: $(tail -n 3 "$sandbox/portal.log" | tr '\n' ' ')"
        return
    fi
    if ! sway_wait_for sway_bus_has org.freedesktop.Notifications; then
        VONTREL_WAYLAND_UNAVAILABLE="mako did not start: $(tail -n 3 "$sandbox/mako.log" | tr '\n' ' ')"
        return
    fi
}
