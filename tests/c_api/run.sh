#!/bin/sh
# Installs the library into a staging prefix and builds a C99 program
# against it through pkg-config, as an integrator would.
set -eu
build=$1
shift
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cmake --install "$build" --prefix "$stage" >/dev/null
pc=$(dirname "$(find "$stage" -name ksdb.pc | head -n 1)")
libdir=$(pkg-config --variable=libdir --define-variable=pcfiledir="$pc" "$pc/ksdb.pc")
test -f "$libdir/libksdb.so.0.1.0"
test "$(readlink "$libdir/libksdb.so.0")" = libksdb.so.0.1.0
readelf -d "$libdir/libksdb.so.0.1.0" | grep -q 'SONAME.*\[libksdb.so.0\]'
test -f "$stage/include/ksdb.h"
flags=$(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs ksdb)
# Every program given (the smoke test, the examples) builds as C99 and runs.
for src in "$@"; do
    name=$(basename "$src" .c)
    cc -std=c99 -Wall -Werror -o "$stage/$name" "$src" $flags -Wl,-rpath,"$libdir"
    (cd "$stage" && "./$name")
done
