#!/usr/bin/env bash
# The cap triangulator against earcut's JavaScript version, on the same rings:
# installs earcut with npm into the bench build (ignored by git), runs
# BM_TriangulateCaps, which writes its rings as JSON, then times earcut on
# them with node and prints both throughputs and their ratio.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build-bench}" && pwd)
node_dir="$build/node"
if [ ! -f "$node_dir/node_modules/earcut/package.json" ]; then
  mkdir -p "$node_dir"
  npm install --prefix "$node_dir" --no-audit --no-fund --loglevel=error earcut
fi
rings="$build/triangulate_rings.json"
results="$build/triangulate_results.json"
(cd "$build/bin" && KORVEX_RINGS_JSON="$rings" ./korvex_bench \
  --benchmark_filter=BM_TriangulateCaps --benchmark_counters_tabular=true \
  --benchmark_out="$results" --benchmark_out_format=json)
node "$root/bench/earcut_peer.js" "$rings" "$node_dir" "$results"
