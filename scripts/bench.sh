#!/usr/bin/env bash
# Runs every benchmark of the bench build; the cap triangulator runs last,
# together with its JavaScript peer (scripts/bench-earcut.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build-bench}" && pwd)
(cd "$build/bin" && ./korvex_bench --benchmark_counters_tabular=true \
  --benchmark_filter=-BM_TriangulateCaps "${@:2}")
bash "$root/scripts/bench-earcut.sh" "$build"
