// korvex pick: the triangle and point under a pixel.
#include "cli.h"
#include "mesh_io.h"
#include "pick_bvh.h"
#include "view.h"

#include <korvex/camera.h>
#include <korvex/ray.h>

#include <cmath>
#include <iostream>

namespace {

// IntersectRayWithMesh reports the point only; the triangle that produced it
// is the first whose own hit lands exactly there.
long triangleAtPoint(const Ray& ray, const MeshData& mesh, const vec3& point) {
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
        vec3 p;
        float d;
        if (RayIntersectsTriangle(ray, mesh.vertices[mesh.indices[t]].position,
                                  mesh.vertices[mesh.indices[t + 1]].position,
                                  mesh.vertices[mesh.indices[t + 2]].position, p, d) &&
            p == point)
            return static_cast<long>(t / 3);
    }
    return -1;
}

int runPick(const cli::Args& args) {
    args.expectPositional(0, 1);
    const std::string* path = args.positional().empty() ? nullptr : &args.positional()[0];
    const MeshData mesh = cli::loadMeshOrDefault(path);
    const cli::View view = cli::makeView(args, mesh);
    const vec2 pixel = cli::pixelOption(args, view);

    const Ray ray = GetRayFromCamera(static_cast<int>(std::lround(pixel.x)),
                                     static_cast<int>(std::lround(pixel.y)), view.view,
                                     view.projection, view.width, view.height);
    vec3 point;
    bool hit;
    long triangle;
    if (args.has("--bvh")) {
        const cli::BvhPick pick = cli::pickThroughBvh(mesh, ray);
        hit = pick.hit, point = pick.point, triangle = pick.triangle;
    } else {
        hit = IntersectRayWithMesh(ray, mesh.vertices, mesh.indices, mat4(1.0f), point);
        triangle = hit ? triangleAtPoint(ray, mesh, point) : -1;
    }

    if (args.has("--json")) {
        std::cout << "{\"hit\":" << (hit ? "true" : "false");
        if (hit) std::cout << ",\"triangle\":" << triangle << ",\"point\":" << cli::jsonVec3(point);
        std::cout << ",\"ray\":{\"origin\":" << cli::jsonVec3(ray.origin)
                  << ",\"direction\":" << cli::jsonVec3(ray.direction) << "}}\n";
    } else if (hit) {
        std::cout << "hit triangle " << triangle << " at (" << point.x << ", " << point.y << ", "
                  << point.z << ")\n";
    } else {
        std::cout << "no hit\n";
    }
    return 0;
}

const cli::Registrar registrar({
    "pick",
    "Find the triangle and the point of a mesh under a pixel.",
    "pick [MESH] [--pixel X,Y] [--eye X,Y,Z] [--target X,Y,Z] [--fov DEG] [--size WxH] [--json]\n"
    "\nMESH is any file Assimp reads (OBJ, PLY, STL, glTF, ...); without it a built-in UV\n"
    "sphere of radius 1 is used. The pixel defaults to the centre of the viewport.",
    cli::withViewOptions({
        {"--pixel", true, "X,Y       pixel, origin at the top left (default: centre)"},
        {"--json", false, "           machine-readable output"},
        {"--bvh", false, "            pick through a BVH of the mesh's triangles"},
    }),
    runPick,
});

} // namespace
