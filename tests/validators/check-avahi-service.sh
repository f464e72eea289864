#!/bin/sh
# usage: check-avahi-service.sh <file>
# An avahi service file, validated against the DTD the avahi-daemon package
# ships, without reaching the network.
set -u
exec sh "$(dirname "$0")/check-xml.sh" "$1" /usr/share/avahi/avahi-service.dtd
