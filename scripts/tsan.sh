#!/usr/bin/env bash
# Builds the tests under ThreadSanitizer and runs those that exercise the
# parallel tree builders and concurrent queries.
set -euo pipefail
cd "$(dirname "$0")/.."
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEX_SANITIZE=thread \
  -DKORVEX_BUILD_TOOLS=ON
cmake --build build-tsan -j "$(nproc)" --target korvex_tests
filter=$( (grep -v '^#' scripts/tsan-tests.txt || true) | paste -sd: -)
if [ -z "$filter" ]; then
  echo "tsan: no threaded tests listed"
  exit 0
fi
cd build-tsan/bin
./korvex_tests --gtest_filter="$filter"
