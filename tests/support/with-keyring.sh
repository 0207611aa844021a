#!/usr/bin/env bash
# Runs a command on a private session bus with its own unlocked keyring, so a
# test never sees the developer's bus, secrets, home or settings:
#   with-keyring.sh <executable> [args...]
# The keyring daemon gets a fresh home whose "login" collection is created,
# unlocked and made the default one. The command's exit status is returned.
set -u

if [ -z "${LIMITRA_KEYRING_INNER:-}" ]; then
    root=$(mktemp -d "${TMPDIR:-/tmp}/limitra-keyring.XXXXXX") || exit 2
    trap 'rm -rf "$root"' EXIT
    mkdir -p "$root/home" "$root/config" "$root/data" "$root/cache" "$root/state" "$root/run"
    chmod 700 "$root" "$root/run"
    # The bus is started with the fresh environment, so services it activates
    # (should any be needed) see the private home too.
    LIMITRA_KEYRING_INNER="$root" \
        HOME="$root/home" \
        XDG_CONFIG_HOME="$root/config" \
        XDG_DATA_HOME="$root/data" \
        XDG_CACHE_HOME="$root/cache" \
        XDG_STATE_HOME="$root/state" \
        XDG_RUNTIME_DIR="$root/run" \
        DISPLAY= WAYLAND_DISPLAY= \
        dbus-run-session -- "$0" "$@"
    exit $?
fi

# Inside the private bus.
unset DISPLAY WAYLAND_DISPLAY
log="$LIMITRA_KEYRING_INNER/keyring.log"
# The password on stdin creates the "login" collection and unlocks it; the
# daemon makes it the default collection.
printf '%s' 'limitra-test-keyring' \
    | gnome-keyring-daemon --foreground --unlock --components=secrets >"$log" 2>&1 &
daemon=$!

stop_daemon() {
    if kill -0 "$daemon" 2>/dev/null; then
        # A test may have stopped it to play a keyring that never answers.
        kill -CONT "$daemon" 2>/dev/null
        kill "$daemon" 2>/dev/null
        wait "$daemon" 2>/dev/null
    fi
}
trap stop_daemon EXIT

if ! gdbus wait --session --timeout 10 org.freedesktop.secrets >/dev/null 2>&1; then
    echo "with-keyring: the keyring daemon did not appear on the bus" >&2
    cat "$log" >&2
    exit 2
fi

default=$(gdbus call --session --dest org.freedesktop.secrets --object-path /org/freedesktop/secrets \
    --method org.freedesktop.Secret.Service.ReadAlias default 2>&1)
case "$default" in
    *"/collection/login"*) ;;
    *)
        echo "with-keyring: no unlocked default collection ($default)" >&2
        cat "$log" >&2
        exit 2
        ;;
esac

# Tests check this before touching any secret, so that run by hand outside
# this launcher they refuse instead of writing to a real keyring.
export LIMITRA_PRIVATE_KEYRING=1
"$@"
status=$?
stop_daemon
trap - EXIT
exit "$status"
