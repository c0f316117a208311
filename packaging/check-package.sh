#!/usr/bin/env bash
# Checks the Debian package the way a user meets it: validates its desktop entry and AppStream metadata,
# installs it with apt (dependencies from the archive), runs both installed programs (vontrel-cli against a
# loopback provider, vontrel under Xvfb: a second start, start at login, Escape), then removes it and looks
# for anything left behind.
#
#   packaging/check-package.sh [PACKAGE.deb]     default: the vontrel_*.deb that ./dev.sh package left here
#
# Needs root or sudo; installs what the check itself needs. Leaves the package removed.
set -euo pipefail
cd "$(dirname "$0")/.."

deb=${1:-$(ls -t vontrel_*.deb 2>/dev/null | head -1)}
[ -n "$deb" ] && [ -f "$deb" ] || { echo "check-package: no package; build one with ./dev.sh package" >&2; exit 1; }
deb=$(realpath "$deb")
app_id=app.vontrel.Vontrel
started=$SECONDS

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
apt() { "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y "$@"; }
step() { printf 'check-package: %s (%ds)\n' "$*" $((SECONDS - started)); }
fail() { printf 'check-package: FAILED: %s\n' "$*" >&2; exit 1; }

work=$(mktemp -d)
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

# Waits up to $1 seconds for the command after it to succeed.
wait_for() {
    local limit=$1
    shift
    local until=$((SECONDS + limit))
    until "$@"; do
        [ "$SECONDS" -lt "$until" ] || return 1
        sleep 0.2
    done
}

needed=(desktop-file-utils appstream xvfb xauth xdotool python3)
missing=()
for p in "${needed[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
    step "installing ${missing[*]}"
    apt update -qq
    apt install --no-install-recommends "${missing[@]}" >/dev/null
fi
if dpkg-query -W -f='${Status}' vontrel 2>/dev/null | grep -q "ok installed"; then
    step "removing the vontrel installed before"
    apt remove vontrel >/dev/null
fi

step "dependencies resolve on a machine with nothing installed"
# apt plans the install against an empty package database: every dependency must come from the archive, not
# from what happens to be on this machine.
: >"$work/empty-status"
"${sudo[@]}" apt-get install -s -q -o Dir::State::status="$work/empty-status" "$deb" >"$work/plan" 2>&1 ||
    { cat "$work/plan" >&2; fail "the dependencies do not resolve from the archive alone"; }
grep "newly installed" "$work/plan"

step "only application files in the package"
unexpected=$(dpkg-deb --contents "$deb" | awk '{print $6}' | grep -v '/$' |
    grep -Ev '^\./usr/(bin/vontrel(-cli)?|share/(applications|metainfo|icons/hicolor|man/man1|doc/vontrel)/.*)$' || true)
[ -z "$unexpected" ] || fail "unexpected files in the package: $unexpected"

step "installing $(basename "$deb")"
# Package lists that are old or missing are the usual reason for apt to find no dependency: read them again.
if ! apt install "$deb" >"$work/apt-install.log" 2>&1; then
    apt update -qq
    apt install "$deb" >"$work/apt-install.log" 2>&1 || { cat "$work/apt-install.log" >&2; fail "apt-get install"; }
fi
dpkg-query -L vontrel >"$work/files"
version=$(dpkg-query -W -f='${Version}' vontrel)

step "desktop entry and AppStream metadata"
desktop-file-validate "/usr/share/applications/$app_id.desktop" || fail "desktop-file-validate"
appstreamcli validate --no-net "/usr/share/metainfo/$app_id.metainfo.xml" || fail "appstreamcli validate"
grep -q "<release version=\"$version\"" "/usr/share/metainfo/$app_id.metainfo.xml" ||
    fail "the metainfo has no release notes for $version"
zcat /usr/share/doc/vontrel/changelog.gz | head -1 | grep -q "^vontrel ($version)" ||
    fail "the change log does not start with $version"
grep -qx "Icon=$app_id" "/usr/share/applications/$app_id.desktop" || fail "the desktop entry's icon is not $app_id"
for icon in scalable/apps/$app_id.svg 16x16/apps/$app_id.png 48x48/apps/$app_id.png 256x256/apps/$app_id.png; do
    [ -f "/usr/share/icons/hicolor/$icon" ] || fail "no icon $icon"
done
for page in vontrel vontrel-cli; do
    gzip -t "/usr/share/man/man1/$page.1.gz" || fail "manual page $page"
done

step "vontrel --version and --help without a display"
[ "$(env -u DISPLAY -u WAYLAND_DISPLAY vontrel --version)" = "Vontrel $version" ] || fail "vontrel --version"
env -u DISPLAY -u WAYLAND_DISPLAY vontrel --help | grep -q -- "--capture" || fail "vontrel --help"

# A home of its own, so nothing of the user's settings or autostart entries is touched.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_RUNTIME_DIR=$work/run
mkdir -p "$XDG_CONFIG_HOME/Vontrel/Vontrel" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset WAYLAND_DISPLAY QT_QPA_PLATFORM

step "vontrel-cli recognises text"
text=$(vontrel-cli ocr tests/ocr/data/hotkey-row-dark-zh-CN.png) || fail "vontrel-cli ocr"
grep -q "Meta+Shift+2" <<<"$text" && grep -q "翻译选中文本" <<<"$text" || fail "vontrel-cli ocr read: $text"

step "vontrel-cli translates through a loopback provider"
python3 packaging/fake-provider.py >"$work/port" &
pids+=($!)
wait_for 20 test -s "$work/port" || fail "the loopback provider did not start"
port=$(cat "$work/port")
answer=$(echo "Guten Morgen" | vontrel-cli translate --api-url "http://127.0.0.1:$port/v1" --api-key test \
    --model test --target English) || fail "vontrel-cli translate"
[ "$answer" = "Good morning" ] || fail "vontrel-cli translate answered: $answer"

step "vontrel under Xvfb"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
wait_for 20 test -s "$work/display" || fail "Xvfb did not start"
export DISPLAY=:$(cat "$work/display")
socket=$XDG_RUNTIME_DIR/vontrel-x11_${DISPLAY#:}.socket
# With a key in the settings no first-run dialog takes the keyboard.
printf '{"ai": {"api_url": "http://127.0.0.1:%s/v1", "api_key": "test"}}\n' "$port" \
    >"$XDG_CONFIG_HOME/Vontrel/Vontrel/config.json"
vontrel >"$work/first.log" 2>&1 &
first=$!
pids+=($first)
wait_for 30 test -S "$socket" || { cat "$work/first.log" >&2; fail "vontrel did not start"; }

second=$(timeout 30 vontrel 2>&1) || fail "the second start ended with an error: $second"
grep -q "already running" <<<"$second" || fail "the second start did not hand over: $second"
window=$(timeout 30 xdotool search --sync --onlyvisible --name '^Preferences$' | head -1)
[ -n "$window" ] || fail "the second start did not open Preferences"

# Start at login is the first control after the page list: Tab to it, Space to turn it on.
xdotool windowfocus --sync "$window"
xdotool key Tab space
entry=$XDG_CONFIG_HOME/autostart/$app_id.desktop
wait_for 20 test -f "$entry" || fail "turning on Start at login wrote no $entry"
desktop-file-validate "$entry" || fail "the autostart entry is not a valid desktop entry"
exec_line=$(sed -n 's/^Exec=//p' "$entry")
[ "$exec_line" = '"/usr/bin/vontrel"' ] || fail "the autostart entry starts $exec_line, not /usr/bin/vontrel"

xdotool key Escape
wait_for 20 sh -c "! xdotool search --onlyvisible --name '^Preferences\$' >/dev/null" ||
    fail "Escape did not close Preferences"

# What the entry starts is the installed program, and it runs.
kill "$first"
wait "$first" || true
rm -f "$socket" # what a killed instance leaves; the next start would reuse the name
eval "set -- $exec_line"
"$1" >"$work/autostarted.log" 2>&1 &
pids+=($!)
wait_for 30 test -S "$socket" || { cat "$work/autostarted.log" >&2; fail "the autostart entry's program did not start"; }
kill "$!"

step "removing the package"
apt remove vontrel >/dev/null
left=()
while IFS= read -r path; do
    [ "$path" = /. ] && continue
    if [ -d "$path" ] && ! [ -L "$path" ]; then
        # A folder stays when another package or a user's file shares it.
        dpkg-query -S "$path" >/dev/null 2>&1 || [ -n "$(ls -A "$path")" ] || left+=("$path")
    elif [ -e "$path" ] || [ -L "$path" ]; then
        left+=("$path")
    fi
done <"$work/files"
[ "${#left[@]}" -eq 0 ] || fail "left behind after apt-get remove: ${left[*]}"

step "passed: package $(basename "$deb"), $(du -k "$deb" | cut -f1) KiB"
