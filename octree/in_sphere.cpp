// meshGeometry::findTrianglesInSphere: triangles whose centroid lies within a sphere.
#include <korvex/octree.h>
#include <korvex/ray.h>

#include "octree/triangle_number.h"

#include <functional>

namespace meshGeometry {

void findTrianglesInSphere(OctreeNode* node, const vec3& center, float radius,
                           const std::vector<kvx::nsVertex>& vertices,
                           const std::vector<unsigned int>& indices, std::vector<int>& result) {
    if (!node) return; // nothing to search: the caller's list stays as it was
    const float radiusSq = radius * radius;
    std::function<void(OctreeNode*)> visit = [&](OctreeNode* n) {
        if (!n) return;
        // Squared radius against the squared distance from the centre to the box: touching
        // counts.
        if (!AABBIntersectsSphere(n->worldBounds, center, radius)) return;
        for (int t : n->triangles) {
            unsigned int v[3];
            if (!octree_detail::triangleCorners(t, indices, vertices.size(), v)) continue;
            // Only the centroid decides, not the vertices.
            const vec3 centroid =
                (vertices[v[0]].position + vertices[v[1]].position + vertices[v[2]].position) /
                3.0f;
            const vec3 d = centroid - center;
            if (glm::dot(d, d) <= radiusSq) result.push_back(t);
        }
        for (OctreeNode* child : n->children) visit(child);
    };
    result.clear();
    visit(node);
}

} // namespace meshGeometry
