#!/usr/bin/env bash
# Times `limitra --check` against instant local TLS peers, in the same private
# network and mount namespace as the end-to-end tests, and prints beside it a
# floor measured in the same run: two concurrent curl requests to the same
# peers. Not a test; needs root (for unshare) and a release build, which it
# makes in build/bench unless BUILD_DIR names another.
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

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target limitra limitra_e2e_sandbox -j2 >/dev/null

sandbox=$build/tests/e2e/limitra_e2e_sandbox
limitra=$build/src/limitra

# Measure only a check that reaches both services and gets their rows.
report=$("$sandbox" -- "$limitra" --check)
if grep -q 'ERROR' <<<"$report" || [ "$(grep -c '^== ' <<<"$report")" -ne 2 ]; then
    echo "bench: the check does not succeed in the sandbox:" >&2
    echo "$report" >&2
    exit 1
fi

line() {
    printf '%-40s %s\n' "$1" "$2"
}

echo "limitra bench: $runs runs per line, $(nproc) CPU(s), $(uname -r)"
line "limitra --check" "$("$sandbox" --runs "$runs" -- "$limitra" --check)"
line "floor: 2 concurrent curl requests" "$("$sandbox" --runs "$runs" -- curl --silent --fail \
    --parallel --parallel-immediate --output /dev/null --output /dev/null \
    https://api.anthropic.com/api/oauth/usage https://chatgpt.com/backend-api/wham/usage)"

# The snapshot renders off-screen, so it needs no display.
snapshot=("$limitra" --snapshot '{home}/snapshot.png')
if "$sandbox" --env QT_QPA_PLATFORM=offscreen -- "${snapshot[@]}" 2>/dev/null | grep -q '^Snapshot: '; then
    line "limitra --snapshot" "$("$sandbox" --runs "$runs" --env QT_QPA_PLATFORM=offscreen -- "${snapshot[@]}")"
else
    line "limitra --snapshot" "(not measured: this build has no snapshot mode yet)"
fi
