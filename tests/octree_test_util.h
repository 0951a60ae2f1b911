// Meshes, tree walks and plain reference versions shared by the octree tests. The references
// follow the library's rules one step at a time, with no shortcut, so that the library's faster
// code can be compared with them bit for bit.
#pragma once

#include <korvex/octree.h>
#include <korvex/ray.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace octest {

struct Mesh {
    std::vector<kvx::nsVertex> vertices;
    std::vector<vec3> positions;
    std::vector<unsigned int> indices;

    void add(const vec3& p) {
        vertices.emplace_back(p, vec3(0.0f, 0.0f, 1.0f));
        positions.push_back(p);
    }
    int triangleCount() const { return static_cast<int>(indices.size() / 3); }
    std::vector<int> allTriangles() const {
        std::vector<int> all(static_cast<size_t>(triangleCount()));
        std::iota(all.begin(), all.end(), 0);
        return all;
    }
};

// Small triangles scattered through a cube of the given size, with shared and unshared
// vertices, so that nodes split on every axis and boxes overlap.
inline Mesh randomSoup(int triangles, float size, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> where(-size * 0.5f, size * 0.5f);
    std::uniform_real_distribution<float> jitter(-size * 0.02f, size * 0.02f);
    Mesh m;
    for (int t = 0; t < triangles; ++t) {
        const vec3 c(where(rng), where(rng), where(rng));
        // Three triangles of four share a vertex with the one before.
        if (t % 4 == 0 || m.positions.empty())
            m.add(c + vec3(jitter(rng), jitter(rng), jitter(rng)));
        const auto a = static_cast<unsigned>(m.positions.size() - 1);
        m.add(c + vec3(jitter(rng), jitter(rng), jitter(rng)));
        m.add(c + vec3(jitter(rng), jitter(rng), jitter(rng)));
        const auto n = static_cast<unsigned>(m.positions.size());
        m.indices.insert(m.indices.end(), {a, n - 2, n - 1});
    }
    return m;
}

// A closed UV sphere, counter-clockwise seen from outside.
inline Mesh uvSphere(int slices, int stacks, float radius, const vec3& centre = vec3(0.0f)) {
    Mesh m;
    const float pi = 3.14159265358979f;
    for (int j = 0; j <= stacks; ++j)
        for (int i = 0; i <= slices; ++i) {
            const float phi = pi * static_cast<float>(j) / static_cast<float>(stacks);
            const float theta = 2.0f * pi * static_cast<float>(i) / static_cast<float>(slices);
            m.add(centre + radius * vec3(std::sin(phi) * std::cos(theta), std::cos(phi),
                                         std::sin(phi) * std::sin(theta)));
        }
    const unsigned row = static_cast<unsigned>(slices) + 1;
    for (unsigned j = 0; j < static_cast<unsigned>(stacks); ++j)
        for (unsigned i = 0; i < static_cast<unsigned>(slices); ++i) {
            const unsigned a = j * row + i, b = a + row, c = b + 1, d = a + 1;
            m.indices.insert(m.indices.end(), {a, d, b, d, c, b});
        }
    return m;
}

// The Stanford bunny of glmark2-data: "v x y z" and "f a b c" lines, 1-based.
inline Mesh readBunny() {
    Mesh m;
    std::ifstream in(KORVEX_BUNNY_PATH);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string tag;
        words >> tag;
        if (tag == "v") {
            vec3 p;
            words >> p.x >> p.y >> p.z;
            m.add(p);
        } else if (tag == "f") {
            for (int k = 0; k < 3; ++k) {
                std::string corner;
                words >> corner;
                m.indices.push_back(static_cast<unsigned>(std::stoul(corner) - 1));
            }
        }
    }
    return m;
}

// Read once per test run.
inline const Mesh& loadBunny() {
    static const Mesh bunny = readBunny();
    return bunny;
}

// Frees the tree at the end of a scope.
struct TreeDeleter {
    void operator()(OctreeNode* root) const { freeOctree(root); }
};
using Tree = std::unique_ptr<OctreeNode, TreeDeleter>;

