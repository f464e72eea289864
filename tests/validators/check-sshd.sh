#!/bin/sh
# usage: check-sshd.sh <sshd_config>
# Runs sshd's test mode on a copy whose HostKey lines are commented out (the
# appliance's keys need not exist here or be readable); a throwaway key is
# given on the command line instead.  Line numbers stay those of the file.
# sshd wants its privilege-separation directory: when the host lacks it, the
# check runs in a private mount namespace with a scratch /run, so nothing on
# the host changes.  Deprecated and unsupported options only warn (exit 0).
set -u
d=$(mktemp -d)
trap 'rm -rf "$d"' EXIT
ssh-keygen -q -t ed25519 -N '' -C check -f "$d/host_key" </dev/null >/dev/null 2>&1 ||
    { echo "check-sshd: ssh-keygen failed" >&2; exit 3; }
sed -E 's/^([[:space:]]*[Hh][Oo][Ss][Tt][Kk][Ee][Yy][[:space:]])/#\1/' "$1" >"$d/sshd_config"
sshd=$(command -v sshd)
if [ -d /run/sshd ]; then
    "$sshd" -t -f "$d/sshd_config" -o "HostKey=$d/host_key" >"$d/out" 2>&1
else
    unshare -m sh -c 'mount --make-rprivate / 2>/dev/null
        mount -t tmpfs tmpfs /run || exit 99
        mkdir /run/sshd && exec "$1" -t -f "$2" -o "HostKey=$3"' \
        sh "$sshd" "$d/sshd_config" "$d/host_key" >"$d/out" 2>&1
fi
rc=$?
# Name the checked file, not the copy, in sshd's messages.
awk -v copy="$d/sshd_config" -v file="$1" '{ while ((i = index($0, copy)) > 0)
    $0 = substr($0, 1, i - 1) file substr($0, i + length(copy)); print }' "$d/out" >&2
exit $rc
