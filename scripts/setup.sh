#!/usr/bin/env bash
# Installs every Debian package that building, running and testing Limitra needs.
# Idempotent: packages already present are skipped, and apt-get runs only when needed.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools qt6-svg-dev
    qml6-module-qtqml qml6-module-qtquick qml6-module-qtquick-controls
    qml6-module-qtquick-layouts qml6-module-qtquick-window qml6-module-qtquick-templates
    qml6-module-qttest qml6-module-qtqml-workerscript
    libqt6svg6 qt6-qpa-plugins
    libsecret-1-dev libxcb1-dev libcurl4-openssl-dev libcpp-httplib-dev libssl-dev
    gnome-keyring libsecret-tools dbus dbus-x11 libglib2.0-bin
    fonts-noto-color-emoji fonts-dejavu-core
    openssl iproute2 util-linux curl file ca-certificates
    dpkg-dev desktop-file-utils appstream man-db lintian
    clang libclang-rt-14-dev
    xvfb xfce4-panel xfce4-indicator-plugin ayatana-indicator-application x11-utils imagemagick
    xfwm4 xdotool sway waybar xwayland wayvnc grim xcursor-themes jq python3
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: all ${#packages[@]} packages are installed"
    exit 0
fi

echo "setup: installing ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        SUDO=sudo
    else
        echo "setup: run as root: apt-get install ${missing[*]}" >&2
        exit 1
    fi
else
    SUDO=
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
