#!/bin/sh
# Runs a command in a private network and mount namespace: only loopback, the production hosts
# resolving to 127.0.0.1, and a trust store holding nothing but a throw-away CA. LIMITRA_PEER_CERT/KEY
# name a certificate from that CA for every host; LIMITRA_ROGUE_CERT/KEY a self-signed one for the
# same hosts, which no client may trust. Needs root; skips with 77 otherwise.
#   sandbox.sh COMMAND [ARG...]
set -eu
hosts="api.anthropic.com platform.claude.com chatgpt.com auth.openai.com limitra.app"
if [ -z "${LIMITRA_SANDBOX:-}" ]; then
    [ "$(id -u)" -eq 0 ] && unshare --net --mount true 2>/dev/null || { echo "SKIP: needs root and unshare" >&2; exit 77; }
    LIMITRA_SANDBOX=1 exec unshare --net --mount --propagation private "$0" "$@"
fi
ip link set lo up
# The keys live on a tmpfs of this namespace only; the build may itself be under /tmp.
d=$(mktemp -d "${TMPDIR:-/tmp}/limitra-sandbox.XXXXXX")
mount -t tmpfs -o mode=700 tmpfs "$d"
mkdir "$d/trust" && cd "$d"
printf '127.0.0.1 localhost %s\n::1 localhost\n' "$hosts" >hosts
san=$(printf 'DNS:%s,' $hosts)
# Our own configuration, so that the system's adds no extensions of its own.
printf '[req]\ndistinguished_name=dn\n[dn]\n[ca]\nbasicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign
[leaf]\nbasicConstraints=critical,CA:FALSE\nextendedKeyUsage=serverAuth\nsubjectAltName=%s\n' "${san%,}" >cnf
req() { openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -config cnf "$@" 2>/dev/null; }
req -extensions ca -subj /CN=limitra-test-ca -keyout ca.key -out ca.pem
req -extensions leaf -subj /CN=peer -CA ca.pem -CAkey ca.key -keyout peer.key -out peer.pem
req -extensions leaf -subj /CN=rogue -keyout rogue.key -out rogue.pem
cp ca.pem trust/ca-certificates.crt
ln -s ca-certificates.crt "trust/$(openssl x509 -hash -noout -in ca.pem).0"
mount --bind hosts /etc/hosts
mount --bind trust /etc/ssl/certs
export LIMITRA_PEER_CERT=$d/peer.pem LIMITRA_PEER_KEY=$d/peer.key LIMITRA_ROGUE_CERT=$d/rogue.pem LIMITRA_ROGUE_KEY=$d/rogue.key
cd "$OLDPWD"
status=0
"$@" || status=$?
umount "$d" && rmdir "$d"
exit $status
