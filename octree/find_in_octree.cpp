// findTrianglesInOctree: candidate entries of every node whose box a ray meets.
#include <korvex/octree.h>
#include <korvex/ray.h>

// Depth is bounded by the tree's own depth (at most ten levels from the builders).
void findTrianglesInOctree(OctreeNode* node, const Ray& ray, std::vector<int>& result) {
    if (!node) return;
    if (!rayIntersectsAABB(ray, node->bounds.min, node->bounds.max)) return;
    result.insert(result.end(), node->triangles.begin(), node->triangles.end());
    for (OctreeNode* child : node->children)
        if (child) findTrianglesInOctree(child, ray, result);
}
