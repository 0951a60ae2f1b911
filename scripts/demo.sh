#!/usr/bin/env bash
# Runs the korvex tool on its built-in defaults. The tool runs from bin/ so
# that the default font is found at ../content/Fonts/uk.ttf.
set -euo pipefail
build=${1:-build}
cd "$build/bin"
echo "== korvex pick (built-in sphere, centre pixel)"
./korvex pick
echo "== korvex text (DejaVu Sans, extruded, into $build/text.obj)"
./korvex text "Korvex" --height 10 --depth 2 -o ../text.obj --svg ../text.svg
