#!/usr/bin/env bash
# Vontrel's one entry point for building, starting and testing on Debian or Ubuntu.
#
#   ./dev.sh start             install what is missing, build, start Vontrel
#   ./dev.sh test              install what is missing, build with warnings as errors, run every test
#   ./dev.sh test --sanitize   the same in a separate AddressSanitizer + UBSan build
#   ./dev.sh build             install what is missing and build only
#   ./dev.sh package           build the Debian package vontrel_VERSION_ARCH.deb into this folder
#                              (extra arguments go to cmake)
#   ./dev.sh corpus DIR        render the application-window recognition corpus into DIR
#                              (for bench/ocr/run.sh --windows DIR)
#
# Extra arguments after "test" go to ctest, e.g. ./dev.sh test -R test_configmanager or -L x11.
set -euo pipefail
cd "$(dirname "$0")"

BUILD_PACKAGES=(
    cmake ninja-build g++ pkg-config ccache git clang-format
    qt6-base-dev qt6-wayland qt6-svg-dev qt6-tools-dev qt6-l10n-tools qt6-tools-dev-tools qt6-base-dev-tools
    libgl-dev libtesseract-dev libleptonica-dev libx11-dev libxext-dev libxtst-dev libxcb1-dev libwayland-dev
    tesseract-ocr tesseract-ocr-eng tesseract-ocr-chi-sim
    rapidjson-dev fonts-dejavu-core fonts-noto-cjk
)
# sway and the rest: a real tiling compositor with the real desktop portals for the tests labelled sway; GNOME
# Shell with its portal, and gjs for its notifications, for the test labelled gnome.
TEST_PACKAGES=(xvfb xauth xdotool xclip x11-utils imagemagick clang dbus weston openbox
    sway xdg-desktop-portal xdg-desktop-portal-wlr xdg-desktop-portal-gtk pipewire grim wl-clipboard mako-notifier
    foot gnome-shell xdg-desktop-portal-gnome gjs)
# The toolkits the application-window recognition corpus is rendered with; only ./dev.sh corpus needs them.
CORPUS_PACKAGES=(xvfb xdotool imagemagick fonts-noto-cjk chromium python3-gi gir1.2-gtk-3.0 python3-tk zenity yad
    xterm)

install_missing() {
    local missing=() p
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    echo "dev.sh: installing ${missing[*]}"
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

configure_and_build() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -G Ninja "$@"
    cmake --build "$dir" --parallel "$(nproc)"
}

command=${1:-start}
[ $# -gt 0 ] && shift
case "$command" in
start)
    install_missing "${BUILD_PACKAGES[@]}"
    configure_and_build build
    exec ./build/src/vontrel "$@"
    ;;
build)
    install_missing "${BUILD_PACKAGES[@]}"
    configure_and_build build
    ;;
package)
    # dpkg-shlibdeps (dpkg-dev) and file compute the package's dependencies from the executables.
    install_missing "${BUILD_PACKAGES[@]}" dpkg-dev file
    configure_and_build build-package -DCMAKE_INSTALL_PREFIX=/usr -DVONTREL_BUILD_TESTS=OFF \
        -DVONTREL_BUILD_BENCH=OFF "$@"
    rm -f build-package/vontrel_*.deb
    (cd build-package && cpack -G DEB)
    rm -f vontrel_*.deb
    cp build-package/vontrel_*.deb .
    echo "dev.sh: built $(ls vontrel_*.deb); install it with: sudo apt-get install ./$(ls vontrel_*.deb)"
    ;;
test)
    install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    if [ "${1:-}" = "--sanitize" ]; then
        shift
        configure_and_build build-sanitize -DCMAKE_BUILD_TYPE=Debug -DVONTREL_SANITIZE=ON -DVONTREL_WERROR=ON \
            -DVONTREL_BUILD_BENCH=OFF
        dir=build-sanitize
    else
        scripts/format.sh --check
        configure_and_build build -DVONTREL_WERROR=ON -DVONTREL_MAC_COMPILE_CHECK=ON
        dir=build
    fi
    ctest --test-dir "$dir" --output-on-failure --parallel "$(nproc)" "$@"
    ;;
corpus)
    # Renders the application-window corpus for bench/ocr/run.sh --windows DIR.
    install_missing "${CORPUS_PACKAGES[@]}"
    exec bench/ocr/appwindows/generate.py "$@"
    ;;
*)
    echo "usage: ./dev.sh start | build | package | corpus DIR | test [--sanitize] [ctest arguments]" >&2
    exit 2
    ;;
esac
