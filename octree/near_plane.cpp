// findTrianglesNearPlane: triangles that touch a slab around a plane or cross the plane.
#include <korvex/octree.h>

#include "octree/triangle_number.h"

#include <cmath>

namespace {

struct PlaneQuery {
    vec3 point;
    vec3 normal;
    float tolerance;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
    std::vector<int>& result;
};

// Any vertex within the slab, or two vertices on opposite sides, in this order of trial.
bool touchesSlab(const PlaneQuery& q, const unsigned int v[3]) {
    const float d0 = glm::dot(q.vertices[v[0]].position - q.point, q.normal);
    const float d1 = glm::dot(q.vertices[v[1]].position - q.point, q.normal);
    const float d2 = glm::dot(q.vertices[v[2]].position - q.point, q.normal);
    const float e = q.tolerance;
    return std::fabs(d0) <= e || std::fabs(d1) <= e || std::fabs(d2) <= e || d1 * d0 < 0.0f ||
           d2 * d1 < 0.0f || d2 * d0 < 0.0f;
}

void visit(const OctreeNode* node, const PlaneQuery& q) {
    if (!node) return;
    // The box's projected half-extent against the centre's distance: equality stays in.
    const AABB& b = node->bounds;
    const vec3 c = (b.max + b.min) * 0.5f;
    const vec3 h = (b.max - b.min) * 0.5f;
    const float r =
        std::fabs(h.x * q.normal.x) + std::fabs(h.y * q.normal.y) + std::fabs(h.z * q.normal.z);
    const float s = std::fabs(glm::dot(c - q.point, q.normal));
    if (r + q.tolerance < s) return;
    if (node->isLeaf()) {
        for (int t : node->triangles) {
            unsigned int v[3];
            if (octree_detail::triangleCorners(t, q.indices, q.vertices.size(), v) &&
                touchesSlab(q, v))
                q.result.push_back(t);
        }
    }
    for (const OctreeNode* child : node->children) visit(child, q);
}

} // namespace

void findTrianglesNearPlane(const OctreeNode* node, const vec3& planePoint, const vec3& planeNormal,
                            const std::vector<kvx::nsVertex>& vertices,
                            const std::vector<unsigned int>& indices, float tolerance,
                            std::vector<int>& result) {
    visit(node, PlaneQuery{planePoint, planeNormal, tolerance, vertices, indices, result});
}
