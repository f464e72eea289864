#!/bin/sh
# usage: check-proftpd.sh <proftpd.conf>
# Runs the FTP daemon's own syntax check on a generated configuration
# without starting anything: a wrapper file turns off the features that
# would create run-time files, loads the modules the generated file relies
# on beside the compiled-in ones (ident lookups, bans, dynamic masquerading,
# TLS), then includes the file.
set -u
conf=$(readlink -f "$1")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cat >"$dir/wrapper.conf" <<WRAP
<IfModule mod_delay.c>
  DelayEngine off
</IfModule>
<IfModule mod_ctrls.c>
  ControlsEngine off
</IfModule>
<IfModule !mod_ident.c>
  LoadModule mod_ident.c
</IfModule>
<IfModule !mod_ban.c>
  LoadModule mod_ban.c
</IfModule>
<IfModule !mod_dynmasq.c>
  LoadModule mod_dynmasq.c
</IfModule>
<IfModule !mod_tls.c>
  LoadModule mod_tls.c
</IfModule>
ScoreboardFile $dir/scoreboard
PidFile $dir/proftpd.pid
Include $conf
WRAP
out=$(proftpd -t -c "$dir/wrapper.conf" 2>&1); rc=$?
bad=$(printf '%s\n' "$out" | grep -E "fatal|Fatal|error|unknown configuration directive" | grep -v "^-")
[ -n "$bad" ] && printf '%s\n' "$out" >&2
[ $rc -ne 0 ] && exit $rc
[ -n "$bad" ] && exit 2
exit 0
