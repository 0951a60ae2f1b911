#!/usr/bin/env bash
# Runs every benchmark of the bench build.
set -euo pipefail
build=${1:-build-bench}
cd "$build/bin"
./korvex_bench --benchmark_counters_tabular=true "${@:2}"
