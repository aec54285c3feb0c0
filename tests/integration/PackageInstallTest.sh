#!/usr/bin/env bash
# Packs a build tree configured for packaging (scripts/package) with cpack, unpacks both Debian packages
# into a scratch root and checks what they hold: files and modes, control fields and maintainer
# scripts, the unit, the conffile, the man pages; runs lintian; then builds a host program against the
# unpacked headers and libraries with pkg-config and with find_package and checks what it prints.
# Usage: PackageInstallTest.sh BUILD_DIR WORK_DIR. Exit 77 (skipped) when dpkg-deb is missing.
set -euo pipefail

build=$(realpath "$1")
work=$2
here=$(cd "$(dirname "$0")" && pwd)
export LANG=C.UTF-8 LC_ALL=C.UTF-8

if ! command -v dpkg-deb >/dev/null; then
    echo "SKIPPED: dpkg-deb is not installed, no Debian packages can be made or checked"
    exit 77
fi

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
# check DESCRIPTION COMMAND...: the command must succeed.
check() {
    local what=$1
    shift
    if "$@"; then echo "ok: $what"; else fail "$what"; fi
}
# expect_equal DESCRIPTION EXPECTED ACTUAL
expect_equal() {
    if [ "$2" = "$3" ]; then
        echo "ok: $1"
    else
        fail "$1"
        diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/    /' || true
    fi
}

rm -rf "$work"
mkdir -p "$work"
root=$work/root
version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
arch=$(dpkg --print-architecture)
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)
libdir=usr/lib/$triplet

echo "== cpack"
(cd "$build" && cpack -G DEB -B "$work/debs" >"$work/cpack.log" 2>&1) || {
    cat "$work/cpack.log"
    exit 1
}
runtime=$work/debs/tp-netflowlib_${version}_${arch}.deb
dev=$work/debs/tp-netflowlib-dev_${version}_${arch}.deb
expect_equal "exactly the two packages" "tp-netflowlib-dev_${version}_${arch}.deb
tp-netflowlib_${version}_${arch}.deb" "$(cd "$work/debs" && printf '%s\n' *.deb)"
[ -f "$runtime" ] && [ -f "$dev" ] || exit 1

echo "== control fields"
expect_equal "runtime package name and section" "tp-netflowlib net" "$(dpkg-deb -f "$runtime" Package Section | cut -d' ' -f2 | paste -sd' ')"
expect_equal "dev package name and section" "tp-netflowlib-dev libdevel" "$(dpkg-deb -f "$dev" Package Section | cut -d' ' -f2 | paste -sd' ')"
expect_equal "runtime summary" "NetFlow and sFlow collector library and service" \
    "$(dpkg-deb -f "$runtime" Description | head -1)"
expect_equal "dev summary" "NetFlow and sFlow collector library - development files" \
    "$(dpkg-deb -f "$dev" Description | head -1)"
runtime_depends=$(dpkg-deb -f "$runtime" Depends | tr -d ' ' | tr ',' '\n' | sed 's/(.*//' | sort)
for package in libc6 libstdc++6 libfmt9 libodbc2 libsystemd0 libprometheus-cpp-pull1.0 libsqliteodbc; do
    check "runtime depends on $package" grep -qx "$package" <<<"$runtime_depends"
done
check "runtime does not depend on itself" bash -c "! grep -qx tp-netflowlib <<<'$runtime_depends'"
dev_depends=$(dpkg-deb -f "$dev" Depends)
check "dev depends on the runtime package of the same version" \
    grep -q "tp-netflowlib (= $version)" <<<"$dev_depends"
for package in libfmt-dev libasio-dev unixodbc-dev pkg-config; do
    check "dev depends on $package" grep -q "\b$package\b" <<<"$dev_depends"
done

echo "== maintainer scripts and control files"
dpkg-deb -e "$runtime" "$work/control"
expect_equal "the configuration is the one conffile" "/etc/nfcollect/nfcollect.conf" "$(cat "$work/control/conffiles")"
expect_equal "ldconfig runs through a trigger" "activate-noawait ldconfig" "$(cat "$work/control/triggers")"
expect_equal "shlibs name both libraries" "libtp_corelib 1 tp-netflowlib (>= $version)
libtp_netflowlib 1 tp-netflowlib (>= $version)" "$(sort "$work/control/shlibs")"
for script in postinst prerm postrm; do
    check "$script is executable shell" bash -c "[ -x '$work/control/$script' ] && sh -n '$work/control/$script'"
