// korvex carve: a plate with the text cut out of it, like a stencil.
#include "cli.h"
#include "text_common.h"

#include <korvex/text.h>

namespace {

int runCarve(const cli::Args& args) {
    cli::expectSomeOutput(args);
    const float depth = args.number("--depth", 1.0f);
    const cli::Rings text = cli::textContours(args);
    const cli::Rings carved = CarveTextFromSurface(cli::surfaceOutline(args, text), text);
    if (auto svg = args.value("--svg")) cli::writeSvg(*svg, carved);
    MeshData mesh;
    extrudeWithContours(carved, depth, 0.0f, 0.0f, mesh.vertices, mesh.indices,
                        [](float, float) { return 0.0f; });
    alignTextBottomCenter(mesh.vertices);
    cli::writeTextMesh(args, mesh, carved.size());
    return 0;
}

const cli::Registrar registrar({
    "carve",
    "Cut a line of text out of a surface outline and extrude what is left into a plate.",
    "carve TEXT [-o MESH] [--svg FILE] [--outline \"X,Y X,Y ...\"] [--margin M] [--depth D]\n"
    "      [--height H] [--tolerance T] [--font PATH]\n"
    "\nThe surface outline (by default the rectangle around the text, grown by the margin)\n"
    "minus the glyphs under the non-zero rule: the counters of letters such as O stay as\n"
    "islands. The result is extruded like 'korvex text' (front at z = 0, back at z = -D,\n"
    "centred on x = 0, lowest point on y = 0); --svg draws the carved outline.",
    cli::withTextOptions({
        {"--outline", true, "POINTS  surface outline; the text runs from x = 0, y = -H to 0"},
        {"--margin", true, "M        margin of the default outline (default height / 4)"},
        {"--depth", true, "D         plate thickness (default 1)"},
    }),
    runCarve,
});

} // namespace
