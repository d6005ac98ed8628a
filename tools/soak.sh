#!/bin/sh
# The floods and faults of the system tests in full size, and the numbers that they print:
#   sh tools/soak.sh [FACTOR]
# FACTOR (default 10) multiplies the sizes: 10 means 5,000 idle connections, 50 means 100,000
# returns of a refused peer. BUILD_DIR names the build directory.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
build=${BUILD_DIR:-build}
install_tools tests
[ -f "$build/CMakeCache.txt" ] || cmake -B "$build" >/dev/null
cmake -B "$build" -DZOT_TESTS=ON >/dev/null
cmake --build "$build" -j "$(cpu_count)" --target zot_system_tests
ZOT_FLOOD=${1:-10} "$build/zot_system_tests" --gtest_filter='Floods.*:Crew.*:Faults.*' --gtest_brief=1
