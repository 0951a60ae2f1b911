// The picking path of `korvex pick --bvh`: a BVH over the mesh's triangles.
#pragma once

#include <korvex/records.h>

namespace cli {

struct BvhPick {
    bool hit;
    vec3 point;    // world point, when hit
    long triangle; // triangle number, when hit
};

// Builds a BVH of every complete triangle of `mesh` and traces `ray` through it.
BvhPick pickThroughBvh(const MeshData& mesh, const Ray& ray);

} // namespace cli
