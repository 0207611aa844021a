#!/usr/bin/env bash
# Times `limitra --check` and `limitra --snapshot` against instant local TLS
# peers, in the same private network and mount namespace as the end-to-end
# tests, and prints beside each check a floor measured in the same run: for a
# new user's check (no sessions) a QtCore program that prints one line, for
# the full check two concurrent curl requests to the same peers. Targets: the
# new user's check within twice its floor and under 20 MiB, the full check
# within 1.15 times its floor. Each line gives wall time and the
# peak resident memory of the runs. Not a test; needs root (for unshare) and a
# release build, which it makes in build/bench unless BUILD_DIR names another.
#
#   bench/bench.sh [RUNS]      (default 20 runs per line, after one warm-up)
set -euo pipefail

runs=${1:-20}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build/bench}

if [ "$(id -u)" -ne 0 ]; then
    echo "bench: run as root: the peers listen on port 443 inside unshare --net --mount" >&2
    exit 1
fi

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DLIMITRA_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target limitra limitra_watch limitra_bench_sandbox limitra_bench_floor -j2 >/dev/null

sandbox() {
    "$root/tests/e2e/sandbox.sh" "$build/bench/limitra_bench_sandbox" "$@"
}
limitra=$build/src/limitra
floor=$build/bench/limitra_bench_floor

# Measure only a check that reaches both services and gets their rows.
report=$(sandbox -- "$limitra" --check)
if grep -q 'ERROR' <<<"$report" || [ "$(grep -c '^== ' <<<"$report")" -ne 2 ]; then
    echo "bench: the check does not succeed in the sandbox:" >&2
    echo "$report" >&2
    exit 1
fi

# The snapshot draws off screen by itself: no display and no platform variable.
# Measure only one that prints its single line and nothing on stderr.
shot=$(sandbox -- "$limitra" --snapshot '{home}/snapshot.png' 2>&1)
if [ "$(grep -c '' <<<"$shot")" -ne 1 ] || ! grep -q '^Snapshot: .*/snapshot\.png$' <<<"$shot"; then
    echo "bench: the snapshot does not succeed in the sandbox:" >&2
    echo "$shot" >&2
    exit 1
fi

line() {
    printf '%-40s %s\n' "$1" "$2"
}

echo "limitra bench: $runs runs per line, $(nproc) CPU(s), $(uname -r)"
# A new user's check: no sessions, so no request and no TLS set-up.
line "limitra --check, no sessions" "$(sandbox --runs "$runs" --env 'HOME={home}/new-user' -- "$limitra" --check)"
line "floor: QtCore program printing a line" "$(sandbox --runs "$runs" --env 'HOME={home}/new-user' -- "$floor")"
line "limitra --check" "$(sandbox --runs "$runs" -- "$limitra" --check)"
line "limitra --json" "$(sandbox --runs "$runs" -- "$limitra" --json)"
line "floor: 2 concurrent curl requests" "$(sandbox --runs "$runs" -- curl --silent --fail \
    --parallel --parallel-immediate --output /dev/null --output /dev/null \
    https://api.anthropic.com/api/oauth/usage https://chatgpt.com/backend-api/wham/usage)"
line "limitra --snapshot" "$(sandbox --runs "$runs" -- "$limitra" --snapshot '{home}/snapshot.png')"

# The tray application: memory after start and after 1,000 refreshes asked
# through its menu, and CPU over a minute of idling.
sandbox -- "$root/bench/tray.sh" "$limitra" 1000 60
# The status bar mode: memory at rest and CPU over a minute, no bus, no display.
sandbox -- "$root/bench/watch.sh" "$limitra" 60
