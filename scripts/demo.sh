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
echo "== korvex simplify (the scanned bunny, cells of 1% of its diagonal)"
./korvex simplify /usr/share/glmark2/models/bunny.obj -o bunny-simplified.obj --detail 1
echo "== korvex check (the simplified bunny: clustering leaves non-manifold fins)"
./korvex check bunny-simplified.obj
echo "== korvex subdivide (built-in sphere, two passes)"
./korvex subdivide builtin -o sphere-subdivided.ply -n 2
echo "== korvex subdivide (a pass count past 32-bit indices is refused)"
./korvex subdivide builtin -o sphere-subdivided.ply -n 12 || true
echo "== korvex text (DejaVu Sans, extruded, into $build/text.obj)"
./korvex text "Korvex" --height 10 --depth 2 -o ../text.obj --svg ../text.svg
echo "== korvex select (built-in sphere, a square lasso around the centre, front faces)"
./korvex select --polygon "300,200 500,200 500,400 300,400"
