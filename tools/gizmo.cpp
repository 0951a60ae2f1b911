// korvex gizmo: which cube handle and which rotation ring lie under a pixel.
#include "cli.h"
#include "view.h"

#include <korvex/camera.h>
#include <korvex/gizmo.h>

#include <cmath>
#include <iostream>

namespace {

const char* axisName(int code) {
    static const char* const kNames[] = {"none", "x", "y", "z"};
    return kNames[code + 1];
}

// "xyz", "xz", "" ...: which rings take part.
void parseAxes(const std::string& text, bool enabled[3]) {
    enabled[0] = enabled[1] = enabled[2] = false;
    for (char c : text) {
        if (c < 'x' || c > 'z')
            throw cli::UsageError("--axes: expected letters among x, y, z, got '" + text + "'");
        enabled[c - 'x'] = true;
    }
}

// Six points on the rings' extent, so that the default camera frames the gizmo.
MeshData gizmoExtent(const vec3& center, float radius) {
    MeshData extent;
    const float reach = std::max(radius, 1e-3f);
    for (int axis = 0; axis < 3; ++axis)
        for (float sign : {-1.0f, 1.0f}) {
            vec3 p = center;
            p[axis] += sign * reach;
            extent.vertices.emplace_back(p, vec3(0.0f));
        }
    return extent;
}

int runGizmo(const cli::Args& args) {
    args.expectPositional(0, 0);
    const vec3 center = args.vector3("--center").value_or(vec3(0.0f));
    const float radius = args.number("--radius", 1.0f);
    const float tolerance = args.number("--tolerance", 0.05f);
    if (radius < 0.0f) throw cli::UsageError("--radius: the ring radius must not be negative");
    if (tolerance < 0.0f) throw cli::UsageError("--tolerance: must not be negative");
    bool enabled[3];
    parseAxes(args.text("--axes", "xyz"), enabled);

    const cli::View view = cli::makeView(args, gizmoExtent(center, radius));
    const vec2 pixel = cli::pixelOption(args, view);
    const Ray ray = GetRayFromCamera(static_cast<int>(std::lround(pixel.x)),
                                     static_cast<int>(std::lround(pixel.y)), view.view,
                                     view.projection, view.width, view.height);
    const int cube = traceGuizmoCubes(ray, center, view.eye);
    const int ring = traceRotateGuizmoRings(ray, center, radius, tolerance, enabled);

    if (args.has("--json")) {
        std::cout << "{\"cube\":" << cube << ",\"ring\":" << ring
                  << ",\"ray\":{\"origin\":" << cli::jsonVec3(ray.origin)
                  << ",\"direction\":" << cli::jsonVec3(ray.direction) << "}}\n";
    } else {
        std::cout << "cube handle: " << cube << " (" << axisName(cube) << ")\n"
                  << "ring handle: " << ring << " (" << axisName(ring) << ")\n";
    }
    return 0;
}

const cli::Registrar registrar({
    "gizmo",
    "Find the gizmo handle, cube and rotation ring, under a pixel.",
    "gizmo [--center X,Y,Z] [--radius R] [--tolerance T] [--axes xyz] [--pixel X,Y]\n"
    "      [--eye X,Y,Z] [--target X,Y,Z] [--fov DEG] [--size WxH] [--json]\n"
    "\nThe gizmo's axes are the world axes. Cube handles sit on the three axes at a size that\n"
    "follows the camera's distance; rings lie about the enabled axes with the given radius and\n"
    "tolerance in world units. Codes: -1 none, 0 x, 1 y, 2 z. Without --eye the camera frames\n"
    "the rings from +z; the pixel defaults to the centre of the viewport.",
    cli::withViewOptions({
        {"--center", true, "X,Y,Z    gizmo centre (default 0,0,0)"},
        {"--radius", true, "R        ring radius in world units (default 1)"},
        {"--tolerance", true, "T     how far from a ring still picks it (default 0.05)"},
        {"--axes", true, "LETTERS    rings that take part, among x, y, z (default xyz)"},
        {"--pixel", true, "X,Y       pixel, origin at the top left (default: centre)"},
        {"--json", false, "           machine-readable output"},
    }),
    runGizmo,
});

} // namespace
