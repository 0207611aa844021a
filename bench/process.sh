# Figures of the process whose id is in $app, for the bench scripts that source this.

# Resident memory, and its proportional share: the libraries' pages count
# once among every Qt program of the desktop.
rss() { awk '/^Rss/ { r = $2 } /^Pss:/ { p = $2 } END { printf "%.1f MiB (proportional %.1f MiB)", r / 1024, p / 1024 }' \
    "/proc/$app/smaps_rollup"; }
cpu() { awk '{ print $14 + $15 }' "/proc/$app/stat"; }
# The share of one core the process takes over SECONDS left alone.
cpu_at_rest() {
    local before used
    before=$(cpu)
    sleep "$1"
    used=$(( $(cpu) - before ))
    awk -v u="$used" -v t="$(getconf CLK_TCK)" -v s="$1" 'BEGIN { printf "%.3f %% of one core (%d ticks)", 100 * u / t / s, u }'
}
