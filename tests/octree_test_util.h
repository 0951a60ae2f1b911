// Tree helpers shared by the octree and selection tests, and the plain recursive ray traversal
// that the library's pruned one must match bit for bit.
#pragma once

#include <korvex/octree.h>
#include <korvex/ray.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace octest {

using testmesh::Mesh;
using testmesh::sameBits;

struct TreeDeleter {
    void operator()(OctreeNode* root) const { freeOctree(root); }
};
using Tree = std::unique_ptr<OctreeNode, TreeDeleter>;

inline Tree buildTree(const Mesh& m) {
    return Tree(buildOctreeFromTriangleIndices(m.positions, m.indices, m.allTriangles(), 0));
}

// Visits every node in tree order (own list, then slots 0 to 7) with its depth.
template <typename F> void forEachNode(const OctreeNode* node, int depth, F&& f) {
    if (!node) return;
    f(node, depth);
    for (const OctreeNode* child : node->children) forEachNode(child, depth + 1, f);
}

inline std::vector<int> entriesInTreeOrder(const OctreeNode* root) {
    std::vector<int> out;
    forEachNode(root, 0, [&](const OctreeNode* n, int) {
        out.insert(out.end(), n->triangles.begin(), n->triangles.end());
    });
    return out;
}

// Same shape, same boxes bit for bit, same lists in the same order, clear memo.
inline void expectSameTree(const OctreeNode* a, const OctreeNode* b, const std::string& where) {
    ASSERT_EQ(a == nullptr, b == nullptr) << where;
    if (!a) return;
    EXPECT_TRUE(sameBits(a->bounds.min, b->bounds.min) && sameBits(a->bounds.max, b->bounds.max))
        << where;
    EXPECT_TRUE(sameBits(a->worldBounds.min, b->worldBounds.min) &&
                sameBits(a->worldBounds.max, b->worldBounds.max))
        << where;
    EXPECT_EQ(a->triangles, b->triangles) << where;
    EXPECT_EQ(a->reserved, 0) << where;
    EXPECT_FALSE(a->cachedEmpty || a->cachedEmptyValid) << where;
    for (int s = 0; s < 8; ++s)
        expectSameTree(a->children[s], b->children[s], where + "/" + std::to_string(s));
}

// The ray traversal as plain recursion: every box met and every triangle tested, own list
// compared by ray parameter, children by distance from the origin, strictly.
inline bool referenceRayHit(const OctreeNode* node, const Ray& ray, const mat4& model,
                            const Mesh& m, const std::vector<unsigned int>& indices, vec3& hitPoint,
                            int& hitTriangle) {
    if (!node || !RayIntersectsAABB(ray, transformAABB(node->worldBounds, model))) return false;
    bool hit = false;
    float best = kFloatMax;
    for (int t : node->triangles) {
        if (t < 0 || 3 * static_cast<size_t>(t) + 2 >= indices.size()) continue;
        vec3 p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = vec3(model * vec4(m.vertices[indices[3 * t + k]].position, 1.0f));
        vec3 point;
        float distance;
        if (RayIntersectsTriangle(ray, p[0], p[1], p[2], point, distance) && distance < best) {
            best = distance;
            hitPoint = point;
            hitTriangle = t;
            hit = true;
        }
    }
    for (const OctreeNode* child : node->children) {
        vec3 point;
        int triangle = -1;
        if (referenceRayHit(child, ray, model, m, indices, point, triangle) &&
            glm::distance(ray.origin, point) < best) {
            best = glm::distance(ray.origin, point);
            hitPoint = point;
            hitTriangle = triangle;
            hit = true;
        }
    }
    return hit;
}

// Unit rays from 3 away towards points near random vertices, so that most hit something.
inline std::vector<Ray> raysAt(const Mesh& m, int count, unsigned seed, float spread) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<Ray> rays;
    for (int i = 0; i < count; ++i) {
        const vec3 target = m.positions[rng() % m.positions.size()] +
                            spread * vec3(unit(rng), unit(rng), unit(rng));
        const vec3 origin = target + 3.0f * glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
        rays.emplace_back(origin, glm::normalize(target - origin));
    }
    return rays;
}

// A built tree makes its copy for rays after one ray per 128 triangles; these are more than
// enough.
inline void askUntilCopied(OctreeNode* tree, const Mesh& m, const std::vector<Ray>& rays) {
    for (int i = 0; i <= m.triangleCount() / 64; ++i) {
        vec3 point;
        int triangle;
        meshGeometry::TraverseOctreeForRayHit(tree, rays[static_cast<size_t>(i) % rays.size()],
                                              mat4(1.0f), m.vertices, m.indices, point, triangle);
    }
}

// The library's answer equals the plain traversal's bit for bit; returns the hit triangle or -1.
inline int expectSameAsPlainTraversal(const OctreeNode* tree, const Mesh& m, const Ray& ray,
                                      const mat4& model, vec3* hitPoint = nullptr) {
    vec3 point(7.0f), expectedPoint(7.0f);
    int triangle = -7, expectedTriangle = -7;
    const bool hit = meshGeometry::TraverseOctreeForRayHit(
        const_cast<OctreeNode*>(tree), ray, model, m.vertices, m.indices, point, triangle);
    EXPECT_EQ(hit,
              referenceRayHit(tree, ray, model, m, m.indices, expectedPoint, expectedTriangle));
    EXPECT_TRUE(sameBits(point, expectedPoint));
    EXPECT_EQ(triangle, expectedTriangle);
    if (hitPoint) *hitPoint = point;
    return hit ? triangle : -1;
}

} // namespace octest
