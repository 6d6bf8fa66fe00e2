#!/usr/bin/env bash
# What each Debian package holds (dpkg-deb -c) and what it depends on
# (dpkg-deb -f): every piece in the package that README.md names for it,
# under /usr as an install puts it, and dependencies on Debian's libraries
# (from dpkg-shlibdeps) and on the other packages of this version.
#   package-contents.sh PACKAGES_DIR
set -euo pipefail

OUT="$(cd "${1:?usage: package-contents.sh PACKAGES_DIR}" && pwd)"

fail() {
    printf 'package test failed: %s\n' "$*" >&2
    exit 1
}

deb() {
    compgen -G "$OUT/${1}_*.deb" | head -1
}

# holds PACKAGE PATH...: each PATH is in the package.
holds() {
    local package="$1" file listing
    shift
    file="$(deb "$package")"
    [ -n "$file" ] || fail "no package $package"
    listing="$(dpkg-deb -c "$file" | awk '{ print $6 }' | sed 's|^\./|/|')"
    for path in "$@"; do
        grep -qxF -- "$path" <<<"$listing" || fail "$package does not hold $path"
    done
}

# depends PACKAGE PATTERN...: its Depends field matches each extended regex.
depends() {
    local package="$1" field
    shift
    field="$(dpkg-deb -f "$(deb "$package")" Depends)"
    for pattern in "$@"; do
        grep -qE -- "$pattern" <<<"$field" || fail "$package depends on '$field', not on /$pattern/"
    done
}

version="$(dpkg-deb -f "$(deb kv-accessory)" Version)"
# The library folder under /usr: the build's CMAKE_INSTALL_LIBDIR.
LIB="/usr/${KV_INSTALL_LIBDIR:-lib}"
holds kv-accessory /usr/bin/kv-accessory /usr/libexec/kv/kv-accessoryd /usr/bin/kv-device \
    /usr/bin/kv-vconf $LIB/kv/libdlog.so $LIB/kv/libkv-accessory-protocol.so \
    "/usr/lib/systemd/system/kv-accessoryd@.service" \
    "/usr/lib/systemd/system/kv-accessoryd@.service.d/hardening.conf" \
    "/usr/lib/systemd/user/kv-accessoryd@.service" \
    /usr/share/man/man1/kv-accessory.1.gz /usr/share/man/man8/kv-accessoryd.8.gz \
    /usr/share/doc/kv-accessory/copyright
depends kv-accessory 'libssl3' 'libprotobuf[0-9]' 'libecore1'
holds libkvp-client-stub-api1 $LIB/libkvp-client-stub-api.so.1 $LIB/libkvp-client-stub-api.so.1.0.0
depends libkvp-client-stub-api1 "kv-accessory \(= $version\)" 'libecore1'
holds libkvp-client-stub-api-dev /usr/include/kvp-client-stub-api.h $LIB/libkvp-client-stub-api.so \
    $LIB/pkgconfig/kvp-client-stub-api.pc
depends libkvp-client-stub-api-dev "libkvp-client-stub-api1 \(= $version\)"
holds kv-runtime /usr/bin/kv-runtime /usr/bin/kv-page-host $LIB/kv/libkv-runtime.so \
    $LIB/kv/plugins/libwrt-plugins-kv.so $LIB/kv/page-extension/libkv-page-extension.so \
    /usr/share/kv/service-profile.xsd /usr/share/man/man1/kv-runtime.1.gz
depends kv-runtime "kv-accessory \(= $version\)" "libkvp-client-stub-api1 \(= $version\)" \
    'libwebkit2gtk-4\.1-0' 'libjavascriptcoregtk-4\.1-0'
holds kv-samples /usr/share/kv/examples/two-devices.sh /usr/share/kv/examples/watch-sensor/config.xml \
    /usr/share/kv/tools/pair-run.sh /usr/share/kv/tools/installed.sh /usr/share/kv/types/index.d.ts
[ "$(dpkg-deb -f "$(deb kv-samples)" Architecture)" = all ] || fail "kv-samples is not for all architectures"
# The library's package tells dpkg-shlibdeps of other packages which package
# provides the soname.
dpkg-deb -I "$(deb libkvp-client-stub-api1)" shlibs | grep -q '^libkvp-client-stub-api 1 libkvp-client-stub-api1' ||
    fail "libkvp-client-stub-api1 declares no shlibs for its soname"
dpkg-deb -I "$(deb libkvp-client-stub-api1)" symbols | grep -q '^ isKvpConnected@Base ' ||
    fail "libkvp-client-stub-api1 lists no symbols of its header"
echo "the five packages hold their pieces and depend on what they need"
