#!/bin/sh
# Checks the packages scripts/package built, as an image builder uses them:
#   1. each package holds exactly the files of tests/package/expect/PKG.files,
#      the library's package is named after its SONAME and carries its
#      symbols and shlibs files, the dependencies were computed;
#   2. lintian reports no error and no warning on the packages and their
#      source (warnings that do not apply are overridden in debian/);
#   3. the packages install into a throwaway root with dpkg --root; the
#      installed example builds against the installed headers through
#      pkg-config and runs; the installed ksdb runs its demo; the installed
#      manual page matches the installed command's --help; a purge leaves
#      no file behind.
#
#   tests/package/check-debs.sh [OUTDIR]      (default build-deb)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/../.." && pwd)
out=$(cd "${1:-build-deb}" && pwd)
version=$(dpkg-parsechangelog -l "$src/debian/changelog" -S Version)
arch=$(dpkg --print-architecture)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)
packages="libksdb0 libksdb-dev ksdb"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
complain() { echo "check-debs: $*" >&2; fail=1; }
section() { printf '\n-- %s\n' "$*"; }
deb() { echo "$out/${1}_${version}_${arch}.deb"; }

for p in $packages; do
    [ -f "$(deb "$p")" ] || { echo "check-debs: $(deb "$p") is missing (run scripts/package)" >&2; exit 1; }
done

