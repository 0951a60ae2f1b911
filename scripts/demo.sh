#!/usr/bin/env bash
# Runs the korvex tool on its built-in defaults. The tool runs from bin/ so
# that the default font is found at ../content/Fonts/uk.ttf.
set -euo pipefail
build=${1:-build}
cd "$build/bin"
echo "== korvex pick (built-in sphere, centre pixel)"
./korvex pick
echo "== korvex select (built-in sphere, a square lasso around the centre, front faces)"
./korvex select --polygon "300,200 500,200 500,400 300,400"
