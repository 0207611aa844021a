#!/usr/bin/env bash
# Makes the Debian package of the build (or takes the one in $LIMITRA_DEB),
# unpacks it and checks its control fields, that every QML module the program
# loads at run time is shipped or depended on, and that the unpacked program
# runs --check and --snapshot from the unpacked tree.
# usage: package-test.sh BUILD_DIR SOURCE_DIR VERSION [GUI_MODULE_FILE]
set -uo pipefail
build=$1 src=$2 version=$3 module=${4:-}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

deb=${LIMITRA_DEB:-}
if [ -z "$deb" ]; then
    cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1 \
        || { cat "$tmp/cpack.log"; echo "FAIL: cpack"; exit 1; }
    deb=$(ls "$tmp"/out/limitra_*.deb)
fi
field() { dpkg-deb -f "$deb" "$1"; }
dpkg-deb -I "$deb" >/dev/null || fail "dpkg-deb -I"
[ "$(field Package)" = limitra ] || fail "Package: $(field Package)"
[ "$(field Version)" = "$version" ] || fail "Version: $(field Version)"
[ "$(field Section)" = utils ] || fail "Section: $(field Section)"
[[ ", $(field Recommends)," == *", gnome-keyring,"* ]] || fail "Recommends: $(field Recommends)"
[[ "$(field Maintainer)" =~ ^[^\<]+\ \<[^@\>]+@[^\>]+\>$ ]] || fail "Maintainer: $(field Maintainer)"
# Package names in Depends, without versions or alternatives.
depends=$(field Depends | tr ',|' '\n\n' | sed 's/(.*//; s/ //g; s/:any$//' | sort -u)
for lib in libc6 libqt6core6 libqt6gui6 libqt6quick6; do
    grep -qx "$lib" <<<"$depends" || fail "the library scan missed $lib: $(field Depends)"
done

root=$tmp/root
dpkg-deb -x "$deb" "$root" || fail "dpkg-deb -x"
qml=$(qtpaths6 --query QT_INSTALL_QML)
# covered FILE: the file is in the package, or its Debian package is in Depends.
covered() {
    [[ "$1" == "$root"/* ]] && return 0
    local owner
    owner=$(dpkg -S "$1" 2>/dev/null | head -1 | cut -d: -f1) && grep -qx "$owner" <<<"$depends"
}

# Every module that a view imports (the program's own are compiled in).
for module_uri in $(cat "$src"/src/ui/*.qml "$src"/src/ui/*/*.qml 2>/dev/null \
        | sed -n 's/^import \([A-Za-z][A-Za-z0-9.]*\).*/\1/p' | grep -v '^Limitra' | sort -u); do
    dir=${module_uri//.//}
    file=$(ls "$root"/usr/lib/*/qt6/qml/"$dir"/qmldir "$qml/$dir/qmldir" 2>/dev/null | head -1)
    [ -n "$file" ] || { fail "import $module_uri: no such module here"; continue; }
    covered "$file" || fail "import $module_uri: $(dpkg -S "$file" 2>&1 | head -1) is not in Depends"
done

# Every library the program opens by name on first use (platform/LazyLibrary).
for soname in $(grep -rhoE 'LazyLibrary::load\("[^"]+"' "$src/src" | sed 's/.*("//; s/"$//' | sort -u); do
    file=$(/sbin/ldconfig -p | awk -v s="$soname" '$1 == s { print $NF; exit }')
    [ -n "$file" ] || { fail "$soname: no such library here"; continue; }
    covered "$(realpath "$file")" || fail "$soname: $(dpkg -S "$(realpath "$file")" 2>&1 | head -1) is not in Depends"
done

# The unpacked program, as a new user without a desktop session or any sessions of the two tools.
home=$tmp/home
mkdir -p "$home"
run() {
    env -i HOME="$home" PATH=/usr/bin:/bin LANG=C.UTF-8 QT_QPA_PLATFORM=offscreen \
        DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/limitra-test-bus "$@"
}
out=$(run timeout 60 "$root/usr/bin/limitra" --check)
status=$?
[ $status -eq 0 ] || fail "--check exited $status"
[ "$(sed -n '1p;3p' <<<"$out")" = "$(printf '== Claude Code [sin plan] ==\n== Codex [sin plan] ==')" ] \
    || fail "--check printed: $out"

# The snapshot loads the GUI module and the QML modules; the loader names each file.
out=$(run LD_DEBUG=files timeout 120 "$root/usr/bin/limitra" --snapshot "$tmp/panel.png" 2>"$tmp/loaded")
status=$?
[ $status -eq 0 ] || fail "--snapshot exited $status"
[ "$out" = "Snapshot: $tmp/panel.png" ] || fail "--snapshot printed: $out"
file "$tmp/panel.png" | grep -q 'PNG image data, 720 x' || fail "no 720-pixel PNG: $(file "$tmp/panel.png")"
loaded=$(sed -n 's/.*calling init: \(.*\)$/\1/p' "$tmp/loaded" | sort -u)
if [ -n "$module" ]; then
    grep -q "^$root/.*/limitra/$module$" <<<"$loaded" || fail "the GUI module was not loaded from the package"
fi
for file in $(grep -E '/qt6/(qml|plugins)/' <<<"$loaded"); do
    covered "$file" || fail "loaded $file: $(dpkg -S "$file" 2>&1 | head -1) is not in Depends"
done

[ $failed -eq 0 ] && echo "package: all checks passed"
exit $failed
