#!/usr/bin/env bash
# Installs the build into PREFIX (made afresh) as "cmake --install" does for
# a user, and checks that every piece is where the install promises
# (README.md, "Installing"): the programs, the daemon, the public library
# with its soname, header and pkg-config file, the private libraries, the
# plug-in, the page extension, the schema, the samples, the declarations,
# the man pages and the systemd units. Every ELF file must find its
# libraries relative to itself ($ORIGIN) and no text file may name the build
# or source folders.
#   install-prefix.sh SOURCE_DIR BUILD_DIR PREFIX
set -euo pipefail

SOURCE="$(cd "${1:?usage: install-prefix.sh SOURCE_DIR BUILD_DIR PREFIX}" && pwd)"
BUILD="$(cd "${2:?build folder}" && pwd)"
PREFIX="${3:?prefix}"

fail() {
    printf 'install test failed: %s\n' "$*" >&2
    exit 1
}

rm -rf "$PREFIX"
cmake --install "$BUILD" --prefix "$PREFIX" >"$PREFIX.log" || fail "cmake --install (see $PREFIX.log)"

# The files and folders that must be there, relative to the prefix (the
# library folder is the build's CMAKE_INSTALL_LIBDIR).
LIB="${KV_INSTALL_LIBDIR:-lib}"
expected=(
    bin/kv-runtime bin/kv-page-host bin/kv-accessory bin/kv-device bin/kv-vconf
    libexec/kv/kv-accessoryd
    $LIB/libkvp-client-stub-api.so $LIB/libkvp-client-stub-api.so.1 $LIB/libkvp-client-stub-api.so.1.0.0
    include/kvp-client-stub-api.h $LIB/pkgconfig/kvp-client-stub-api.pc
    $LIB/kv/libdlog.so $LIB/kv/libkv-device.so $LIB/kv/libkv-runtime.so $LIB/kv/libkv-accessory-control.so
    $LIB/kv/plugins/libwrt-plugins-kv.so $LIB/kv/page-extension/libkv-page-extension.so
    share/kv/service-profile.xsd
    share/kv/examples/two-devices.sh share/kv/examples/watch-sensor/config.xml
    share/kv/examples/phone-monitor/config.xml share/kv/examples/phone-chat/config.xml
    share/kv/tools/pair-run.sh share/kv/tools/installed.sh
    share/kv/types/package.json share/kv/types/index.d.ts
    share/man/man1/kv-accessory.1.gz share/man/man8/kv-accessoryd.8.gz
    share/man/man1/kv-runtime.1.gz share/man/man1/kv-page-host.1.gz
    share/man/man1/kv-device.1.gz share/man/man1/kv-vconf.1.gz
    "lib/systemd/system/kv-accessoryd@.service"
    "lib/systemd/system/kv-accessoryd@.service.d/hardening.conf"
    "lib/systemd/user/kv-accessoryd@.service"
)
for path in "${expected[@]}"; do
    [ -e "$PREFIX/$path" ] || fail "$path is missing from the installed tree"
done
for program in bin/kv-runtime bin/kv-page-host bin/kv-accessory libexec/kv/kv-accessoryd \
    share/kv/examples/two-devices.sh share/kv/tools/pair-run.sh; do
    [ -x "$PREFIX/$program" ] || fail "$program is not executable"
done

# The public library carries its major version in its soname, and the
# development link points at it.
soname="$(readelf -d "$PREFIX/$LIB/libkvp-client-stub-api.so.1.0.0" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
[ "$soname" = libkvp-client-stub-api.so.1 ] || fail "the client library's soname is '$soname'"
[ "$(readlink "$PREFIX/$LIB/libkvp-client-stub-api.so")" = libkvp-client-stub-api.so.1 ] ||
    fail "libkvp-client-stub-api.so does not link to the soname"

# Run paths: relative to the file, nothing of the build.
while IFS= read -r -d '' file; do
    head -c 4 "$file" | grep -q 'ELF' || continue
    paths="$(readelf -d "$file" | sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]/\2/p')"
    for path in ${paths//:/ }; do
        case "$path" in
            '$ORIGIN' | '$ORIGIN/'*) ;;
            *) fail "${file#"$PREFIX/"} searches $path for libraries" ;;
        esac
    done
done < <(find "$PREFIX" -type f -print0)

# Text files (scripts, units, the pkg-config file) name no folder of the
# build or the sources, besides the prefix itself (the units name it), which
# this test puts in the build.
leaks=""
while IFS= read -r file; do
    sed "s|$PREFIX||g" "$file" | grep -qF -e "$BUILD" -e "$SOURCE/" && leaks+=" ${file#"$PREFIX/"}"
done < <(grep -rIlF -e "$BUILD" -e "$SOURCE/" "$PREFIX" || true)
[ -z "$leaks" ] || fail "installed files name the build or source folder:$leaks"
echo "installed into $PREFIX: ${#expected[@]} pieces in place, run paths relative"
