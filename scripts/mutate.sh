#!/usr/bin/env bash
# Fault injection: applies each small, realistic fault of scripts/mutants.tsv to
# a scratch copy of the tracked files, one at a time, rebuilds incrementally,
# runs the tests that cover the fault's folder and prints which faults the
# tests caught and which escaped. The repository itself is never changed.
#
#   scripts/mutate.sh                     every fault
#   scripts/mutate.sh -o store,M07        only the faults of src/store and fault M07
#   scripts/mutate.sh -R tst_services     run only these tests for every fault
#   scripts/mutate.sh -a                  the whole suite for every fault (slow)
#   scripts/mutate.sh -c                  only check which faults still apply (no build)
#
# Options: -o IDS|FOLDERS (comma list; a folder is e.g. model, services/claude, ui)
#          -R REGEX / -E REGEX  ctest include / exclude filter (overrides the folder map)
#          -a  whole suite per fault   -t SECONDS  time limit of one fault's tests (300)
#          -l FILE  fault list (scripts/mutants.tsv)   -w DIR  scratch dir (build/mutate)
#          -c  report stale faults only
#
# Fault list: tab-separated "id, file (src/...), exact text, replacement, harm".
# \n, \t and \\ in the texts stand for a newline, a tab and a backslash. The text must occur
# exactly once in the file, otherwise the fault is "stale" (the code moved on)
# and counts neither as caught nor as escaped.
# Read whole before it runs (the braces), so editing or checking out this file
# during a long run cannot change the run.
{
set -uo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
list=$repo/scripts/mutants.tsv
work=${MUTATE_DIR:-$repo/build/mutate}
only="" include="" exclude="" whole=0 limit=300 check=0
while getopts "o:R:E:at:l:w:ch" opt; do
    case $opt in
        o) only=$OPTARG ;; R) include=$OPTARG ;; E) exclude=$OPTARG ;; a) whole=1 ;;
        t) limit=$OPTARG ;; l) list=$OPTARG ;; w) work=$OPTARG ;; c) check=1 ;;
        *) sed -n '2,/^# Read whole/p' "$0" | sed '$d; s/^# \{0,1\}//'; exit 2 ;;
    esac
done
tree=$work/tree
build=$tree/build/dev
log=$work/logs
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-/work} CCACHE_DIR=${CCACHE_DIR:-/work/.ccache}

# The tests that can see a fault in each folder: the folder's own unit tests
# (model, platform, store and update share tst_core),
# the units built on it, and the end-to-end journeys that show its result.
tests_for() {
    case $1 in
        model) echo "tst_core|tst_gui|tst_entry|tst_journeys" ;;
        platform) echo "tst_core|tst_services|tst_keychainoffline|tst_entry|tst_journeys" ;;
        services/claude) echo "tst_services|tst_keychainoffline|tst_entry|tst_journeys" ;;
        services/codex) echo "tst_services|tst_keychainoffline|tst_entry|tst_journeys" ;;
        update) echo "tst_core|tst_gui|tst_entry|tst_journeys" ;;
        store) echo "tst_core|tst_gui|tst_entry|tst_journeys" ;;
        ui) echo "tst_gui|desktop_host|tst_entry|tst_journeys" ;;
        app) echo "tst_entry|tst_gui|desktop_host|tst_journeys" ;;
        watch) echo "tst_journeys" ;;
        *) echo "" ;;
    esac
}

