#!/usr/bin/env bash
# Measures the tray application inside the bench sandbox (called by bench.sh):
# resident memory after start and after REFRESHES refreshes asked through the
# item's own menu on the bus, and CPU time over IDLE idle seconds.
#   bench/tray.sh LIMITRA REFRESHES IDLE
# Runs itself again on a private session bus; draws off screen.
set -euo pipefail
limitra=$1 refreshes=$2 idle=$3

if [ -z "${LIMITRA_TRAY_BENCH_INNER:-}" ]; then
    export LIMITRA_TRAY_BENCH_INNER=1 QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=$HOME/run
    mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
    exec dbus-run-session -- "$0" "$@" 2>/dev/null
fi

# An everyday start: the welcome guide opens once per user, at the first one.
mkdir -p "$HOME/.config/limitra"
printf '[General]\nhasShownWelcome=true\n' >"$HOME/.config/limitra/limitra.conf"
"$limitra" >/dev/null 2>&1 &
app=$!
trap 'kill $app 2>/dev/null; wait $app 2>/dev/null' EXIT
item=org.kde.StatusNotifierItem-$app-1
for _ in $(seq 100); do gdbus introspect --session -d "$item" -o /MenuBar >/dev/null 2>&1 && break; sleep 0.1; done
sleep 3 # the first refresh

. "$(dirname "$0")/process.sh"

start_rss=$(rss)
# "Actualizar ahora" is the menu's second entry. A click while a refresh runs is
# absorbed, so the clicks are paced well beyond one refresh against instant peers.
begin=$(date +%s)
for _ in $(seq "$refreshes"); do
    gdbus call --session -d "$item" -o /MenuBar -m com.canonical.dbusmenu.Event 2 clicked '<0>' 0 >/dev/null
    sleep 0.1
done
end=$(date +%s)
sleep 2
after_rss=$(rss)
# The label shows whether the refreshes reached the peers ("C –" would mean not).
label=$(gdbus call --session -d "$item" -o /StatusNotifierItem -m org.freedesktop.DBus.Properties.Get \
    org.kde.StatusNotifierItem XAyatanaLabel)

# The panel: built at its first opening; opening and closing it again must not grow.
activate() { gdbus call --session -d "$item" -o /StatusNotifierItem -m org.kde.StatusNotifierItem.Activate 0 0 >/dev/null; }
activate && sleep 2
panel_rss=$(rss)
for _ in $(seq 100); do activate && sleep 0.1; activate && sleep 0.1; done
sleep 2
panel_after=$(rss)

idle_cpu=$(cpu_at_rest "$idle")

printf '%-40s %s\n' "tray: resident after start" "$start_rss"
printf '%-40s %s\n' "tray: label after the refreshes" "$label"
printf '%-40s %s (%d requests in %d s)\n' "tray: resident after $refreshes refreshes" "$after_rss" \
    "$refreshes" "$((end - begin))"
printf '%-40s %s\n' "tray: resident after the panel opened" "$panel_rss"
printf '%-40s %s\n' "tray: resident after 100 more openings" "$panel_after"
printf '%-40s %s\n' "tray: CPU over ${idle} s idle" "$idle_cpu"
