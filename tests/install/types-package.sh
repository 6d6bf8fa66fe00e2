#!/usr/bin/env bash
# The TypeScript declarations make an npm package ("npm pack" of types/),
# and the installed share/kv/types holds exactly the files that package
# holds. Exits 77 (skipped) without npm.
#   types-package.sh SOURCE_DIR PREFIX
set -euo pipefail

SOURCE="$(cd "${1:?usage: types-package.sh SOURCE_DIR PREFIX}" && pwd)"
PREFIX="$(cd "${2:?prefix}" && pwd)"

fail() {
    printf 'types package test failed: %s\n' "$*" >&2
    exit 1
}

if ! command -v npm >/dev/null; then
    echo "types package test skipped: no npm (./kv setup installs it)"
    exit 77
fi
WORK="$(mktemp -d "${TMPDIR:-/tmp}/kv-types.XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
tarball="$(cd "$SOURCE/types" && npm pack --silent --pack-destination "$WORK" 2>/dev/null)" ||
    fail "npm pack of types/ failed"
[ -f "$WORK/$tarball" ] || fail "npm pack wrote no $tarball"
packed="$(tar -tzf "$WORK/$tarball" | sed 's|^package/||' | sort)"
installed="$(cd "$PREFIX/share/kv/types" && find . -type f | sed 's|^\./||' | sort)"
[ "$packed" = "$installed" ] ||
    fail "the package holds [$(echo $packed)], the installed folder [$(echo $installed)]"
grep -q index.d.ts <<<"$packed" || fail "the package has no index.d.ts"
echo "npm pack: $tarball with $(echo $packed); the same in share/kv/types"
