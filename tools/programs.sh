# Which programs the project's shell tools run. In the repository they are
# those of a build folder; a copy of the tools installed with the programs
# (share/kv/tools) runs the installed ones. The install writes installed.sh
# beside this file, with the paths from share/kv to the prefix and to its
# programs; the repository has no such file.
# A tool sets ROOT (the folder above tools/) and sources this file.

if [ -f "$ROOT/tools/installed.sh" ]; then
    # shellcheck source=/dev/null
    . "$ROOT/tools/installed.sh"
fi

# The folder whose programs a tool runs when it is given none: $KV_BUILD,
# else the prefix of an installed copy, else build/ of the repository.
kv_default_programs() {
    if [ -n "${KV_BUILD:-}" ]; then
        printf '%s\n' "$KV_BUILD"
    elif [ -n "${KV_INSTALLED_PREFIX:-}" ]; then
        (cd "$ROOT/$KV_INSTALLED_PREFIX" && pwd)
    else
        printf '%s\n' "$ROOT/build"
    fi
}

# Sets RUNTIME, ACCESSORY and DEVICE_TOOL to the programs of DIR, a build
# folder or an installed prefix, and PLUGIN_OPTIONS to the run options that
# name the plug-ins (none for an installed runtime, which finds its own).
kv_use_programs() {
    local dir="$1" bin="$1/${KV_INSTALLED_BINDIR:-bin}"
    if [ -x "$bin/kv-runtime" ]; then
        RUNTIME="$bin/kv-runtime"
        ACCESSORY="$bin/kv-accessory"
        DEVICE_TOOL="$bin/kv-device"
        PLUGIN_OPTIONS=()
    else
        RUNTIME="$dir/runtime/kv-runtime"
        ACCESSORY="$dir/accessory/kv-accessory"
        DEVICE_TOOL="$dir/platform/device/kv-device"
        PLUGIN_OPTIONS=(--plugins "$dir/plugins")
    fi
}
