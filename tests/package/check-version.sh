#!/bin/sh
# The Debian packaging follows the project: the newest debian/changelog
# entry carries the CMake project version, and the shared library's
# package, its install list and its symbols file carry the SONAME's number.
#
#   check-version.sh SRCDIR [VERSION [SOVERSION]]
#
# VERSION and SOVERSION default to what SRCDIR/CMakeLists.txt declares
# (project(ksdb VERSION ...); the SONAME number is the major version).
set -eu
src=$1
version=${2:-$(sed -n 's/^project(ksdb VERSION \([0-9][0-9.]*\).*/\1/p' "$src/CMakeLists.txt")}
[ -n "$version" ] || { echo "check-version: no project version in $src/CMakeLists.txt" >&2; exit 1; }
soversion=${3:-${version%%.*}}
lib=libksdb$soversion
fail=0
complain() { echo "check-version: $*" >&2; fail=1; }

# "libksdb (VERSION) DISTRIBUTION; urgency=..." (a native package: no
# Debian revision).
top=$(sed -n '1s/^libksdb (\([^)]*\)).*/\1/p' "$src/debian/changelog")
[ "$top" = "$version" ] ||
    complain "debian/changelog is at '${top:-?}', the project at $version: add a changelog entry for $version (dch -v $version)"

grep -qx "Package: $lib" "$src/debian/control" ||
    complain "debian/control has no package $lib for libksdb.so.$soversion"
for f in "$lib.install" "$lib.symbols"; do
    [ -f "$src/debian/$f" ] || complain "debian/$f is missing"
done
if [ -f "$src/debian/$lib.install" ]; then
    grep -q "libksdb\.so\.$soversion\*\$" "$src/debian/$lib.install" ||
        complain "debian/$lib.install does not install libksdb.so.$soversion*"
fi
if [ -f "$src/debian/$lib.symbols" ]; then
    head -n 1 "$src/debian/$lib.symbols" | grep -q "^libksdb\.so\.$soversion $lib " ||
        complain "debian/$lib.symbols does not start with 'libksdb.so.$soversion $lib'"
fi

[ "$fail" -eq 0 ] || exit 1
echo "check-version: debian/ follows version $version, SONAME libksdb.so.$soversion"