folder_of() { # src/services/claude/X.cpp -> services/claude, src/ui/panel/Y.qml -> ui
    local rel=${1#src/}
    case $rel in services/*) rel=${rel#services/}; echo "services/${rel%%/*}" ;; *) echo "${rel%%/*}" ;; esac
}

# Python does the exact-text work. "edit count TREE" prints every fault's id
# and how often its text occurs; "edit apply TREE ID" makes that one fault.
edit() {
    python3 - "$list" "$@" <<'EOF'
import re, sys
listing, mode, tree = sys.argv[1:4]
dec = lambda s: re.sub(r"\\(.)", lambda m: {"n": "\n", "t": "\t"}.get(m.group(1), m.group(1)), s)
for line in open(listing, encoding="utf-8"):
    f = line.rstrip("\n").split("\t")
    if len(f) < 4 or f[0].startswith("#") or (mode == "apply" and f[0] != sys.argv[4]):
        continue
    path, find, repl = tree + "/" + f[1], dec(f[2]), dec(f[3])
    try:
        text = open(path, encoding="utf-8").read()
    except OSError:
        text = ""
    if mode == "count":
        print(f[0], text.count(find))
    elif text.count(find) == 1:
        open(path, "w", encoding="utf-8").write(text.replace(find, repl))
        sys.exit(0)
sys.exit(mode == "apply")
EOF
}

# Copies the tracked files into the scratch tree. Only files whose content
# differs are written, with a fresh time stamp, so the next build recompiles
# exactly what changed (also after an interrupted run left a fault behind).
sync_tree() {
    (cd "$repo" && git ls-files -z --cached --others --exclude-standard) | python3 -c '
import os, shutil, sys
repo, tree = sys.argv[1:3]
files = {f for f in sys.stdin.read().split("\0") if f}
# Files the repository no longer has go too, or a removed test would still be built.
for top, dirs, names in os.walk(tree):
    if top == tree:
        dirs[:] = [d for d in dirs if d != "build"]
    for name in names:
        path = os.path.join(top, name)
        if os.path.relpath(path, tree) not in files:
            os.remove(path)
for f in files:
    src, dst = os.path.join(repo, f), os.path.join(tree, f)
    if not f or not os.path.isfile(src):
        continue
    try:
        same = open(src, "rb").read() == open(dst, "rb").read()
    except OSError:
        same = False
    if not same:
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        shutil.copyfile(src, dst)
        shutil.copymode(src, dst)
' "$repo" "$tree"
}

# Reads the list into parallel arrays; '#' lines and blank lines are comments.
ids=() files=() finds=() repls=() harms=()
while IFS= read -r line; do
    # A non-blank separator keeps empty fields (an empty replacement) in place.
    IFS=$'\x1f' read -r id file find repl harm <<<"${line//$'\t'/$'\x1f'}"
    [[ -z $id || $id == \#* ]] && continue
    if [[ -n $only ]]; then
        keep=0
        IFS=, read -ra wanted <<<"$only"
        for w in "${wanted[@]}"; do
            [[ $w == "$id" || $w == "$(folder_of "$file")" || $file == src/$w* ]] && keep=1
        done
        ((keep)) || continue
    fi
    ids+=("$id") files+=("$file") finds+=("$find") repls+=("$repl") harms+=("$harm")
done <"$list"
((${#ids[@]})) || { echo "no fault selected" >&2; exit 2; }

started=$(date +%s)
mkdir -p "$log"
# The run works from its own copy of the list, so editing it meanwhile is safe.
cp "$list" "$log/mutants.tsv" && list=$log/mutants.tsv
sync_tree

stale=()
declare -A occurrences
while read -r id n; do occurrences[$id]=$n; done < <(edit count "$tree")
for i in "${!ids[@]}"; do
    [[ ${occurrences[${ids[i]}]:-0} == 1 ]] || stale+=("$i")
done
if ((check)); then
    for i in "${stale[@]}"; do echo "stale ${ids[i]} ${files[i]}"; done
    echo "${#stale[@]} of ${#ids[@]} faults are stale"
    exit 0
fi

# The ctest filter and build targets of one fault (or of the baseline: all).
filter_for() {
    if [[ -n $include ]]; then echo "$include"
    elif ((whole)); then echo "."
    else tests_for "$1"; fi
}
targets_for() { # the test executables of a filter, plus the binary and GUI module for e2e
    local re=$1 t out=()
    for t in $(ctest --test-dir "$build" -N | awk '/Test +#/ {print $3}'); do
        [[ $t =~ ^($re)$ || ( $re == "." ) ]] || continue
        # Script-driven tests (desktop_host, the package tests) are no build target;
        # they run the program and its module, which are then rebuilt instead.
        if [[ " $buildable " == *" $t "* ]]; then out+=("$t"); else out+=(limitra limitra_gui); fi
    done
    [[ " ${out[*]} " == *" tst_journeys "* ]] && out+=(limitra limitra_gui)
    printf '%s\n' "${out[@]}" | sort -u | paste -sd' '
}
run_tests() { # run_tests FILTER LOGFILE -> 0 pass, 1 fail, 124 time limit
    local args=(--test-dir "$build" -j2 --output-on-failure -R "$1")
    [[ -n $exclude ]] && args+=(-E "$exclude")
    timeout -k 10 "$limit" ctest "${args[@]}" >"$2" 2>&1
    local rc=$?
    ((rc == 124 || rc == 137)) && return 124
    grep -q "No tests were found" "$2" && return 2
    ((rc == 0)) || return 1
    return 0
}

echo "== scratch tree: $tree"
# Each fault relinks several test programs: a faster linker, where one is
# installed, saves more time than anything else here.
speed=()
command -v ccache >/dev/null && speed+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
for linker in lld gold; do
    if command -v "ld.$linker" >/dev/null; then
        for kind in EXE SHARED MODULE; do speed+=("-DCMAKE_${kind}_LINKER_FLAGS=-fuse-ld=$linker"); done
        break
    fi
done
(cd "$tree" && cmake --preset dev "${speed[@]}" >"$log/configure.log" 2>&1) || { echo "configure failed: $log/configure.log"; exit 1; }
echo "== baseline build and tests"
all=$(for i in "${!ids[@]}"; do filter_for "$(folder_of "${files[i]}")"; done | tr '|' '\n' | sort -u | paste -sd'|')
cmake --build "$build" -j2 >"$log/baseline-build.log" 2>&1 || { echo "baseline build failed: $log/baseline-build.log"; exit 1; }
buildable=$(ninja -C "$build" -t targets all | sed -n 's/^\([A-Za-z0-9_]*\): phony$/\1/p' | paste -sd' ')
run_tests "$all" "$log/baseline-tests.log"
if (($? != 0)); then
    echo "the unchanged code fails its tests; fix that (or exclude them with -E) first:"
    grep -A20 "tests FAILED" "$log/baseline-tests.log" || tail -20 "$log/baseline-tests.log"
    exit 1
fi

caught=() compiled=() timedout=() escaped=()
# The file goes back from the copy taken before the fault, with a new time
# stamp, so the next build recompiles it.
restore() { [[ -n ${current:-} ]] && cp "$work/original" "$tree/${files[current]}"; current=""; }
trap 'restore; echo; echo "interrupted"; exit 130' INT TERM
for i in "${!ids[@]}"; do
    [[ " ${stale[*]} " == *" $i "* ]] && { printf '%-5s stale\n' "${ids[i]}"; continue; }
    t0=$(date +%s)
    filter=$(filter_for "$(folder_of "${files[i]}")")
    cp "$tree/${files[i]}" "$work/original" && current=$i
    if ! edit apply "$tree" "${ids[i]}"; then
        current="" stale+=("$i")
        printf '%-5s stale\n' "${ids[i]}"
        continue
    fi
    if ! cmake --build "$build" -j2 --target $(targets_for "$filter") >"$log/${ids[i]}.log" 2>&1; then
        # Only a compiler's or linker's complaint about the fault counts as caught;
        # a broken build set-up stops the run rather than inflating the figure.
        if ! grep -qE "error:|undefined reference" "$log/${ids[i]}.log" || grep -q "^ninja: error" "$log/${ids[i]}.log"; then
            restore; echo "${ids[i]}: the build failed for another reason: $log/${ids[i]}.log"; exit 1
        fi
        verdict=compiler; compiled+=("$i")
    else
        run_tests "$filter" "$log/${ids[i]}.tests.log"
        case $? in
            0) verdict=ESCAPED; escaped+=("$i") ;;
            124) verdict=timeout; timedout+=("$i") ;;
            2) verdict="no tests ran"; escaped+=("$i") ;;
            *) verdict=caught; caught+=("$i") ;;
        esac
    fi
    restore
    printf '%-5s %-8s %4ss  %s\n' "${ids[i]}" "$verdict" $(($(date +%s) - t0)) "${files[i]}"
done
trap - INT TERM
# Leaves the scratch build matching the unchanged code for the next run.
cmake --build "$build" -j2 >/dev/null 2>&1

total=$((${#ids[@]} - ${#stale[@]}))
found=$((${#caught[@]} + ${#compiled[@]} + ${#timedout[@]}))
elapsed=$(($(date +%s) - started))
echo
echo "caught $found/$total (tests ${#caught[@]}, compiler ${#compiled[@]}, time limit ${#timedout[@]});" \
    "escaped ${#escaped[@]}; stale ${#stale[@]}; $((elapsed / 60)) min $((elapsed % 60)) s"
if ((${#escaped[@]})); then
    echo "escaped:"
    for i in "${escaped[@]}"; do printf '  %-5s %s: %s\n' "${ids[i]}" "${files[i]}" "${harms[i]}"; done
fi
if ((${#stale[@]})); then
    echo "stale (text not found exactly once):"
    for i in "${stale[@]}"; do printf '  %-5s %s\n' "${ids[i]}" "${files[i]}"; done
fi
echo "logs: $log"
exit
}
