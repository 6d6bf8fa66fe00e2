#!/bin/bash
# Runs one script test app of the plug-in:
#   run_script_test.sh KV_RUNTIME PLUGIN_DIR APP_DIR ASSERT_JS
# The app folder is copied with assert.js put in front of its main.js,
# installed into a fresh device and run with the plug-ins of PLUGIN_DIR.
# Optional files of the app folder:
#   device/            copied into the device folder after the install
#                      (e.g. a policy.conf)
#   expected-log.txt   lines that must each occur in the run's log
#   expected-exit.txt  the exit code the run must end with (default 0)
set -u
runtime="$1" plugins="$2" source="$3" assert_js="$4"

work=$(mktemp -d "${TMPDIR:-/tmp}/kv-script-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
device="$work/device"
app="$work/app"

cp -r "$source" "$app"
rm -rf "$app/device" "$app/expected-log.txt" "$app/expected-exit.txt"
cat "$assert_js" "$source/main.js" > "$app/main.js"

app_id=$("$runtime" --device "$device" install "$app") || {
    echo "install of $source failed" >&2
    exit 1
}
if [ -d "$source/device" ]; then
    cp -r "$source/device/." "$device/"
fi

export KV_LOG_FILE="$work/log"
export KV_LOG_LEVEL=INFO
"$runtime" --device "$device" run "$app_id" --plugins "$plugins" --timeout 20 \
    > "$work/out" 2> "$work/err"
code=$?

expected_exit=0
if [ -f "$source/expected-exit.txt" ]; then
    expected_exit=$(tr -d '[:space:]' < "$source/expected-exit.txt")
fi
failed=0
if [ "$code" != "$expected_exit" ]; then
    echo "app $app_id ended with exit code $code, expected $expected_exit" >&2
    failed=1
fi
if [ -f "$source/expected-log.txt" ]; then
    while IFS= read -r line; do
        [ -z "$line" ] && continue
        if ! grep -qF -- "$line" "$work/log"; then
            echo "missing log line: $line" >&2
            failed=1
        fi
    done < "$source/expected-log.txt"
fi
if [ "$failed" != 0 ]; then
    echo "--- stdout" >&2; cat "$work/out" >&2
    echo "--- stderr" >&2; cat "$work/err" >&2
    echo "--- log (last 60 lines)" >&2; tail -n 60 "$work/log" >&2
    exit 1
fi
cat "$work/out"
cat "$work/err" >&2
exit 0
