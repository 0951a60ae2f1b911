// What the text commands (text, carve, engrave) share: reading the text's
// outlines from a font, the default surface outline around them, writing
// contours as an SVG picture and a finished mesh.
#pragma once

#include "cli.h"

#include <korvex/records.h>

#include <string>
#include <vector>

namespace cli {

using Rings = std::vector<std::vector<vec2>>;

// --height, --tolerance, --font, --svg and -o, followed by a command's own.
std::vector<OptionSpec> withTextOptions(std::vector<OptionSpec> own);

// The positional text (exactly one) in the font the options name, as rings
// with y pointing up (the font's y-down contours mirrored), so that a mesh
// built from them reads upright in a y-up viewer. Throws UsageError when the
// font cannot be read or the text has no outline in it.
Rings textContours(const Args& args);

// --outline "X,Y X,Y X,Y ..." or, by default, the rectangle around `rings`
// grown by --margin on every side (default: a quarter of the height).
std::vector<vec2> surfaceOutline(const Args& args, const Rings& rings);

// Writes the rings as one filled SVG path (non-zero fill, y flipped back to
// point down) with a small margin. Throws UsageError when it cannot write.
void writeSvg(const std::string& path, const Rings& rings);

// -o and --svg: at least one of them must be given.
void expectSomeOutput(const Args& args);

// Saves the mesh to -o, when given, and prints one summary line.
void writeTextMesh(const Args& args, const MeshData& mesh, size_t rings);

} // namespace cli
