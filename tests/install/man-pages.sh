#!/usr/bin/env bash
# Every program's man page opens with "man" once the installed tree's
# share/man is on MANPATH, and holds what its --help says (a synopsis, the
# options) besides the sections of its .h2m file.
#   man-pages.sh PREFIX
set -euo pipefail

PREFIX="$(cd "${1:?usage: man-pages.sh PREFIX}" && pwd)"

fail() {
    printf 'man page test failed: %s\n' "$*" >&2
    exit 1
}

command -v man >/dev/null || fail "man is missing (./kv setup installs man-db)"
export MANPATH="$PREFIX/share/man" MANPAGER=cat MANWIDTH=100 LC_ALL=C.UTF-8
# name, section, a word of its synopsis or options, a word of its .h2m.
pages=(
    "kv-accessory 1 pair KV_ACCESSORYD"
    "kv-accessoryd 8 --link-profile systemd-escape"
    "kv-device 1 screen XDG_RUNTIME_DIR"
    "kv-vconf 1 unset conn_status"
    "kv-runtime 1 --timeout KV_PLUGIN_DIR"
    "kv-page-host 1 --screenshot KV_PAGE_EXTENSION_DIR"
)
for entry in "${pages[@]}"; do
    read -r name section from_help from_include <<<"$entry"
    where="$(man -w "$section" "$name" 2>/dev/null)" || fail "man finds no page $name($section)"
    case "$where" in
        "$PREFIX"/*) ;;
        *) fail "man finds $name($section) outside the prefix: $where" ;;
    esac
    text="$(man "$section" "$name" 2>&1)" || fail "man $section $name failed: $text"
    for word in NAME SYNOPSIS DESCRIPTION "$from_help" "$from_include"; do
        grep -qF -- "$word" <<<"$text" || fail "$name($section) does not say '$word'"
    done
done
echo "man opens the pages of ${#pages[@]} programs from $MANPATH"