inline Tree buildTree(const Mesh& m) {
    return Tree(buildOctreeFromTriangleIndices(m.positions, m.indices, m.allTriangles(), 0));
}

inline bool sameBits(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}
inline bool sameBits(const vec3& a, const vec3& b) {
    return sameBits(a.x, b.x) && sameBits(a.y, b.y) && sameBits(a.z, b.z);
}
inline bool sameBits(const AABB& a, const AABB& b) {
    return sameBits(a.min, b.min) && sameBits(a.max, b.max);
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

// ---- Reference builder over triangle numbers: sequential, literal, no fused passes. ----

inline OctreeNode* referenceBuildFromTriangles(const std::vector<vec3>& positions,
                                               const std::vector<unsigned int>& indices,
                                               const std::vector<int>& list, int depth) {
    if (list.empty()) return nullptr;
    auto* node = new OctreeNode();
    node->bounds = AABB(vec3(kFloatMax), vec3(-kFloatMax));
    for (int t : list)
        for (int k = 0; k < 3; ++k) {
            const vec3& p = positions[indices[3 * t + k]];
            node->bounds.min = glm::min(node->bounds.min, p);
            node->bounds.max = glm::max(node->bounds.max, p);
        }
    node->worldBounds = node->bounds;
    if (depth > 8 || list.size() < 11 || glm::length(node->bounds.max - node->bounds.min) < 0.05f) {
        node->triangles = list;
        return node;
    }
    const vec3 m = (node->bounds.min + node->bounds.max) * 0.5f;
    std::vector<int> lists[8];
    for (int t : list) {
        const vec3 c = (positions[indices[3 * t]] + positions[indices[3 * t + 1]] +
                        positions[indices[3 * t + 2]]) /
                       3.0f;
        lists[(c.x >= m.x ? 1 : 0) | (c.y >= m.y ? 2 : 0) | (c.z >= m.z ? 4 : 0)].push_back(t);
    }
    for (int s = 0; s < 8; ++s)
        node->children[s] = referenceBuildFromTriangles(positions, indices, lists[s], depth + 1);
    return node;
}

// Same shape, same boxes bit for bit, same lists in the same order, clear memo.
inline void expectSameTree(const OctreeNode* a, const OctreeNode* b, const std::string& where) {
    ASSERT_EQ(a == nullptr, b == nullptr) << where;
    if (!a) return;
    EXPECT_TRUE(sameBits(a->bounds, b->bounds)) << where;
    EXPECT_TRUE(sameBits(a->worldBounds, b->worldBounds)) << where;
    EXPECT_EQ(a->triangles, b->triangles) << where;
    EXPECT_EQ(a->reserved, 0) << where;
    EXPECT_FALSE(a->cachedEmpty || a->cachedEmptyValid) << where;
    for (int s = 0; s < 8; ++s)
        expectSameTree(a->children[s], b->children[s], where + "/" + std::to_string(s));
}

// ---- Reference ray traversal: the plain recursion with every box and triangle tested. ----

inline bool referenceRayHit(const OctreeNode* node, const Ray& ray, const mat4& model,
                            const std::vector<kvx::nsVertex>& vertices,
                            const std::vector<unsigned int>& indices, vec3& hitPoint,
                            int& hitTriangle) {
    if (!node) return false;
    if (!RayIntersectsAABB(ray, transformAABB(node->worldBounds, model))) return false;
    bool hit = false;
    float best = 3.4028235e38f;
    for (int t : node->triangles) {
        if (t < 0 || 3 * static_cast<size_t>(t) + 2 >= indices.size()) continue;
        vec3 p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = vec3(model * vec4(vertices[indices[3 * t + k]].position, 1.0f));
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
        if (child && referenceRayHit(child, ray, model, vertices, indices, point, triangle)) {
            const float distance = glm::distance(ray.origin, point);
            if (distance < best) {
                best = distance;
                hitPoint = point;
                hitTriangle = triangle;
                hit = true;
            }
        }
    }
    return hit;
}

} // namespace octest
