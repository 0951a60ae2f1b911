// korvex text: a line of text as an extruded solid.
#include "cli.h"
#include "text_common.h"

#include <korvex/text.h>

namespace {

int runText(const cli::Args& args) {
    cli::expectSomeOutput(args);
    const float depth = args.number("--depth", 2.0f);
    const cli::Rings rings = cli::textContours(args);
    if (auto svg = args.value("--svg")) cli::writeSvg(*svg, rings);
    MeshData mesh;
    extrudeWithContours(rings, depth, 0.0f, 0.0f, mesh.vertices, mesh.indices,
                        [](float, float) { return 0.0f; });
    alignTextBottomCenter(mesh.vertices);
    cli::writeTextMesh(args, mesh, rings.size());
    return 0;
}

const cli::Registrar registrar({
    "text",
    "Turn a line of text into a closed solid: font outlines, extrusion, bottom-centre alignment.",
    "text TEXT [-o MESH] [--svg FILE] [--height H] [--depth D] [--tolerance T] [--font PATH]\n"
    "\nTEXT is UTF-8. The outlines of its glyphs are merged under the even-odd rule and\n"
    "extruded: the front cap lies at z = 0 facing +z, the back cap at z = -D. Text reads\n"
    "upright with y up; the solid is centred on x = 0 and its lowest point sits on y = 0.\n"
    "Rings smaller than 0.1 square units or with an edge under 0.01 are dropped, so very\n"
    "small text loses its finest parts.",
    cli::withTextOptions({
        {"--depth", true, "D         extrusion depth (default 2)"},
    }),
    runText,
});

} // namespace
