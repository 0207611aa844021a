#!/usr/bin/env bash
# The built binary on two real desktops, each headless on private buses and a private home,
# against fake production hosts (tests/e2e/sandbox.sh):
#   x11      Xvfb, the xfwm4 window manager, xfce4-panel with the indicator plugin (menu on a left click)
#   wayland  headless sway with waybar's tray, Xwayland, and wayvnc for real pointer and keyboard input
# Everything is read from the window manager's own view (xwininfo, swaymsg) and every choice goes
# through the host's own menu with real input. Whole-screen PNGs go to SHOTS.
#   desktop-host.sh LIMITRA SHOTS        exits 77 when a host's packages are missing or without root
set -u
here=$(cd "$(dirname "$0")/.." && pwd)
limitra=$1 shots=$2
fail() { echo "FAIL [$desk]: $*"; for f in "$root"/*.log; do echo "--- $f"; tail -n 20 "$f"; done; exit 1; }
wait_for() { for _ in $(seq $((${2:-10} * 5))); do eval "$1" >/dev/null 2>&1 && return 0; sleep 0.2; done; return 1; }

case ${LIMITRA_HOST_STAGE:-} in
"")
    for need in Xvfb xfwm4 xfce4-panel sway waybar wayvnc Xwayland grim swaymsg xdotool xwininfo xprop jq \
        import convert gdbus dbus-run-session setpriv openssl python3 \
        /usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service \
        /usr/lib/*/xfce4/panel/plugins/libindicator-plugin.so; do
        [ -e "$need" ] || command -v "$need" >/dev/null || { echo "SKIP: no $need (scripts/setup.sh)"; exit 77; }
    done
    mkdir -p "$shots"
    LIMITRA_HOST_STAGE=sandbox exec "$here/e2e/sandbox.sh" "$0" "$@"
    ;;
sandbox)
    # Root, in the private network: serve both usage endpoints, then run each desktop.
    root=$(mktemp -d) desk=sandbox && chmod 755 "$root"
    at() { date -u -d "$1" +%Y-%m-%dT%H:%M:%SZ; }
    mkdir -p "$root/www/api/oauth" "$root/www/backend-api/wham"
    printf '{"limits":[{"kind":"session","percent":37,"resets_at":"%s"},{"kind":"weekly_all","percent":12,"resets_at":"%s"}]}' \
        "$(at '+2 hours 5 minutes')" "$(at '+3 days')" >"$root/www/api/oauth/usage"
    printf '{"plan_type":"pro","rate_limit":{"primary_window":{"used_percent":81,"limit_window_seconds":18000,"reset_after_seconds":3000}}}' \
        >"$root/www/backend-api/wham/usage"
    status=0
    for d in x11 wayland; do
        (cd "$root/www" && exec openssl s_server -quiet -WWW -accept 443 -cert "$LIMITRA_PEER_CERT" \
            -key "$LIMITRA_PEER_KEY") >"$root/peer.log" 2>&1 &
        peer=$!
        home=$root/$d && mkdir -p "$home/.claude" "$home/.codex" "$home/.config" && chmod -R 755 "$home"
        printf '{"claudeAiOauth":{"accessToken":"at-c","refreshToken":"rt-c","expiresAt":%s000,"scopes":["user:inference"],"subscriptionType":"max"}}' \
            "$(date -d '+8 hours' +%s)" >"$home/.claude/.credentials.json"
        printf '{"tokens":{"id_token":"id-x","access_token":"at-x","refresh_token":"rt-x","account_id":"acc"},"last_refresh":"%s"}' \
            "$(at now)" >"$home/.codex/auth.json"
        chmod 600 "$home/.claude/.credentials.json" "$home/.codex/auth.json"
        export LIMITRA_HOST_ROOT=$home LIMITRA_HOST_PEER=$peer
        as=()
        if [ $d = wayland ]; then # sway refuses to run as root: that desktop runs as an ordinary user
            chown -R nobody:nogroup "$home"
            as=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
        fi
        # Into a file: a helper a desktop leaves behind must not hold the test's output open.
        LIMITRA_HOST_STAGE=$d "${as[@]}" "$0" "$@" >"$root/$d.out" 2>&1 || status=1
        grep -v -e '^dbus-daemon' -e '^SpiRegistry' -e '^\*\* Message' -e '^discover_other' "$root/$d.out"
        cp "$home"/*.png "$shots/" 2>/dev/null
        kill $peer 2>/dev/null
    done
    rm -rf "$root"
    exit $status
    ;;
esac

# One desktop: start the host, then the same journey on each.
desk=$LIMITRA_HOST_STAGE root=$LIMITRA_HOST_ROOT
export HOME=$root XDG_CONFIG_HOME=$root/.config XDG_RUNTIME_DIR=$root/run XDG_CACHE_HOME=$root/.cache
mkdir -p -m 700 "$root/run"
trap '[ -n "${SWAYSOCK:-}" ] && swaymsg exit; kill $(jobs -p) 2>/dev/null; wait 2>/dev/null' EXIT
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ] && [ $desk = x11 ]; then
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$root/display" >/dev/null 2>&1 &
    wait_for '[ -s "$root/display" ]' || fail "Xvfb did not start"
    DISPLAY=:$(cat "$root/display") WAYLAND_DISPLAY= XDG_CURRENT_DESKTOP=XFCE dbus-run-session -- "$0" "$@"
    exit
fi

if [ $desk = x11 ]; then
    conf=$XDG_CONFIG_HOME/xfce4/xfconf/xfce-perchannel-xml && mkdir -p "$conf"
    # One top panel: an expanding separator, then the indicator plugin at the right end.
    cat >"$conf/xfce4-panel.xml" <<'XML'
<channel name="xfce4-panel" version="1.0"><property name="panels" type="array"><value type="int" value="1"/>
<property name="panel-1" type="empty"><property name="position" type="string" value="p=6;x=0;y=0"/>
<property name="length" type="uint" value="100"/><property name="size" type="uint" value="28"/>
<property name="plugin-ids" type="array"><value type="int" value="1"/><value type="int" value="2"/></property>
</property></property><property name="plugins" type="empty"><property name="plugin-1" type="string" value="separator">
<property name="expand" type="bool" value="true"/></property><property name="plugin-2" type="string" value="indicator"/>
</property></channel>
XML
    /usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service >"$root/indicator.log" 2>&1 &
    xfwm4 --compositor=off --sm-client-disable >"$root/wm.log" 2>&1 &
    xfce4-panel --disable-wm-check >"$root/panel.log" 2>&1 &
    click() { xdotool mousemove "$1" "$2" click 1; sleep 0.5; }
    key() { xdotool key "$@"; sleep 0.5; }
    shot() { import -window root "$root/$desk-$1.png"; }
    open_menu() { click $icon_x $icon_y; }
    activate() { gdbus call --session -d "$item" -o /StatusNotifierItem -m org.kde.StatusNotifierItem.Activate $icon_x $icon_y >/dev/null; }
    managed() { :; }
else
    mkdir -p "$root/sway"
    # The bar also runs the status line of `limitra --watch` at its left end.
    printf '{"layer":"top","position":"top","height":28,"modules-right":["tray"],"tray":{"spacing":6},
        "modules-left":["custom/limitra"],"custom/limitra":{"exec":"%s --watch","return-type":"json"}}' \
        "$(realpath "$limitra")" >"$root/waybar.json"
    printf '* { font-family: DejaVu Sans; font-size: 12px; } window#waybar { background: #333333; color: #ffffff; }' \
        >"$root/waybar.css"
    cat >"$root/sway/config" <<EOF
output HEADLESS-1 resolution 1280x800 position 0 0
xwayland enable
exec env >$root/sway.env
exec waybar -c $root/waybar.json -s $root/waybar.css >$root/waybar.log 2>&1
exec wayvnc -u $root/run/vnc.sock >$root/vnc.log 2>&1
EOF
    WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman XCURSOR_THEME=redglass \
        dbus-run-session -- sway -c "$root/sway/config" >"$root/sway.log" 2>&1 &
    wait_for '[ -S "$root/run/vnc.sock" ] && grep -q ^DISPLAY= "$root/sway.env"' 15 || fail "sway did not start"
    eval "export $(grep -E '^(DISPLAY|WAYLAND_DISPLAY|SWAYSOCK|DBUS_SESSION_BUS_ADDRESS)=' "$root/sway.env" | tr '\n' ' ')"
    input() { "$here/support/vnc-input.py" "$root/run/vnc.sock" "$@"; sleep 0.5; }
    click() { input click "$@"; }
    key() { for k in "$@"; do input key "$k"; done; }
    shot() { grim "$root/$desk-$1.png"; }
    open_menu() { click $icon_x $icon_y right; }
    activate() { click $icon_x $icon_y; }
    # sway's view of a window it manages: x y width height of the client area.
    managed() {
        swaymsg -t get_tree | jq -r --arg t "$1" '.. | objects | select(.name? == $t and .shell? != null)
            | "\(.rect.x + .window_rect.x) \(.rect.y + .window_rect.y) \(.window_rect.width) \(.window_rect.height)"' |
            head -1
    }
fi

layout() { gdbus call --session -d "$item" -o /MenuBar -m com.canonical.dbusmenu.GetLayout -- 0 -1 '@as []'; }
get() { gdbus call --session -d "$1" -o "/${2##*.}" -m org.freedesktop.DBus.Properties.Get "$2" "$3" 2>&1; }
items() { w=org.kde.StatusNotifierWatcher; get $w $w RegisteredStatusNotifierItems | grep -o 'StatusNotifierItem-[0-9-]*'; }
# X id of a viewable window of ours with exactly this title.
xid() {
    xwininfo -root -tree | grep -F "\"$1\": (\"limitra\" \"limitra\")" | awk '{print $1}' | while read -r id; do
        xwininfo -id "$id" | grep -q IsViewable && echo "$id"
    done | head -1
}
# x y width height of the window titled $1, as the window manager shows it.
geom() {
    local g id
    g=$(managed "$1")
    [ -n "$g" ] && { echo "$g"; return; }
    id=$(xid "$1") && [ -n "$id" ] || return 1
    xwininfo -id "$id" | awk '/Absolute upper-left X/{x=$NF} /Absolute upper-left Y/{y=$NF} /Width/{w=$NF}
        /Height/{h=$NF} END{print x, y, w, h}'
}
# The size the program asks of the window manager for it (its content's size).
wants() { xprop -id "$(xid "$1")" WM_NORMAL_HINTS | awk '/minimum size/{print $5, $7}'; }
# The window titled $1 is as large as its content and at least $2 high; leaves its x y w h set.
fits() {
    local want
    wait_for "geom '$1'" 5 || fail "no window \"$1\""
    read -r x y w h <<<"$(geom "$1")"
    want=$(wants "$1")
    [ "$w $h" = "$want" ] || fail "\"$1\" is ${w}x$h, its content ${want/ /x}"
    [ "$h" -ge "$2" ] || fail "\"$1\" is only $h high"
}
# Chooses the entry whose label starts with $1 through the host's own menu: by keyboard on X11, by
# pointer on Wayland (sway gives a GTK menu no keys), where entries are 24 px apart and separators 1 px.
choose() {
    local entries i n
    entries=$(layout | grep -o "'label': <'[^']*'>\|'type': <'separator'>")
    i=$(grep -n -F "'label': <'$1" <<<"$entries" | head -1 | cut -d: -f1)
    [ -n "$i" ] || fail "the menu has no \"$1\""
    n=$(head -n "$i" <<<"$entries" | grep -c "'label'")
    open_menu && sleep 0.5 && shot "menu"
    if [ $desk = wayland ]; then
        click 1200 $((30 + 24 * (n - 1) + i - n))
    else
        key $(for _ in $(seq "$n"); do echo Down; done)
        [ -n "${2:-}" ] || key Return
    fi
}
on_screen_near() { # x y w h  px py: fully on screen and within 40 px of the point
    [ "$1" -ge 0 ] && [ "$2" -ge 0 ] && [ $(($1 + $3)) -le 1280 ] && [ $(($2 + $4)) -le 800 ] || return 1
    local dx=$((($5 < $1) ? $1 - $5 : ($5 > $1 + $3) ? $5 - $1 - $3 : 0))
    local dy=$((($6 < $2) ? $2 - $6 : ($6 > $2 + $4) ? $6 - $2 - $4 : 0))
    [ $dx -le 40 ] && [ $dy -le 40 ]
}

gdbus wait --session --timeout 15 org.kde.StatusNotifierWatcher || fail "no StatusNotifierWatcher"
sleep 2
"$limitra" >"$root/limitra.log" 2>&1 &
app=$!
wait_for 'items' 15 || fail "no item registered"
item=org.kde.$(items | head -1)

# The welcome guide: its full height once the detection answered, no title suffix, centred in the
# work area below the 28 px bar (give or take half a title bar).
sleep 2
fits "Bienvenida" 360
[ $((x + w / 2 - 640)) -le 8 ] && [ $((640 - x - w / 2)) -le 8 ] && [ $((y + h / 2 - 414)) -le 32 ] &&
    [ $((414 - y - h / 2)) -le 32 ] || fail "the welcome guide is not centred: $x,$y ${w}x$h"
xprop -id "$(xid Bienvenida)" _NET_WM_ICON | grep -q 'Icon (' || fail "the welcome guide carries no icon"
shot welcome
key Return
wait_for '! xid Bienvenida | grep -q .' || fail "Return did not close the welcome guide"

# The tray: where the icon is (leftmost mark at the bar's right end), and the rows in its menu.
wait_for "layout | grep -q 'Claude Code · Sesión de 5 h — 63 % restante'" 15 || fail "the menu lacks the rows: $(layout)"
shot bar
# x y w h of what stands out of the bar's background within the crop $1.
marks() { convert "$root/$desk-bar.png" -crop "$1" +repage -fuzz 12% -trim -format '%X %Y %w %h' info: | tr -d +; }
read -r bx by bw bh <<<"$(marks 200x28+1080+0)"
icon_x=$((1080 + bx + 8)) icon_y=14
[ "$bw" -gt 4 ] && [ "$bw" -lt 200 ] || fail "no icon at the bar's right end ($bx $by $bw $bh)"
if [ $desk = wayland ]; then
    read -r _ _ tw _ <<<"$(marks 300x28+0+0)"
    [ "${tw:-0}" -gt 60 ] || fail "waybar shows no text of limitra --watch"
fi

# The label beside the icon, as the XFCE host lists it; a second start shows this one's panel.
if [ $desk = x11 ]; then
    label=$(get "$item" org.kde.StatusNotifierItem XAyatanaLabel | grep -o "C [0-9]*% · X [0-9]*%")
    gdbus call --session -d org.ayatana.indicator.application -o /org/ayatana/indicator/application/service \
        -m org.ayatana.indicator.application.service.GetApplications | grep -qF "${label:-no label}" ||
        fail "the host does not show the label \"$label\""
    timeout 10 "$limitra" >"$root/second.log" 2>&1 || fail "the second start exited $?"
    wait_for 'geom Límites' && [ "$(items | wc -l)" -eq 1 ] || fail "a second start did not show the one panel"
    key Escape
fi

# "Límites" from the menu before any click: under the top bar, at its right end.
choose "Límites"
wait_for 'geom Límites' || fail "\"Límites\" from the menu opened no panel"
read -r x y w h <<<"$(geom Límites)"
[ $((x + w)) -ge 1270 ] && [ "$y" -ge 28 ] && [ "$y" -le 44 ] || fail "the panel is at $x,$y ${w}x$h, not under the bar's right end"
shot panel-from-menu
key Escape
wait_for '! xid Límites | grep -q .' || fail "Escape did not hide the panel"

# "Ajustes": the settings window takes each tab's full height.
choose "Ajustes"
fits "Ajustes de Limitra" 300 && general=$h
shot settings
click $((x + w / 2 + 42)) $((y + 30))
wait_for "[ \"\$(geom 'Ajustes de Limitra' | cut -d' ' -f4)\" != $general ]" 5 || fail "the tab change kept the height $general"
fits "Ajustes de Limitra" 200
shot settings-about

# A click on the icon: beside it and fully on screen; a click on another window hides it.
activate
wait_for 'geom Límites' || fail "a click on the icon opened no panel"
on_screen_near $(geom Límites) $icon_x $icon_y || fail "the panel at $(geom Límites) is not beside $icon_x,$icon_y"
shot panel
read -r x y w h <<<"$(geom 'Ajustes de Limitra')"
click $((x + 20)) $((y + h - 15))
wait_for '! xid Límites | grep -q .' || fail "a click on the settings window left the panel open"

# A row of the menu opens the panel too.
choose "Claude Code · "
wait_for 'geom Límites' || fail "a row of the menu opened no panel"
key Escape

# Quitting while a refresh hangs: the peers stop answering.
if [ $desk = x11 ]; then
    kill "$LIMITRA_HOST_PEER" && sleep 0.5
    python3 -c 'import socket,time
s = socket.create_server(("127.0.0.1", 443)); held = []
while True: held.append(s.accept())' >"$root/stall.log" 2>&1 &
    choose "Actualizar ahora" && sleep 1
    choose "Salir" highlighted
    start=$(date +%s%N)
    key Return
    wait_for '! kill -0 $app' 5 || fail "\"Salir\" did not end the program while a refresh hangs"
    took=$((($(date +%s%N) - start) / 1000000))
    [ $took -le 2000 ] || fail "\"Salir\" took $took ms"
    old=$item
    "$limitra" >"$root/second.log" 2>&1 &
    wait_for '[ "$(items)" != "" ] && [ "org.kde.$(items)" != "$old" ]' 10 || fail "a start after \"Salir\" shows no new item"
    echo "x11: \"Salir\" ended the program in $took ms with a refresh hanging"
else
    kill -TERM $app && wait_for '! kill -0 $app' 5 || fail "SIGTERM did not end the program"
fi
grep -v '^$' "$root/limitra.log" && fail "the program printed the lines above"
echo "PASS [$desk]"