section "contents"
for p in $packages; do
    # Files and links (with their targets), not folders.
    dpkg-deb -c "$(deb "$p")" | awk '$1 !~ /^d/ {
        $1 = $2 = $3 = $4 = $5 = ""; sub(/^ *\.\//, ""); print }' | sort >"$work/$p.got"
    # "@CHECKERS@" stands for every checker wrapper of tests/validators.
    checkers=$(for c in "$here"/../validators/*.sh; do
        printf 'usr/libexec/ksdb/checkers/%s\\n' "$(basename "$c")"; done)
    sed "s/@MULTIARCH@/$multiarch/g; s/@VERSION@/$version/g; s|^@CHECKERS@\$|$checkers|" \
        "$here/expect/$p.files" | sed '/^$/d' | sort >"$work/$p.want"
    if cmp -s "$work/$p.want" "$work/$p.got"; then
        echo "$p: $(wc -l <"$work/$p.got") files as expected"
    else
        complain "$p does not hold the expected files (- expected, + found):"
        diff -u "$work/$p.want" "$work/$p.got" | tail -n +3 >&2 || true
    fi
done

# The shared library: its SONAME names the package, the package carries
# the symbols and shlibs files that dependent packages are computed from.
dpkg-deb -x "$(deb libksdb0)" "$work/lib"
dpkg-deb -e "$(deb libksdb0)" "$work/lib-control"
real="$work/lib/usr/lib/$multiarch/libksdb.so.$version"
soname=$(readelf -d "$real" 2>/dev/null | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libksdb.so.0 ] || complain "libksdb.so.$version has SONAME '$soname', expected libksdb.so.0"
[ "libksdb$(echo "$soname" | sed 's/^libksdb\.so\.//')" = libksdb0 ] ||
    complain "package libksdb0 does not follow the SONAME $soname"
grep -qx "libksdb 0 libksdb0 (>= [0-9.]*)" "$work/lib-control/shlibs" ||
    complain "libksdb0 has no shlibs line for libksdb.so.0"
head -n 1 "$work/lib-control/symbols" | grep -qx 'libksdb.so.0 libksdb0 #MINVER#' ||
    complain "libksdb0 has no symbols file for libksdb.so.0"
[ "$(dpkg-deb -f "$(deb libksdb0)" Multi-Arch)" = same ] || complain "libksdb0 is not Multi-Arch: same"
# Symbols the library exports that debian/libksdb0.symbols does not list
# yet only warn (dpkg-gensymbols fails the build when listed ones vanish).
if ! cmp -s "$src/debian/libksdb0.symbols" "$work/lib-control/symbols"; then
    echo "check-debs: warning: debian/libksdb0.symbols differs from the library's symbols:"
    diff -u "$src/debian/libksdb0.symbols" "$work/lib-control/symbols" | tail -n +3 | grep '^[-+]' || true
    echo "check-debs: (refresh: cp $out/libksdb-$version/debian/libksdb0/DEBIAN/symbols debian/libksdb0.symbols)"
fi

depends() { dpkg-deb -f "$(deb "$1")" Depends; }
depends libksdb0 | grep -q 'libsqlite3-0 (>=' || complain "libksdb0's dependencies were not computed: $(depends libksdb0)"
depends libksdb-dev | grep -q "libksdb0 (= $version)" || complain "libksdb-dev does not depend on libksdb0 (= $version)"
depends ksdb | grep -q 'libksdb0 (>= [0-9.]*)' || complain "ksdb does not depend on libksdb0: $(depends ksdb)"
dpkg-deb -x "$(deb ksdb)" "$work/tool"
if readelf -d "$work/tool/usr/bin/ksdb" | grep -Eq 'R(UN)?PATH'; then
    complain "usr/bin/ksdb carries a library search path"
fi
[ "$fail" -eq 0 ] || exit 1

section "lintian"
if command -v lintian >/dev/null 2>&1; then
    # Errors and warnings fail; informational tags are shown.
    rc=0
    lintian --fail-on error,warning --display-info "$out/libksdb_${version}_${arch}.changes" \
        >"$work/lintian.log" 2>&1 || rc=$?
    grep -v '^running with root privileges' "$work/lintian.log" || true
    if grep -q '^[EW]: ' "$work/lintian.log"; then
        complain "lintian reports errors or warnings"
    elif [ "$rc" -ne 0 ]; then
        complain "lintian failed with status $rc"
    else
        echo "lintian: no errors, no warnings"
    fi
else
    echo "check-debs: lintian not installed, skipped (scripts/setup-deps installs it)"
fi

section "install into a throwaway root"
root="$work/root"
admin="$root/var/lib/dpkg"
mkdir -p "$admin/info" "$admin/updates" "$admin/triggers"
touch "$admin/available"
# The throwaway root's package database holds the packages ours depend on
# as the host has them, so dpkg checks the dependencies for real; their
# files stay on the host, where the programs below find them.
for p in $packages; do depends "$p"; echo; done | tr ',|' '\n' |
    sed 's/(.*//; s/:any//; s/[[:space:]]//g' | grep -v '^$' | grep -v '^libksdb0$' | sort -u |
    while read -r dep; do
        dpkg-query -s "$dep" 2>/dev/null || continue
        echo
        touch "$admin/info/$dep.list" "$admin/info/$dep:$arch.list"
    done >"$admin/status"

dpkg_root() { dpkg --root="$root" --log=/dev/null "$@"; }
if [ "$(id -u)" -ne 0 ]; then
    if command -v fakeroot >/dev/null 2>&1; then
        dpkg_root() { fakeroot dpkg --root="$root" --log=/dev/null --force-not-root "$@"; }
    else
        echo "check-debs: not root and no fakeroot: install test skipped"
        [ "$fail" -eq 0 ] || exit 1
        exit 0
    fi
fi
debs=""
for p in $packages; do debs="$debs $(deb "$p")"; done
# shellcheck disable=SC2086
if ! dpkg_root -i $debs >"$work/dpkg.log" 2>&1; then
    cat "$work/dpkg.log" >&2
    complain "dpkg could not install the packages"
    exit 1
fi
for p in $packages; do
    status=$(dpkg-query --admindir="$admin" -W -f='${Status}' "$p")
    [ "$status" = "install ok installed" ] || complain "$p is '$status' after the install"
done
libdir="$root/usr/lib/$multiarch"

# The example, from the installed documentation, against the installed
# headers and library through the installed pkg-config file.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
[ "$(readlink -f "$(pkg-config --variable=libdir ksdb)")" = "$(readlink -f "$libdir")" ] ||
    complain "ksdb.pc gives libdir $(pkg-config --variable=libdir ksdb), not the throwaway root's $libdir"
[ "$(pkg-config --modversion ksdb)" = "$version" ] || complain "ksdb.pc says version $(pkg-config --modversion ksdb)"
example="$root/usr/share/doc/libksdb-dev/examples/quickstart.c"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Werror -o "$work/quickstart" "$example" $(pkg-config --cflags --libs ksdb)
export LD_LIBRARY_PATH="$libdir"
ldd "$work/quickstart" | grep -q "libksdb.so.0 => $libdir/libksdb.so.0" ||
    complain "quickstart does not load the installed libksdb.so.0: $(ldd "$work/quickstart" | grep ksdb)"
result=$("$work/quickstart" "$work/quickstart.db")
[ "$result" = "sum of counter rows: 42" ] || complain "quickstart printed '$result'"
echo "quickstart: built with pkg-config against the installed headers, ran: $result"

# The installed command: its library, its demo, its manual page.
ksdb="$root/usr/bin/ksdb"
ldd "$ksdb" | grep -q "libksdb.so.0 => $libdir/libksdb.so.0" ||
    complain "ksdb does not load the installed libksdb.so.0"
if [ "$(id -u)" -ne 0 ]; then
    # The demo's exports give files the owners the appliance's daemons
    # expect, which only root can.
    echo "ksdb demo: skipped, needs root"
elif "$ksdb" demo "$work/demo" >"$work/demo.log" 2>&1 && grep -q '^== done' "$work/demo.log"; then
    access=$("$ksdb" --db "$work/demo/ksdb.db" --root "$work/demo/root" sql --json \
        "SELECT cifs_access FROM cifs_share_option WHERE share_id=(SELECT id FROM share WHERE name='public')")
    [ "$access" = '{"cifs_access":"readonly"}' ] || complain "after the demo share public has $access"
    shares="$work/demo/root/etc/quillfold/samba/Shares.conf"
    # The exported share file has the public share, no longer writeable.
    if ! awk '/^\[/ { s = $0 } s == "[public]" && /writeable = 1/ { w = 1 } END { exit !(s != "" && !w) }' "$shares" ||
            ! grep -qx '\[public\]' "$shares"; then
        complain "the demo's Shares.conf does not hold the read-only public share"
    fi
    echo "ksdb demo: ran from the installed package"
else
    cat "$work/demo.log" >&2
    complain "ksdb demo failed"
fi
pending="$here/help-man-pending"
sh "$here/check-manpage.sh" "$ksdb" "$root/usr/share/man/man1/ksdb.1.gz" "$pending" || complain "installed manual page"
unset LD_LIBRARY_PATH PKG_CONFIG_PATH

# Removal: a purge leaves nothing of ours behind.
if dpkg_root --purge ksdb libksdb-dev libksdb0 >"$work/dpkg.log" 2>&1; then
    left=$(find "$root/usr" ! -type d 2>/dev/null || true)
    [ -z "$left" ] || complain "files left after the purge: $left"
    echo "purge: nothing left behind"
else
    cat "$work/dpkg.log" >&2
    complain "dpkg could not purge the packages"
fi

[ "$fail" -eq 0 ] || { echo "check-debs: FAILED" >&2; exit 1; }
printf '\ncheck-debs: the packages of libksdb %s passed\n' "$version"
