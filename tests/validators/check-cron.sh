#!/bin/sh
# usage: check-cron.sh <cron file>
# crontab's dry run checks the time fields and the final newline without
# installing anything.  It reads the user-crontab format: the user column of
# a system cron line is taken as the start of the command, which it accepts.
set -u
exec crontab -n "$1" </dev/null
