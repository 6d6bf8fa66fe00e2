#!/usr/bin/env bash
# clang-tidy as the lint runs it (./kv lint and the lint's own test):
#   tidy.sh [clang-tidy options] FILE...
# Version 22: it leaves the declarations of system headers out of its
# matching, which makes it more than twice as fast here as the version of
# the distribution's default package, with the same checks.
# The build's flags are GCC's, so warning options clang doesn't know are
# skipped rather than warned about. And libstdc++ 12's own std::stable_sort
# calls get_temporary_buffer, deprecated in C++23, which clang reports at
# our call; deprecated calls of ours still fail the GCC build (-Werror).
set -euo pipefail
exec clang-tidy-22 --quiet --extra-arg=-Wno-unknown-warning-option \
    --extra-arg=-Wno-deprecated-declarations "$@"
