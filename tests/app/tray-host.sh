#!/usr/bin/env bash
# The built binary in a real tray host (Xvfb, xfce4-panel with the indicator plugin,
# ayatana-indicator-application) on a private bus and home; screenshots go to SHOTS.
#   tray-host.sh LIMITRA SHOTS      exits 77 when the host's packages are missing
set -u
limitra=$1 shots=$2
service=/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service
if [ -z "${LIMITRA_HOST_INNER:-}" ]; then
    for need in Xvfb xfce4-panel dbus-run-session gdbus xwininfo import "$service" \
        /usr/lib/*/xfce4/panel/plugins/libindicator-plugin.so; do
        [ -e "$need" ] || command -v "$need" >/dev/null || { echo "SKIP: no $need (scripts/setup.sh)"; exit 77; }
    done
    root=$(mktemp -d) && conf=$root/config/xfce4/xfconf/xfce-perchannel-xml
    mkdir -p "$root/home" "$conf" "$root/config/limitra" "$shots"
    # A user past the welcome guide, and one top panel holding only the indicator plugin.
    printf '[General]\nhasShownWelcome=true\n' >"$root/config/limitra/limitra.conf"
    cat >"$conf/xfce4-panel.xml" <<'XML'
<channel name="xfce4-panel" version="1.0"><property name="panels" type="array"><value type="int" value="1"/>
<property name="panel-1" type="empty"><property name="position" type="string" value="p=6;x=0;y=0"/>
<property name="length" type="uint" value="100"/><property name="size" type="uint" value="28"/>
<property name="plugin-ids" type="array"><value type="int" value="1"/></property></property></property><property
name="plugins" type="empty"><property name="plugin-1" type="string" value="indicator"/></property></channel>
XML
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$root/display" 2>/dev/null &
    for _ in $(seq 50); do [ -s "$root/display" ] && break; sleep 0.1; done
    LIMITRA_HOST_INNER=$root DISPLAY=":$(cat "$root/display")" HOME=$root/home XDG_CONFIG_HOME=$root/config \
        XDG_RUNTIME_DIR=$root XDG_CURRENT_DESKTOP=XFCE WAYLAND_DISPLAY= QT_QPA_PLATFORM=xcb \
        dbus-run-session -- "$0" "$@"
    status=$?
    kill $! && rm -rf "$root"
    exit $status
fi

root=$LIMITRA_HOST_INNER
trap 'kill $(jobs -p) 2>/dev/null; wait' EXIT
fail() { echo "FAIL: $*"; cat "$root"/*.log; exit 1; }
get() { gdbus call --session -d "$1" -o "/${2##*.}" -m org.freedesktop.DBus.Properties.Get "$2" "$3" 2>&1; }
items() { w=org.kde.StatusNotifierWatcher; get $w $w RegisteredStatusNotifierItems | grep -o 'StatusNotifierItem-[0-9-]*'; }
panel() { xwininfo -root -tree | grep -q '("limitra" "limitra")'; }
"$service" >"$root/indicator.log" 2>&1 &
xfce4-panel --disable-wm-check >"$root/panel.log" 2>&1 &
gdbus wait --session --timeout 10 org.kde.StatusNotifierWatcher && sleep 2 || fail "no StatusNotifierWatcher"
"$limitra" >"$root/limitra.log" 2>&1 & app=$!
for _ in $(seq 50); do items >/dev/null && break; sleep 0.2; done
item=org.kde.$(items | head -1)
label=$(get "$item" org.kde.StatusNotifierItem XAyatanaLabel)
[ "$label" = "(<'C – · X –'>,)" ] || fail "item $item, label $label"
get "$item" org.kde.StatusNotifierItem IconPixmap | grep -q '(<\[([1-9][0-9]*, [1-9]' || fail "the item has no gauge"
# The host itself lists the item with its label.
gdbus call --session -d org.ayatana.indicator.application -o /org/ayatana/indicator/application/service \
    -m org.ayatana.indicator.application.service.GetApplications | grep -q "C – · X –" || fail "host lacks it"
sleep 1 && import -window root -crop 1280x40+0+0 "$shots/panel-label.png"
panel && fail "a panel window is open before any click"
gdbus call --session -d "$item" -o /StatusNotifierItem -m org.kde.StatusNotifierItem.Activate 12 14 >/dev/null
sleep 1.5 && panel || fail "Activate opened no panel window"
import -window root "$shots/panel-open.png"
timeout 10 "$limitra" >"$root/second.log" 2>&1 || fail "the second limitra exited $?"
sleep 1 && [ "$(items | wc -l)" -eq 1 ] || fail "not exactly one item: $(items)"
kill -TERM $app
for _ in $(seq 50); do kill -0 $app 2>/dev/null || break; sleep 0.1; done
kill -0 $app 2>/dev/null && fail "SIGTERM did not end the application"
wait $app || fail "the application exited $? after SIGTERM"
echo PASS
