#!/bin/sh
# The layout of all C++ files, and all of the programs for missing includes and under clang-tidy and
# cppcheck, the agent also for the other compiler and library; clean means no output but the last line.
#   sh tools/lint.sh [FILE...]     BUILD_DIR names a configured build directory
# No tool runs code, so this finds what the tests do not reach.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
build=${BUILD_DIR:-build}

missing=
want clang command -v clang++
want libc++-dev sh -c 'echo "#include <version>" | clang++ -stdlib=libc++ -x c++ -fsyntax-only -'
want clang-format command -v clang-format
want clang-tidy command -v clang-tidy
want cppcheck command -v cppcheck
want iwyu command -v include-what-you-use
install_missing
[ -f "$build/compile_commands.json" ] || cmake -B "$build" >/dev/null

find . -path './build*' -prune -o \( -name '*.cpp' -o -name '*.h' \) \
    -exec clang-format --dry-run --Werror {} +

if [ $# -eq 0 ]; then
    # What this machine compiles: the files of another system or processor include what is not here.
    # shellcheck disable=SC2046
    set -- $(sed -n "s|^ *\"file\": \"$PWD/\(.*\)\".*|\1|p" "$build/compile_commands.json" |
        grep -E '^(src|client|exporter)/')
fi

printf '%s\n' "$@" | grep '^src/' | xargs -r -P "$(cpu_count)" -n 1 clang++ -stdlib=libc++ -std=gnu++20 -fsyntax-only \
    -Wall -Wextra -Wshadow -Wconversion -Werror -I src -I . -DZOT_VERSION='""'
# The libraries of client and exporter bring headers of their own that nobody includes by name.
printf '%s\n' "$@" | grep -vE '^(client|exporter)/' | xargs -r -P "$(cpu_count)" -n 4 sh tools/missing_includes.sh
cppcheck --quiet --error-exitcode=1 --std=c++20 --inline-suppr -j "$(cpu_count)" -I src -I . \
    --enable=warning,performance,portability --suppress=missingIncludeSystem "$@"
printf '%s\n' "$@" | xargs -r -P "$(cpu_count)" -n 4 clang-tidy --quiet -p "$build" \
    --extra-arg=-Wno-unknown-warning-option 2>/dev/null
echo "clang-format, clang with libc++, include-what-you-use, clang-tidy, cppcheck: clean"
