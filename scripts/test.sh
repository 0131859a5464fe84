#!/usr/bin/env bash
# The test command: installs what the tests need, builds, starts the real PostgreSQL and MariaDB
# servers on loopback, runs every test suite and stops the servers.
#   scripts/test.sh              # build in build/ and run all tests
#   scripts/test.sh --sanitize   # the same under AddressSanitizer + UBSan, in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."

build=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DZT_BUILD_TESTS=ON)
if [[ ${1:-} == --sanitize ]]; then
  build=build-asan
  flags=(-DCMAKE_BUILD_TYPE=Debug -DZT_SANITIZE=ON -DZT_BUILD_TESTS=ON)
fi

scripts/install-deps.sh --test
cmake -S . -B "$build" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)"

export DBTEST_DIR=${DBTEST_DIR:-/tmp/zt-dbtest-$$}
trap 'tests/servers/servers.sh stop' EXIT
server_env=$(tests/servers/servers.sh start) # a server that does not start stops the run here
eval "$server_env"
# Every engine must really run: a suite that cannot reach one fails instead of skipping.
export ZT_REQUIRE_ENGINES=1
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build" -j "$(nproc)" --output-on-failure --timeout 600
