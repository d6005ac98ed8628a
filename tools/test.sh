#!/bin/sh
# Builds zot and all of its tests and runs them. Arguments go to cmake, for example
# -DZOT_SANITIZE=address,undefined; BUILD_DIR names another build directory, TEST_EXCEPT is a
# pattern of tests to leave out.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
build=${BUILD_DIR:-build}

install_tools tests
cmake -B "$build" -DZOT_TESTS=ON "$@"
cmake --build "$build" -j "$(cpu_count)"
ctest --test-dir "$build" --output-on-failure -j "$(cpu_count)" -E "${TEST_EXCEPT:-^$}"
