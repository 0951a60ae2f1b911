#!/usr/bin/env bash
# Runs the korvex tool on its built-in defaults. The tool runs from bin/ so
# that the default font is found at ../content/Fonts/uk.ttf.
set -euo pipefail
build=${1:-build}
cd "$build/bin"
echo "== korvex pick (built-in sphere, centre pixel)"
./korvex pick
echo "== korvex pick --bvh (the same pixel, through a BVH of the sphere's triangles)"
./korvex pick --bvh
echo "== korvex gizmo (gizmo at the origin: centre pixel, then a pixel on the z ring)"
./korvex gizmo
./korvex gizmo --pixel 536,300
