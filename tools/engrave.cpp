// korvex engrave: the carved text laid on a plane as an engraved slab.
#include "cli.h"
#include "text_common.h"

#include <korvex/text.h>

namespace {

int runEngrave(const cli::Args& args) {
    cli::expectSomeOutput(args);
    const float depth = args.number("--depth", 1.0f);
    const vec3 origin = args.vector3("--origin").value_or(vec3(0.0f));
    const vec3 axisU = args.vector3("--u").value_or(vec3(1, 0, 0));
    const vec3 axisV = args.vector3("--v").value_or(vec3(0, 1, 0));
    const vec3 across = glm::cross(axisU, axisV);
    if (!args.has("--normal") && glm::dot(across, across) < 1e-12f)
        throw cli::UsageError("--u and --v must not be parallel");
    const vec3 normal = args.vector3("--normal").value_or(glm::normalize(across));

    const cli::Rings text = cli::textContours(args);
    const cli::Rings carved = CarveTextFromSurface(cli::surfaceOutline(args, text), text);
    if (auto svg = args.value("--svg")) cli::writeSvg(*svg, carved);
    MeshData mesh;
    GenerateEngravedMeshFromContours(carved, origin, axisU, axisV, normal, depth, mesh.vertices,
                                     mesh.indices);
    cli::writeTextMesh(args, mesh, carved.size());
    return 0;
}

const cli::Registrar registrar({
    "engrave",
    "Lay the surface outline minus a line of text on a plane as an engraved slab.",
    "engrave TEXT [-o MESH] [--svg FILE] [--outline \"X,Y X,Y ...\"] [--margin M] [--depth D]\n"
    "        [--origin X,Y,Z] [--u X,Y,Z] [--v X,Y,Z] [--normal X,Y,Z]\n"
    "        [--height H] [--tolerance T] [--font PATH]\n"
    "\nThe text is cut out of the surface outline as in 'korvex carve'. Each resulting ring\n"
    "is laid on the plane (2D x along U, 2D y along V from the origin), filled by itself\n"
    "with a simple ear clipper and given a bottom layer D behind it along the normal and\n"
    "flat-shaded walls. Rings are not cut by their holes: the top layer spans the whole\n"
    "outline and the letters show as walls through the slab.",
    cli::withTextOptions({
        {"--outline", true, "POINTS  surface outline; the text runs from x = 0, y = -H to 0"},
        {"--margin", true, "M        margin of the default outline (default height / 4)"},
        {"--depth", true, "D         slab thickness along the normal (default 1)"},
        {"--origin", true, "X,Y,Z    plane point of 2D (0, 0) (default 0,0,0)"},
        {"--u", true, "X,Y,Z         3D direction of 2D x (default 1,0,0)"},
        {"--v", true, "X,Y,Z         3D direction of 2D y (default 0,1,0)"},
        {"--normal", true, "X,Y,Z    plane normal (default U x V, made unit length)"},
    }),
    runEngrave,
});

} // namespace
