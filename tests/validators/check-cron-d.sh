#!/bin/sh
# usage: check-cron-d.sh <file in the /etc/cron.d form>
# Runs cron's own parser on a system cron file.  The parser reads the
# user-crontab form, whose lines have no user column, so it checks a copy
# with the sixth field of every job line taken out (comments, blank lines
# and variable settings are copied as they are).  cron refuses a file
# whose last line has no newline; the copy would add one, so that is
# checked on the file itself.
set -u
file=$1
if [ -s "$file" ] && [ "$(tail -c 1 "$file" | od -An -tx1 | tr -d ' ')" != "0a" ]; then
    echo "$file: no newline after the last line" >&2
    exit 2
fi
copy=$(mktemp)
trap 'rm -f "$copy"' EXIT
awk '
/^[ \t]*(#|$)/ { print; next }
/^[ \t]*[A-Za-z_][A-Za-z0-9_]*[ \t]*=/ { print; next }
/^[ \t]*@/ { $2 = ""; print; next }
{ $6 = ""; print }
' "$file" >"$copy"
crontab -n "$copy"
