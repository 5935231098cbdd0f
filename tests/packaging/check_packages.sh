#!/bin/sh
# Makes the packages of a finished build and looks into them: check_packages.sh BUILD_DIR OUT_DIR
# Status 77: something that this needs is missing here.
set -u
build=$1
out=$2
wrong=0

complain() { echo "$*" >&2; wrong=1; }
skip() { echo "skipped: $*"; exit 77; }
for tool in cpack dpkg-deb dpkg-shlibdeps; do
    command -v "$tool" >/dev/null || skip "$tool is not installed"
done

# The prefix that the build was configured for, as the packages hold it.
prefix=$(sed -n 's,^set(CPACK_PACKAGING_INSTALL_PREFIX "/\(.*\)")$,\1,p' "$build/CPackConfig.cmake")
[ -n "$prefix" ] || { echo "the build names no prefix"; exit 1; }

rm -rf "$out"
mkdir -p "$out"
cpack --config "$build/CPackConfig.cmake" -B "$out" >"$out/cpack.log" 2>&1 || { cat "$out/cpack.log"; exit 1; }
verifier=$(echo "$out"/orla-verifier_*.deb)
simulator=$(echo "$out"/orla-verifier-simulator_*.deb)
[ -f "$verifier" ] && [ -f "$simulator" ] || { ls "$out"; exit 1; }

for library in libqt5widgets5 libqt5serialport5 libopencv-core libopencv-imgcodecs4 libswscale libv4l-0 kbd fonts-dejavu-core; do
    dpkg-deb -f "$verifier" Depends | grep -q "$library" || complain "the dependency on $library is missing"
done
dpkg-deb -f "$verifier" Maintainer | grep -q '^.* <.*@.*>$' || complain "no maintainer"
holds() { # PACKAGE PATH
    dpkg-deb --fsys-tarfile "$1" | tar -t | grep -x "\./$2" >/dev/null || complain "$1 has no $2"
}
for path in bin/orla-verifier lib/systemd/system/orla-verifier.service share/man/man1/orla-verifier.1.gz \
    share/doc/orla-verifier/manual.md share/doc/orla-verifier/install.md \
    share/doc/orla-verifier/security.md; do
    holds "$verifier" "$prefix/$path"
done
for path in bin/orla-verifier-simulator share/man/man1/orla-verifier-simulator.1.gz \
    share/doc/orla-verifier-simulator/simulator.md; do
    holds "$simulator" "$prefix/$path"
done

# Each picture that a document shows is there.
mkdir "$out/files"
dpkg-deb -x "$verifier" "$out/files" && dpkg-deb -x "$simulator" "$out/files" || complain "cannot be unpacked"
shown=0
for document in "$out/files/$prefix"/share/doc/*/*.md; do
    for picture in $(sed -n 's/.*!\[[^]]*](\([^)]*\)).*/\1/p' "$document"); do
        shown=$((shown + 1))
        [ -f "$(dirname "$document")/$picture" ] || complain "$document shows $picture, which is missing"
    done
done
[ "$shown" -gt 10 ] || complain "only $shown pictures are shown"

# A removal stops the service, an update does not; without a service manager nothing is done.
dpkg-deb -e "$verifier" "$out/control"
mkdir "$out/tools"
for tool in deb-systemd-invoke systemctl; do
    printf '#!/bin/sh\necho "%s $*" >>"%s"\n' "$tool" "$out/asked" >"$out/tools/$tool"
    chmod +x "$out/tools/$tool"
done
managed='mount -t tmpfs none /run && mkdir -p $MANAGER && PATH="$OUT/tools:$PATH" && exec "$@"'
asked() { # MANAGER SCRIPT ARGUMENT: what a maintainer script asks the service manager for
    : >"$out/asked"
    MANAGER=$1 OUT=$out unshare --mount --propagation private sh -c "$managed" sh "$out/control/$2" "$3" ||
        echo "and fails" >>"$out/asked"
    cat "$out/asked"
}
expect() { # MANAGER SCRIPT ARGUMENT EXPECTED
    [ "$(asked "$1" "$2" "$3")" = "$4" ] || complain "$2 $3 asks for \"$(cat "$out/asked")\", not \"$4\""
}
if unshare --mount --propagation private mount -t tmpfs none /run 2>/dev/null; then
    expect /run/systemd/system prerm remove 'deb-systemd-invoke stop orla-verifier.service'
    expect /run/systemd/system prerm upgrade ''
    expect /run/systemd/system postinst configure 'systemctl --system daemon-reload'
    expect /run/systemd/system postrm remove 'systemctl --system daemon-reload'
    expect /run/other prerm remove ''
    expect /run/other postinst configure ''
else
    echo "nothing can be mounted here: maintainer scripts not tried"
fi

if [ "$prefix" != usr ]; then
    echo "a distribution's packages lie in /usr, not in /$prefix: lintian not asked"
elif command -v lintian >/dev/null; then
    lintian --allow-root --fail-on error,warning "$verifier" "$simulator" || complain "lintian has findings"
else
    echo "lintian is not installed: not asked"
fi

# Without the tool that finds the libraries there is no package at all.
hidden=$(command -v dpkg-shlibdeps)
hide='mount --bind "$1" "$2" && shift 2 && exec "$@"'
: >"$out/no-tool"
rm -f "$out"/*.deb
if unshare --mount --propagation private sh -c "$hide" sh "$out/no-tool" "$hidden" true 2>/dev/null; then
    if unshare --mount --propagation private sh -c "$hide" sh "$out/no-tool" "$hidden" \
        cpack --config "$build/CPackConfig.cmake" -B "$out" >"$out/cpack.log" 2>&1; then
        complain "packages are made without dpkg-shlibdeps"
    fi
    grep -q 'dpkg-shlibdeps was not found' "$out/cpack.log" || { complain "nothing is said of it"; cat "$out/cpack.log"; }
    [ -z "$(ls "$out"/*.deb 2>/dev/null)" ] || complain "a package is left"
else
    echo "nothing can be mounted here: not tried without dpkg-shlibdeps"
fi
exit "$wrong"
