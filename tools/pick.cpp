// korvex pick: the triangle and point under a pixel.
#include "cli.h"
#include "mesh_io.h"
#include "pick_bvh.h"
#include "view.h"

#include <korvex/camera.h>
#include <korvex/octree.h>
#include <korvex/ray.h>

#include <cmath>
#include <iostream>
#include <numeric>

namespace {

struct Pick {
    bool hit = false;
    long triangle = -1;
    vec3 point{0.0f};
};

// The editor's road of a click: one octree for the mesh, then the nearest hit through it.
Pick pickWithOctree(const Ray& ray, const MeshData& mesh) {
    std::vector<vec3> positions(mesh.vertices.size());
    for (size_t i = 0; i < mesh.vertices.size(); ++i) positions[i] = mesh.vertices[i].position;
    std::vector<int> triangles(mesh.indices.size() / 3);
    std::iota(triangles.begin(), triangles.end(), 0);
    OctreeNode* root = buildOctreeFromTriangleIndices(positions, mesh.indices, triangles, 0);

    Pick pick;
    int triangle = -1;
    pick.hit = meshGeometry::TraverseOctreeForRayHit(root, ray, mat4(1.0f), mesh.vertices,
                                                     mesh.indices, pick.point, triangle);
    pick.triangle = triangle;
    freeOctree(root);
    return pick;
}

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

// Every triangle tested, no tree: the reference the octree answers are checked against.
Pick pickBruteForce(const Ray& ray, const MeshData& mesh) {
    Pick pick;
    pick.hit = IntersectRayWithMesh(ray, mesh.vertices, mesh.indices, mat4(1.0f), pick.point);
    if (pick.hit) pick.triangle = triangleAtPoint(ray, mesh, pick.point);
    return pick;
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
    if (args.has("--bvh") && args.has("--brute"))
        throw cli::UsageError("--bvh and --brute exclude each other");
    Pick pick;
    if (args.has("--bvh")) {
        const cli::BvhPick b = cli::pickThroughBvh(mesh, ray);
        pick = Pick{b.hit, b.triangle, b.point};
    } else {
        pick = args.has("--brute") ? pickBruteForce(ray, mesh) : pickWithOctree(ray, mesh);
    }
    const bool hit = pick.hit;
    const long triangle = pick.triangle;
    const vec3& point = pick.point;

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
    "pick [MESH] [--pixel X,Y] [--eye X,Y,Z] [--target X,Y,Z] [--fov DEG] [--size WxH]\n"
    "            [--brute | --bvh] [--json]\n"
    "\nMESH is any file Assimp reads (OBJ, PLY, STL, glTF, ...); without it a built-in UV\n"
    "sphere of radius 1 is used. The pixel defaults to the centre of the viewport. The mesh is\n"
    "put into an octree once and the ray traced through it; --brute tests every triangle instead,\n"
    "and --bvh traces through a BVH of the triangles.",
    cli::withViewOptions({
        {"--pixel", true, "X,Y       pixel, origin at the top left (default: centre)"},
        {"--brute", false, "          test every triangle instead of tracing through the octree"},
        {"--json", false, "           machine-readable output"},
        {"--bvh", false, "            pick through a BVH of the mesh's triangles"},
    }),
    runPick,
});

} // namespace
