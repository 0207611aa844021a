#!/usr/bin/env bash
# Packs the build as a .deb and checks it as a user meets it: the installed files and their
# validators, lintian, Depends, and the unpacked program's two modes.
#   package-test.sh BUILD_DIR SOURCE_DIR VERSION GUI_MODULE (relative to usr/)
set -uo pipefail
build=$1 src=$2 version=$3 module=$4
tmp=$(mktemp -d) && root=$tmp/root && usr=$root/usr
trap 'rm -rf "$tmp"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1 \
    || { cat "$tmp/cpack.log"; echo "FAIL: cpack"; exit 1; }
deb=$(ls "$tmp"/out/limitra_*.deb)
dpkg-deb -x "$deb" "$root" || fail "dpkg-deb -x"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "Version: $(dpkg-deb -f "$deb" Version)"
out=$(lintian --fail-on error "$deb" 2>&1) || fail "lintian: $out"

expected=$({
    printf 'usr/%s\n' bin/limitra share/applications/app.limitra.Limitra.desktop share/man/man1/limitra.1.gz \
        share/metainfo/app.limitra.Limitra.metainfo.xml share/doc/limitra/{changelog.gz,copyright} \
        "$module" "${module%/*}/limitra-watch.so"
    (cd "$src/data" && find icons -name '*.svg' | sed 's|^|usr/share/|')
} | sort)
actual=$(cd "$root" && find . -type f -o -type l | sed 's|^\./||' | sort)
[ "$expected" = "$actual" ] || fail "files differ: $(diff <(echo "$expected") <(echo "$actual"))"
desktop=$usr/share/applications/app.limitra.Limitra.desktop
out=$(desktop-file-validate "$desktop" 2>&1) && ! grep -qiE 'error|warning|hint' <<<"$out" || fail "desktop-file-validate: $out"
[ -x "$usr/bin/$(sed -n 's/^Exec=//p' "$desktop")" ] || fail "Exec= names no installed program"
[ -f "$usr/share/icons/hicolor/scalable/apps/$(sed -n 's/^Icon=//p' "$desktop").svg" ] || fail "Icon= not installed"
out=$(appstreamcli validate-tree --no-net --explain "$root" 2>&1) || fail "appstreamcli: $out"
grep -q "<release version=\"$version\"" "$usr"/share/metainfo/*.xml || fail "metainfo lacks release $version"
man=(env LC_ALL=C.UTF-8 MANWIDTH=80 man -l)
out=$("${man[@]}" --warnings -E UTF-8 -Tutf8 -Z "$usr/share/man/man1/limitra.1.gz" 2>&1 >/dev/null) \
    && [ -z "$out" ] || fail "man: $out"
page=$("${man[@]}" "$usr/share/man/man1/limitra.1.gz" 2>/dev/null)
for word in --check --json --watch --help --version --snapshot .claude/.credentials.json .codex/auth.json limitra.conf Limitra.claude-oauth
do grep -qF -- "$word" <<<"$page" || fail "the manual does not mention $word"; done

# The unpacked program, for a new user without a desktop session or any service session.
run() { env -i HOME="$tmp" PATH=/usr/bin:/bin LANG=C.UTF-8 QT_QPA_PLATFORM=offscreen \
    DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent "$@"; }
out=$(run timeout 60 "$usr/bin/limitra" --check) || fail "--check exited $?"
[ "$(sed -n '1p;3p' <<<"$out")" = $'== Claude Code [sin plan] ==\n== Codex [sin plan] ==' ] || fail "--check: $out"
out=$(run LD_DEBUG=files timeout 120 "$usr/bin/limitra" --snapshot "$tmp/p.png" 2>"$tmp/loaded") \
    || fail "--snapshot exited $?"
[ "$out" = "Snapshot: $tmp/p.png" ] && file "$tmp/p.png" | grep -q 'PNG image data, 720 x' || fail "snapshot: $out"
grep -q "calling init: $root/.*/${module##*/}$" "$tmp/loaded" || fail "the GUI module was not loaded from the package"

# Every QML module imported, library opened by name or Qt plugin loaded is shipped or in Depends.
depends=$(dpkg-deb -f "$deb" Depends | tr ',|' '\n\n' | sed 's/(.*//; s/ //g; s/:any$//' | grep . | sort -u)
for lib in libc6 libqt6core6 libqt6quick6; do grep -qx $lib <<<"$depends" || fail "Depends lacks $lib"; done
qml=$(qtpaths6 --query QT_INSTALL_QML)
for file in $(sed -n "s|^import \([A-Z][A-Za-z.]*\).*|\1|p" "$src"/src/ui/*.qml "$src"/src/ui/*/*.qml \
    | grep -v '^Limitra' | sort -u | sed "s|\.|/|g; s|.*|$qml/&/qmldir|") \
    $(grep -rhoE 'LazyLibrary::load\("[^"]+' "$src/src" | sed 's/.*("//' | sort -u | while read -r so; do
        /sbin/ldconfig -p | awk -v s="$so" '$1 == s { print $NF; f = 1; exit } END { if (!f) print "/none/" s }'; done) \
    $(sed -n 's|.*calling init: \(.*/qt6/\(qml\|plugins\)/.*\)$|\1|p' "$tmp/loaded" | sort -u); do
    [[ $file == "$root"/* ]] || grep -qxF "$(dpkg -S "$(realpath -m "$file")" 2>/dev/null | head -1 | cut -d: -f1)" \
        <<<"$depends" || fail "$file is neither shipped nor in Depends"
done
[ $failed -eq 0 ] && echo "package: all checks passed"
exit $failed
