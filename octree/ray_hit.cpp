// meshGeometry::TraverseOctreeForRayHit: the nearest triangle under a world-space ray.
#include <korvex/octree.h>
#include <korvex/ray.h>

#include "octree/triangle_number.h"

namespace {

struct RayQuery {
    const Ray& ray;
    const mat4& model;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
};

inline vec3 place(const RayQuery& q, unsigned int v) {
    return vec3(q.model * vec4(q.vertices[v].position, 1.0f));
}

bool traverse(const OctreeNode* node, const RayQuery& q, vec3& hitPoint, int& hitTriangle) {
    if (!node) return false;
    if (!RayIntersectsAABB(q.ray, transformAABB(node->worldBounds, q.model))) return false;
    bool hit = false;
    float best = kFloatMax;
    for (int t : node->triangles) {
        unsigned int v[3];
        if (!octree_detail::triangleCorners(t, q.indices, q.vertices.size(), v)) continue;
        vec3 point;
        float distance;
        if (RayIntersectsTriangle(q.ray, place(q, v[0]), place(q, v[1]), place(q, v[2]), point,
                                  distance) &&
            distance < best) {
            best = distance;
            hitPoint = point;
            hitTriangle = t;
            hit = true;
        }
    }
    for (const OctreeNode* child : node->children) {
        if (!child) continue;
        vec3 point;
        int triangle = -1;
        if (!traverse(child, q, point, triangle)) continue;
        const float distance = glm::length(point - q.ray.origin);
        if (distance < best) {
            best = distance;
            hitPoint = point;
            hitTriangle = triangle;
            hit = true;
        }
    }
    return hit;
}

} // namespace

namespace meshGeometry {

bool TraverseOctreeForRayHit(OctreeNode* node, const Ray& ray, const mat4& modelMatrix,
                             const std::vector<kvx::nsVertex>& vertices,
                             const std::vector<unsigned int>& indices, vec3& hitPoint,
                             int& hitTriangle) {
    return traverse(node, RayQuery{ray, modelMatrix, vertices, indices}, hitPoint, hitTriangle);
}

} // namespace meshGeometry
