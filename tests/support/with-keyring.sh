#!/usr/bin/env bash
# Runs a command on a private session bus with its own unlocked keyring, so a
# test never sees the developer's bus, secrets, home or settings:
#   with-keyring.sh <executable> [args...]
# The command's exit status is returned.
set -u

if [ -z "${LIMITRA_KEYRING_INNER:-}" ]; then
    root=$(mktemp -d "${TMPDIR:-/tmp}/limitra-keyring.XXXXXX") || exit 2
    trap 'rm -rf "$root"' EXIT
    mkdir -m 700 "$root"/{home,config,data,cache,state,run}
    # The bus is started with the fresh environment, so services it activates
    # (should any be needed) see the private home too.
    env -u DISPLAY -u WAYLAND_DISPLAY LIMITRA_KEYRING_INNER="$root" HOME="$root/home" \
        XDG_CONFIG_HOME="$root/config" XDG_DATA_HOME="$root/data" XDG_CACHE_HOME="$root/cache" \
        XDG_STATE_HOME="$root/state" XDG_RUNTIME_DIR="$root/run" dbus-run-session -- "$0" "$@"
    exit $?
fi

# Inside the private bus.
log="$LIMITRA_KEYRING_INNER/keyring.log"
die() { echo "with-keyring: $*" >&2; cat "$log" >&2; exit 2; }
# The password on stdin creates the "login" collection and unlocks it; the
# daemon makes it the default collection.
printf '%s' 'limitra-test-keyring' | gnome-keyring-daemon --foreground --unlock --components=secrets >"$log" 2>&1 &
daemon=$!
# CONT first: a test may have stopped the daemon to play a keyring that never answers.
trap 'kill -CONT $daemon 2>/dev/null && kill $daemon 2>/dev/null && wait $daemon 2>/dev/null' EXIT

gdbus wait --session --timeout 10 org.freedesktop.secrets >/dev/null 2>&1 ||
    die "the keyring daemon did not appear on the bus"
default=$(gdbus call --session --dest org.freedesktop.secrets --object-path /org/freedesktop/secrets \
    --method org.freedesktop.Secret.Service.ReadAlias default 2>&1)
[[ $default == *"/collection/login"* ]] || die "no unlocked default collection ($default)"

# Tests check this before touching any secret, so that run by hand outside
# this launcher they refuse instead of writing to a real keyring.
export LIMITRA_PRIVATE_KEYRING=1
"$@"
exit $?
