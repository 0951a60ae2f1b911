// findTrianglesInOctreeInRadius: candidate entries of every leaf whose box a sphere meets.
#include <korvex/octree.h>
#include <korvex/ray.h>

void findTrianglesInOctreeInRadius(OctreeNode* node, const vec3& center, float radius,
                                   const mat4& matrix, std::vector<int>& result) {
    if (!node) return;
    if (!AABBIntersectsSphere(node->worldBounds, center, radius)) return;
    if (!node->isLeaf()) {
        for (OctreeNode* child : node->children)
            if (child) findTrianglesInOctreeInRadius(child, center, radius, matrix, result);
        return;
    }
    for (int entry : node->triangles) result.push_back(entry);
}
