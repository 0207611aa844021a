#!/usr/bin/env bash
# Builds the Debian package limitra_VERSION_ARCH.deb from a clean release build
# with CMake's default generator, puts it in the given folder (default: the
# current one), prints its path and runs lintian on it (fails on errors).
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath "${1:-.}")
bash "$src/scripts/setup.sh" >&2
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT

# Debian's hardening and optimisation flags, as its own packages are built with.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
LDFLAGS=$(dpkg-buildflags --get LDFLAGS) \
cmake -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DLIMITRA_BUILD_TESTS=OFF -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON >&2
cmake --build "$build" -j "$(nproc)" >&2
# Built just above: CPack need not run the whole build again before it installs.
(cd "$build" && cpack -G DEB -B "$build/deb") >&2
deb=$(ls "$build"/deb/limitra_*.deb)
mkdir -p "$out"
cp "$deb" "$out/"
deb=$out/$(basename "$deb")
lintian --fail-on error --info "$deb" >&2
echo "$deb"
