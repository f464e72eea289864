#!/bin/sh
# The manual page documents exactly what `ksdb --help` lists: the same
# commands, options, KSDB_* environment variables and exit statuses.
#
#   check-manpage.sh KSDB MANPAGE [PENDING]
#
# KSDB is the command to run, MANPAGE its manual page (groff source, plain
# or gzip-compressed). PENDING names items the manual page already
# documents but `ksdb --help` does not list yet, one "kind item" a line
# (kinds: command, option, env, status); an item listed there that --help
# does show is an error too, so the list is emptied as the command catches
# up. When groff is installed the page must also format without warnings.
set -eu
ksdb=$1
manpage=$2
pending=${3:-/dev/null}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$ksdb" --help >"$work/help.txt"
zcat -f "$manpage" >"$work/page.man"

# Items of --help: the commands are the first word of each line of the
# "commands:" section ("queue a|b" gives "queue a" and "queue b"), the
# exit statuses the numbers starting the lines of the "exit status"
# section; options and variables are taken from the whole text.
awk '
    /^[^ ]/ { section = tolower($0) }
    section ~ /^commands/ && /^  [a-z]/ {
        if ($1 == "queue") {
            n = split($2, ops, "|")
            for (i = 1; i <= n; i++) print "command queue " ops[i]
        } else {
            print "command " $1
        }
    }
    section ~ /^exit status/ && /^  [0-9]+ / { print "status " $1 }
    {
        line = $0
        while (match(line, /--[a-z][a-z-]*/)) {
            print "option " substr(line, RSTART, RLENGTH)
            line = substr(line, RSTART + RLENGTH)
        }
        line = $0
        while (match(line, /\$KSDB_[A-Z0-9_]+/)) {
            print "env " substr(line, RSTART + 1, RLENGTH - 1)
            line = substr(line, RSTART + RLENGTH)
        }
    }
' "$work/help.txt" | sort -u >"$work/help.items"

# Items of the manual page: the tag (the line after .TP) of each entry of
# the COMMANDS, OPTIONS, ENVIRONMENT and EXIT STATUS sections, with the
# font escapes, dashes and macro names taken out.
awk '
    /^\.\\"/ { next }
    {
        gsub(/\\-/, "-")
        gsub(/\\f[BIRP]/, "")
        gsub(/\\\(dq/, "\"")
    }
    /^\.SH/ { sub(/^\.SH +/, ""); gsub(/"/, ""); section = $0; tag = 0; next }
    /^\.TP/ { tag = 1; next }
    tag {
        tag = 0
        if ($0 ~ /^\.[A-Z]+ /) { sub(/^\.[A-Z]+ +/, ""); gsub(/"/, "") }
        if (section == "COMMANDS") {
            print "command " ($1 == "queue" ? "queue " $2 : $1)
        } else if (section == "ENVIRONMENT") {
            if ($1 ~ /^KSDB_/) print "env " $1
            next
        } else if (section == "EXIT STATUS") {
            print "status " $1
            next
        } else if (section != "OPTIONS") {
            next
        }
        line = $0
        while (match(line, /--[a-z][a-z-]*/)) {
            print "option " substr(line, RSTART, RLENGTH)
            line = substr(line, RSTART + RLENGTH)
        }
    }
' "$work/page.man" | sort -u >"$work/page.items"

grep -v '^[[:space:]]*\(#\|$\)' "$pending" | sort -u >"$work/pending.items" || true

fail=0
# A parser that found nothing would make any two texts agree.
for kind in command option env status; do
    for side in help page; do
        grep -q "^$kind " "$work/$side.items" || {
            echo "check-manpage: no $kind found in the $side text" >&2
            fail=1
        }
    done
done

missing=$(comm -23 "$work/help.items" "$work/page.items")
if [ -n "$missing" ]; then
    echo "check-manpage: listed by 'ksdb --help' but not in $manpage:" >&2
    printf '%s\n' "$missing" | sed 's/^/  /' >&2
    fail=1
fi
extra=$(comm -13 "$work/help.items" "$work/page.items" | comm -23 - "$work/pending.items")
if [ -n "$extra" ]; then
    echo "check-manpage: in $manpage but not listed by 'ksdb --help':" >&2
    printf '%s\n' "$extra" | sed 's/^/  /' >&2
    fail=1
fi
stale=$(comm -12 "$work/help.items" "$work/pending.items")
if [ -n "$stale" ]; then
    echo "check-manpage: 'ksdb --help' lists these now; remove them from $pending:" >&2
    printf '%s\n' "$stale" | sed 's/^/  /' >&2
    fail=1
fi
undocumented=$(comm -23 "$work/pending.items" "$work/page.items")
if [ -n "$undocumented" ]; then
    echo "check-manpage: pending items that $manpage does not document:" >&2
    printf '%s\n' "$undocumented" | sed 's/^/  /' >&2
    fail=1
fi

# The page formats without warnings (what man and lintian would report).
if command -v groff >/dev/null 2>&1; then
    warnings=$(LC_ALL=C.UTF-8 groff -man -ww -z -Tutf8 "$work/page.man" 2>&1 || true)
    if [ -n "$warnings" ]; then
        echo "check-manpage: groff reports:" >&2
        printf '%s\n' "$warnings" >&2
        fail=1
    fi
else
    echo "check-manpage: groff not installed, formatting not checked"
fi

[ "$fail" -eq 0 ] || exit 1
echo "check-manpage: $(wc -l <"$work/help.items") items agree ($(wc -l <"$work/pending.items") pending)"
