#!/usr/bin/env bash
# Builds the `fuzz` preset (clang, libFuzzer, AddressSanitizer, UBSan) and runs
# every target for SECONDS seconds (default 20) from the seeds in
# tests/fuzz/corpus, with a dictionary of JSON syntax and of every member name
# the readers look up (taken from their sources, so it follows them). Fails on
# any crash, sanitizer report, broken rule or time-out. New inputs go to build/fuzz/corpus, never
# into git; findings are kept in build/fuzz/findings.
#   scripts/fuzz.sh [SECONDS] [TARGET...]     e.g. scripts/fuzz.sh 600 claude_usage
# FUZZ_RUNS=N also ends each target after N executions (whichever comes first).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(claude_usage claude_session codex_usage codex_session update format)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

out=build/fuzz
mkdir -p "$out/findings"
{
    printf '"%s"\n' '{' '}' '[' ']' ':' ',' '\"' true false null - . e308 1e999 -0 '\\u0000' '\\r\\n' '\x0a%%\x0a' \
        T Z +02:00 2025-03-01T12:34:56.789Z https://
    grep -rhoE '(u|QStringLiteral\()"[A-Za-z_]+"' src/services src/update | sed -E 's/^[^"]*"(.*)"$/"\\"\1\\""/' | sort -u
} >"$out/json.dict"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export no_proxy=127.0.0.1,localhost
# The session targets write credentials files (with fsync) at every input.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
failed=()
for t in "${targets[@]}"; do
    work="$out/corpus/$t"
    mkdir -p "$work"
    echo "fuzz: $t for ${seconds}s"
    if ! "$out/tests/fuzz/fuzz_$t" "$work" "tests/fuzz/corpus/$t" \
        -dict="$out/json.dict" -max_total_time="$seconds" -runs="${FUZZ_RUNS:--1}" -timeout=10 -rss_limit_mb=2048 \
        -max_len=4096 -print_final_stats=1 -artifact_prefix="$out/findings/$t-" \
        >"$out/$t.log" 2>&1; then
        failed+=("$t")
        tail -n 40 "$out/$t.log"
    fi
    grep -E '(DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$out/$t.log" || true
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: failed: ${failed[*]} (inputs in $out/findings)" >&2
    exit 1
fi
echo "fuzz: ${#targets[@]} targets clean"
