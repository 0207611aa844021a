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

. "$(dirname "$0")/process.sh"
start_rss=$(rss)
idle_cpu=$(cpu_at_rest "$idle")

printf '%-40s %s\n' "watch: first line" "${first:0:60}"
printf '%-40s %s\n' "watch: resident at rest" "$start_rss"
printf '%-40s %s\n' "watch: CPU over ${idle} s at rest" "$idle_cpu"
