#!/usr/bin/env bash
# Measures `limitra --watch` inside the bench sandbox (called by bench.sh), without a
# session bus: resident memory once its first line is out, and CPU time over IDLE
# seconds at rest (its 30-second ticks included).
#   bench/watch.sh LIMITRA IDLE
set -euo pipefail
limitra=$1 idle=$2

coproc watch { exec "$limitra" --watch 2>/dev/null; }
app=$watch_PID
trap 'kill $app 2>/dev/null; wait $app 2>/dev/null' EXIT
read -r -t 30 first <&"${watch[0]}"
sleep 1

rss() { awk '/^Rss/ { r = $2 } /^Pss:/ { p = $2 } END { printf "%.1f MiB (proportional %.1f MiB)", r / 1024, p / 1024 }' \
    "/proc/$app/smaps_rollup"; }
cpu() { awk '{ print $14 + $15 }' "/proc/$app/stat"; }

start_rss=$(rss)
ticks=$(getconf CLK_TCK)
before=$(cpu)
sleep "$idle"
used=$(( $(cpu) - before ))

printf '%-40s %s\n' "watch: first line" "${first:0:60}"
printf '%-40s %s\n' "watch: resident at rest" "$start_rss"
printf '%-40s %s\n' "watch: CPU over ${idle} s at rest" \
    "$(awk -v u="$used" -v t="$ticks" -v s="$idle" 'BEGIN { printf "%.3f %% of one core (%d ticks)", 100 * u / t / s, u }')"
