#!/usr/bin/env bash
# Installs the build into a temporary DESTDIR and checks what lands there: the
# file list, the desktop entry, the AppStream metainfo and the manual page.
# usage: install-test.sh BUILD_DIR SOURCE_DIR VERSION LIBDIR [GUI_MODULE_FILE]
set -uo pipefail
build=$1 src=$2 version=$3 libdir=$4 module=${5:-}
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

DESTDIR=$dest cmake --install "$build" --prefix /usr >/dev/null || fail "cmake --install"
usr=$dest/usr

# Exactly these files: a rule that drops or strays a file shows here.
expected=$({
    printf '%s\n' usr/bin/limitra usr/share/applications/app.limitra.Limitra.desktop \
        usr/share/metainfo/app.limitra.Limitra.metainfo.xml usr/share/man/man1/limitra.1.gz \
        usr/share/doc/limitra/changelog.gz usr/share/doc/limitra/copyright
    (cd "$src/data" && find icons -name '*.svg' | sed 's|^|usr/share/|')
    [ -z "$module" ] || echo "usr/$libdir/limitra/$module"
} | sort)
actual=$(cd "$dest" && find . -type f -o -type l | sed 's|^\./||' | sort)
[ "$expected" = "$actual" ] || fail "installed files differ:
$(diff <(echo "$expected") <(echo "$actual"))"
[ -x "$usr/bin/limitra" ] || fail "usr/bin/limitra is not executable"

desktop=$usr/share/applications/app.limitra.Limitra.desktop
out=$(desktop-file-validate "$desktop" 2>&1) && ! grep -qiE 'error|warning' <<<"$out" \
    || fail "desktop-file-validate: $out"
# The menu must find the program and its icon where they were installed.
exec=$(sed -n 's/^Exec=//p' "$desktop")
icon=$(sed -n 's/^Icon=//p' "$desktop")
[ -x "$usr/bin/$exec" ] || fail "Exec=$exec is not an installed program"
[ -f "$usr/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "Icon=$icon is not installed"
for field in Name=Limitra Categories=Utility\;Development\; StartupNotify=false; do
    grep -qx "$field" "$desktop" || fail "desktop entry lacks $field"
done

metainfo=$usr/share/metainfo/app.limitra.Limitra.metainfo.xml
out=$(appstreamcli validate --no-net --explain "$metainfo" 2>&1) || fail "appstreamcli validate: $out"
out=$(appstreamcli validate-tree --no-net "$dest" 2>&1) || fail "appstreamcli validate-tree: $out"
grep -q "<release version=\"$version\" date=\"[0-9-]*\"" "$metainfo" || fail "metainfo lacks release $version"

out=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$usr/share/man/man1/limitra.1.gz" 2>&1 >/dev/null)
[ -z "$out" ] || fail "man page warnings: $out"
page=$(LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$usr/share/man/man1/limitra.1.gz" 2>/dev/null)
for word in --check --snapshot .claude/.credentials.json .codex/auth.json limitra.conf Limitra.claude-oauth; do
    grep -qF -- "$word" <<<"$page" || fail "man page does not mention $word"
done

[ $failed -eq 0 ] && echo "install: all checks passed"
exit $failed