done
check "postinst neither enables nor starts the service" \
    bash -c "! grep -Eq 'deb-systemd-helper (enable|reenable)|deb-systemd-invoke (start|restart)' '$work/control/postinst'"

echo "== files and modes"
listing() { dpkg-deb -c "$1" | awk '{ print $1, $2, $6 ($7 == "->" ? " -> " $8 : "") }'; }
runtime_list=$(listing "$runtime")
dev_list=$(listing "$dev")
for entry in \
    "-rwxr-xr-x root/root ./usr/bin/nfcollect" \
    "-rwxr-xr-x root/root ./usr/bin/nfreplay" \
    "-rw-r--r-- root/root ./$libdir/libtp_netflowlib.so.$version" \
    "lrwxrwxrwx root/root ./$libdir/libtp_netflowlib.so.1 -> libtp_netflowlib.so.$version" \
    "-rw-r--r-- root/root ./$libdir/libtp_corelib.so.$version" \
    "lrwxrwxrwx root/root ./$libdir/libtp_corelib.so.1 -> libtp_corelib.so.$version" \
    "-rw-r--r-- root/root ./lib/systemd/system/nfcollect.service" \
    "-rw-r--r-- root/root ./etc/nfcollect/nfcollect.conf" \
    "-rw-r--r-- root/root ./usr/share/man/man1/nfcollect.1.gz" \
    "-rw-r--r-- root/root ./usr/share/man/man1/nfreplay.1.gz" \
    "-rw-r--r-- root/root ./usr/share/doc/tp-netflowlib/copyright" \
    "-rw-r--r-- root/root ./usr/share/doc/tp-netflowlib/changelog.gz"; do
    check "runtime holds $entry" grep -qxF -- "$entry" <<<"$runtime_list"
done
for entry in \
    "lrwxrwxrwx root/root ./$libdir/libtp_netflowlib.so -> libtp_netflowlib.so.1" \
    "lrwxrwxrwx root/root ./$libdir/libtp_corelib.so -> libtp_corelib.so.1" \
    "-rw-r--r-- root/root ./$libdir/pkgconfig/tp_netflowlib.pc" \
    "-rw-r--r-- root/root ./$libdir/cmake/tp_netflowlib/tp_netflowlibConfig.cmake" \
    "-rw-r--r-- root/root ./$libdir/cmake/tp_netflowlib/tp_netflowlibConfigVersion.cmake" \
    "-rw-r--r-- root/root ./$libdir/cmake/tp_netflowlib/tp_netflowlibTargets.cmake" \
    "-rw-r--r-- root/root ./usr/include/tp_netflowlib/netflow/NetFlowPacketV5.h" \
    "-rw-r--r-- root/root ./usr/include/tp_netflowlib/session/NetFlowSession.h" \
    "-rw-r--r-- root/root ./usr/include/tp_netflowlib/corelib/Database.h" \
    "-rw-r--r-- root/root ./usr/share/doc/tp-netflowlib-dev/copyright"; do
    check "dev holds $entry" grep -qxF -- "$entry" <<<"$dev_list"
done
check "runtime holds no headers or link names" \
    bash -c "! grep -Eq '\\.h\$|\\.so\$|/include/' <<<'$runtime_list'"
check "dev holds no programs or versioned libraries" \
    bash -c "! sed 's/ -> .*//' <<<'$dev_list' | grep -Eq '/bin/|\\.so\\.[0-9]'"
check "every file belongs to root" bash -c "! grep -v ' root/root ' <<<'$runtime_list
$dev_list'"

