# The shared command line for the project's shell tools, as every program of
# the project behaves (platform/cli/README.md): --help prints the usage on
# stdout and exits with 0, --version prints "<program> <version>" and exits
# with 0, a usage error prints one line naming what is wrong and exits with 2.
# A tool sets CLI_PROGRAM (its name), CLI_COMMAND (how users type it, when
# that differs: "./kv") and CLI_SCRIPT, and sources this file; its usage is
# the comment block at the top of CLI_SCRIPT.

# The project's version: from CMakeLists.txt in the repository, from
# installed.sh (written by the install) in an installed copy.
cli_version_number() {
    local tools
    tools="$(dirname "${BASH_SOURCE[0]}")"
    if [ -f "$tools/installed.sh" ]; then
        (. "$tools/installed.sh" && printf '%s\n' "$KV_INSTALLED_VERSION")
    else
        sed -n 's/^project(kv VERSION \([0-9.]*\).*/\1/p' "$tools/../CMakeLists.txt"
    fi
}

# Prints the usage (the script's leading comment) and exits with 0.
cli_help() {
    awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "$CLI_SCRIPT"
    exit 0
}

cli_version() {
    printf '%s %s\n' "$CLI_PROGRAM" "$(cli_version_number)"
    exit 0
}

# A usage error: "PROGRAM: WHAT; try 'COMMAND --help'", exit code 2.
cli_usage_error() {
    printf "%s: %s; try '%s --help'\n" "$CLI_PROGRAM" "$*" "${CLI_COMMAND:-$CLI_PROGRAM}" >&2
    exit 2
}

# Answers --help and --version wherever they stand before "--".
cli_answer_help_and_version() {
    local word
    for word in "$@"; do
        case "$word" in
            --) return ;;
            -h | --help) cli_help ;;
            --version) cli_version ;;
        esac
    done
}
