#include "pick_bvh.h"
#include "mesh_io.h"

#include <korvex/bvh.h>
#include <korvex/ray.h>

namespace cli {

namespace {

// Traversal reports the point only; the triangle is the first whose own
// hit, past the traversal's 0.001 floor, lands exactly on it.
long triangleAtPoint(const Ray& ray, const std::vector<Triangle>& triangles, const vec3& point) {
    for (size_t t = 0; t < triangles.size(); ++t) {
        vec3 p;
        float d;
        if (RayIntersectsTriangle(ray, triangles[t].p0, triangles[t].p1, triangles[t].p2, p, d) &&
            d > 0.001f && p == point)
            return static_cast<long>(t);
    }
    return -1;
}

} // namespace

BvhPick pickThroughBvh(const MeshData& mesh, const Ray& ray) {
    const std::vector<Triangle> triangles = triangleSoup(mesh);
    const std::unique_ptr<BVHNode> root = createBVHNode(triangles, 0);

    BvhPick pick{false, vec3(0.0f), -1};
    float nearest = kFloatMax;
    pick.hit = RayIntersectsBVH(ray, root.get(), pick.point, nearest);
    if (pick.hit) pick.triangle = triangleAtPoint(ray, triangles, pick.point);
    return pick;
}

} // namespace cli