dpkg -x "$runtime" "$root"
dpkg -x "$dev" "$root"
programs=()
for path in "$root"/usr/bin/*; do programs+=("$(basename "$path")"); done
for program in "${programs[@]}"; do
    check "$program is stripped" bash -c "! file '$root/usr/bin/$program' | grep -q 'not stripped'"
    check "$program finds every library" \
        bash -c "! LD_LIBRARY_PATH='$root/$libdir' ldd '$root/usr/bin/$program' | grep -q 'not found'"
done
check "nfcollect uses the unpacked library" \
    bash -c "LD_LIBRARY_PATH='$root/$libdir' ldd '$root/usr/bin/nfcollect' | grep -q '=> $root/$libdir/libtp_netflowlib.so.1 '"

echo "== man pages"
check "the programs are nfcollect, nfreplay and nftop when built" \
    grep -qxE 'nfcollect nfreplay( nftop)?' <<<"${programs[*]}"
for program in "${programs[@]}"; do
    page=$root/usr/share/man/man1/$program.1.gz
    check "$program.1.gz is gzip" gzip -t "$page"
    check "$program.1 has its title" bash -c "zcat '$page' | grep -q '^\\.TH ${program^^} \"1\"'"
    check "$program.1 documents its options" bash -c "zcat '$page' | grep -qF -- '\\-\\-help'"
    check "$program.1 renders without warnings" \
        bash -c "[ -z \"\$(MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z '$page' 2>&1 >/dev/null)\" ]"
done
check "nfcollect.1 names the configuration and the signals" \
    bash -c "zcat '$root/usr/share/man/man1/nfcollect.1.gz' | grep -q '/etc/nfcollect/nfcollect.conf' && zcat '$root/usr/share/man/man1/nfcollect.1.gz' | grep -q SIGHUP"

echo "== the service unit and its configuration"
unit=$root/lib/systemd/system/nfcollect.service
check "the unit starts the packaged program with the packaged configuration" \
    grep -qx 'ExecStart=/usr/bin/nfcollect --config /etc/nfcollect/nfcollect.conf' "$unit"
if command -v systemd-analyze >/dev/null; then
    # The program and the man page are looked up in the scratch root.
    mkdir -p "$work/unit"
    sed "s#^ExecStart=/usr/bin/#ExecStart=$root/usr/bin/#" "$unit" >"$work/unit/nfcollect.service"
    if verify=$(MANPATH=$root/usr/share/man systemd-analyze verify "$work/unit/nfcollect.service" 2>&1) &&
        [ -z "$verify" ]; then
        echo "ok: systemd-analyze verify, the man page found"
    else
        fail "systemd-analyze verify: $verify"
    fi
else
    echo "note: systemd-analyze is not installed, the unit is not verified"
fi
effective=$(LD_LIBRARY_PATH=$root/$libdir "$root/usr/bin/nfcollect" --config "$root/etc/nfcollect/nfcollect.conf" --dump-config)
check "the packaged configuration is read: no output per packet" grep -qx 'format="none"' <<<"$effective"
check "the packaged configuration is read: the database in the state directory" \
    grep -qx 'db="/var/lib/nfcollect/flows.sqlite"' <<<"$effective"

echo "== lintian"
if command -v lintian >/dev/null; then
    lintian --fail-on error "$runtime" "$dev" >"$work/lintian.txt" 2>&1 && status=0 || status=$?
    sed 's/^/    /' "$work/lintian.txt"
    if [ "$status" = 0 ]; then echo "ok: lintian finds no errors"; else fail "lintian finds errors"; fi
else
    echo "note: lintian is not installed, the packages are not linted"
fi

echo "== a host built with pkg-config"
expected=$(sed '$!s/$/\r/' "$here/package-host/expected.txt")
export PKG_CONFIG_PATH=$root/$libdir/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root
flags=$(pkg-config --cflags --libs tp_netflowlib)
check "pkg-config points into the scratch root" grep -q -- "-I$root/usr/include/tp_netflowlib" <<<"$flags"
# shellcheck disable=SC2086 # the flags are words
g++ -o "$work/host-pkgconfig" "$here/package-host/main.cpp" -I"$here/.." $flags
unset PKG_CONFIG_PATH PKG_CONFIG_SYSROOT_DIR
expect_equal "the pkg-config host prints the decoded datagram" "$expected" \
    "$(LD_LIBRARY_PATH=$root/$libdir "$work/host-pkgconfig")"

echo "== a host built with find_package"
cmake -S "$here/package-host" -B "$work/host-cmake" -DCMAKE_PREFIX_PATH="$root/usr" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/host-cmake.log" 2>&1 || {
    cat "$work/host-cmake.log"
    exit 1
}
check "find_package found the unpacked package files" \
    grep -qF "tp_netflowlib package files: $root/$libdir/cmake/tp_netflowlib" "$work/host-cmake.log"
cmake --build "$work/host-cmake" >>"$work/host-cmake.log" 2>&1 || {
    cat "$work/host-cmake.log"
    exit 1
}
expect_equal "the find_package host prints the decoded datagram" "$expected" \
    "$(LD_LIBRARY_PATH=$root/$libdir "$work/host-cmake/package_host")"

if ((failures > 0)); then
    echo "$failures checks failed"
    exit 1
fi
echo "all checks passed"
