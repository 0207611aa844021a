#!/usr/bin/env bash
# Runs the built binary in a real tray host: Xvfb, xfce4-panel with the indicator
# plugin and ayatana-indicator-application, on a private session bus with a
# temporary home. Checks that the item registers with its label, that Activate
# opens the panel under the panel bar, that a second start leaves one item, and
# that SIGTERM ends it with status 0. Screenshots go to the given folder.
#   tray-host.sh <limitra binary> <screenshot folder>
# Exits 77 (skipped) when the host's packages are missing.
set -u
limitra=$1
shots=$2
service=/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service

if [ -z "${LIMITRA_HOST_INNER:-}" ]; then
    for tool in Xvfb xfce4-panel dbus-run-session gdbus xwininfo import "$service"; do
        if ! command -v "$tool" >/dev/null 2>&1; then
            echo "SKIP: $tool is missing; install xvfb xfce4-panel xfce4-indicator-plugin" \
                "ayatana-indicator-application x11-utils imagemagick (scripts/setup.sh)"
            exit 77
        fi
    done
    if [ ! -e /usr/lib/x86_64-linux-gnu/xfce4/panel/plugins/libindicator-plugin.so ] \
        && ! ls /usr/lib/*/xfce4/panel/plugins/libindicator-plugin.so >/dev/null 2>&1; then
        echo "SKIP: xfce4-indicator-plugin is missing (scripts/setup.sh)"
        exit 77
    fi
    root=$(mktemp -d "${TMPDIR:-/tmp}/limitra-host.XXXXXX") || exit 2
    mkdir -p "$root/home" "$root/config/xfce4/xfconf/xfce-perchannel-xml" "$root/run" "$shots"
    chmod 700 "$root/run"
    # A user who has seen the welcome guide (the tray test covers the first
    # start), so that no window hides the panel in the screenshots.
    mkdir -p "$root/config/limitra"
    printf '[General]\nhasShownWelcome=true\n' >"$root/config/limitra/limitra.conf"
    # One top panel holding only the indicator plugin.
    cat >"$root/config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="28"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="indicator"/>
  </property>
</channel>
XML
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$root/display" 2>"$root/xvfb.log" &
    xvfb=$!
    for _ in $(seq 50); do [ -s "$root/display" ] && break; sleep 0.1; done
    LIMITRA_HOST_INNER="$root" DISPLAY=":$(cat "$root/display")" HOME="$root/home" \
        XDG_CONFIG_HOME="$root/config" XDG_RUNTIME_DIR="$root/run" XDG_CURRENT_DESKTOP=XFCE \
        WAYLAND_DISPLAY= QT_QPA_PLATFORM=xcb dbus-run-session -- "$0" "$@"
    status=$?
    kill "$xvfb" 2>/dev/null
    wait "$xvfb" 2>/dev/null
    rm -rf "$root"
    exit $status
fi

# Inside the private bus and display.
root=$LIMITRA_HOST_INNER
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done; wait 2>/dev/null; }
trap cleanup EXIT
fail() {
    echo "FAIL: $*"
    [ -n "${LIMITRA_HOST_DEBUG:-}" ] && { xwininfo -root -tree; cat "$root"/*.log; }
    exit 1
}

"$service" >"$root/indicator.log" 2>&1 &
pids+=($!)
xfce4-panel --disable-wm-check >"$root/panel.log" 2>&1 &
pids+=($!)
gdbus wait --session --timeout 10 org.kde.StatusNotifierWatcher || fail "no StatusNotifierWatcher appeared"
sleep 2

"$limitra" >"$root/limitra.log" 2>&1 &
app=$!
pids+=("$app")
items() {
    gdbus call --session -d org.kde.StatusNotifierWatcher -o /StatusNotifierWatcher \
        -m org.freedesktop.DBus.Properties.Get org.kde.StatusNotifierWatcher RegisteredStatusNotifierItems 2>/dev/null
}
for _ in $(seq 50); do items | grep -q StatusNotifierItem && break; sleep 0.2; done
items | grep -q StatusNotifierItem || fail "the item did not register: $(items); $(cat "$root/limitra.log")"
item=$(items | grep -o "org.kde.StatusNotifierItem-[0-9]*-[0-9]*" | head -1)
label=$(gdbus call --session -d "$item" -o /StatusNotifierItem -m org.freedesktop.DBus.Properties.Get \
    org.kde.StatusNotifierItem XAyatanaLabel)
echo "item $item, label $label"
[ "$label" = "(<'C – · X –'>,)" ] || fail "unexpected label $label"
sleep 2
import -window root -crop 1280x40+0+0 "$shots/panel-label.png"

# The host must be showing it: the indicator service lists the application with its label.
gdbus call --session -d org.ayatana.indicator.application -o /org/ayatana/indicator/application/service \
    -m org.ayatana.indicator.application.service.GetApplications 2>&1 | grep -q "C – · X –" \
    || fail "the host does not list the item's label"

# A click on the item (the host gives its point, here the icon at the left end
# of the bar) opens the panel below the bar, kept on screen.
gdbus call --session -d "$item" -o /StatusNotifierItem -m org.kde.StatusNotifierItem.Activate 12 14 >/dev/null
sleep 1.5
geometry=$(xwininfo -root -tree | grep "(\"limitra\" \"limitra\")" | head -1)
[ -n "$geometry" ] || fail "Activate opened no panel window"
echo "panel window: $geometry"
import -window root "$shots/panel-open.png"

# A second start hands over to the first and leaves one item.
timeout 10 "$limitra" >"$root/second.log" 2>&1
second=$?
[ "$second" -eq 0 ] || fail "the second limitra exited $second"
sleep 1
[ "$(items | grep -o 'StatusNotifierItem-' | wc -l)" -eq 1 ] || fail "not exactly one item: $(items)"
kill -0 "$app" 2>/dev/null || fail "the first instance ended"

kill -TERM "$app"
for _ in $(seq 50); do kill -0 "$app" 2>/dev/null || break; sleep 0.1; done
kill -0 "$app" 2>/dev/null && fail "SIGTERM did not end the application"
wait "$app"
status=$?
[ "$status" -eq 0 ] || fail "the application exited $status after SIGTERM"

# Without a session bus the runtime folder keeps it to one instance: the second
# start opens the first one's panel and leaves.
nobus=(env DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent XDG_RUNTIME_DIR="$root/run-nobus")
mkdir -p "$root/run-nobus" && chmod 700 "$root/run-nobus"
"${nobus[@]}" "$limitra" >"$root/nobus.log" 2>&1 &
app=$!
pids+=("$app")
sleep 3
xwininfo -root -tree | grep -q '("limitra" "limitra")' && fail "a panel is open already"
timeout 10 "${nobus[@]}" "$limitra" >"$root/nobus2.log" 2>&1 || fail "the second limitra without a bus failed"
sleep 1
kill -0 "$app" 2>/dev/null || fail "the first instance without a bus ended"
xwininfo -root -tree | grep -q '("limitra" "limitra")' || fail "the second start opened no panel"
import -window root "$shots/nobus-panel.png"
echo "PASS"
