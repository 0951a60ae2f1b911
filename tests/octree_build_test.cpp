#include "octree_test_util.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <thread>

#include <glm/gtc/matrix_transform.hpp>

using namespace octest;

namespace {

// Checks a finished tree against the building rules, from the outside. `per` entries make one
// triangle: 1 for triangle numbers (buildOctreeFromTriangleIndices), 3 for vertex indices
// (buildOctree, whose worldBounds are the two corners of bounds through `matrix`). `input` is
// the list given to the builder at `rootDepth`.
void expectValidTree(const OctreeNode* root, const Mesh& m, const std::vector<int>& input, int per,
                     const mat4& matrix = mat4(1.0f), int rootDepth = 0) {
    ASSERT_NE(root, nullptr);
    const auto corner = [&](const std::vector<int>& list, size_t i, int k) {
        return per == 1 ? m.corner(list[i], k) : m.positions[list[3 * i + k]];
    };
    const auto key = [&](const std::vector<int>& list, size_t i) {
        return per == 1 ? std::array<int, 3>{list[i], 0, 0}
                        : std::array<int, 3>{list[3 * i], list[3 * i + 1], list[3 * i + 2]};
    };
    // Input places of each triangle, claimed as leaves are met in tree order: each triangle in
    // exactly one leaf, and each leaf's list in input order.
    std::map<std::array<int, 3>, std::set<size_t>> unclaimed;
    for (size_t i = 0; i < input.size() / per; ++i) unclaimed[key(input, i)].insert(i);

    forEachNode(root, rootDepth, [&](const OctreeNode* node, int depth) {
        const std::vector<int> all = entriesInTreeOrder(node);
        const size_t count = all.size() / size_t(per);
        AABB fit(vec3(kFloatMax), vec3(-kFloatMax));
        for (size_t i = 0; i < count; ++i)
            for (int k = 0; k < 3; ++k) {
                fit.min = glm::min(fit.min, corner(all, i, k));
                fit.max = glm::max(fit.max, corner(all, i, k));
            }
        EXPECT_TRUE(sameBits(fit.min, node->bounds.min) && sameBits(fit.max, node->bounds.max))
            << "bounds are the exact fit of the subtree, depth " << depth;
        const vec3 a(matrix * vec4(fit.min, 1.0f)), b(matrix * vec4(fit.max, 1.0f));
        EXPECT_TRUE(sameBits(node->worldBounds.min, glm::min(a, b)) &&
                    sameBits(node->worldBounds.max, glm::max(a, b)));

        const vec3 mid = (node->bounds.min + node->bounds.max) * 0.5f;
        const auto octant = [&](const std::vector<int>& list, size_t i) {
            const vec3 c = (corner(list, i, 0) + corner(list, i, 1) + corner(list, i, 2)) / 3.0f;
            return (c.x >= mid.x ? 1 : 0) | (c.y >= mid.y ? 2 : 0) | (c.z >= mid.z ? 4 : 0);
        };
        bool oneOctant = true;
        for (size_t i = 1; i < count; ++i)
            oneOctant = oneOctant && octant(all, i) == octant(all, 0);
        const bool split = depth <= 8 && all.size() >= (per == 1 ? 11u : 33u) &&
                           glm::length(node->bounds.max - node->bounds.min) >= 0.05f &&
                           !(per == 3 && oneOctant);
        ASSERT_EQ(node->isLeaf(), !split) << "depth " << depth << ", " << count << " triangles";
        ASSERT_EQ(node->isLeaf(), !node->triangles.empty());
        if (node->isLeaf()) {
            size_t next = 0;
            for (size_t i = 0; i < node->triangles.size() / per; ++i) {
                std::set<size_t>& places = unclaimed[key(node->triangles, i)];
                const auto it = places.lower_bound(next);
                ASSERT_NE(it, places.end()) << "a triangle twice, or out of input order";
                next = *it + 1;
                places.erase(it);
            }
        }
        for (int s = 0; s < 8; ++s) {
            const std::vector<int> below = entriesInTreeOrder(node->children[s]);
            for (size_t i = 0; i < below.size() / per; ++i) ASSERT_EQ(octant(below, i), s);
        }
    });
    for (const auto& entry : unclaimed) EXPECT_TRUE(entry.second.empty()) << "in no leaf";
}

std::vector<int> asInts(const std::vector<unsigned int>& indices) {
    return std::vector<int>(indices.begin(), indices.end());
}

Mesh copiesOfOneTriangle(int copies, float size) {
    Mesh m;
    m.add(vec3(0.0f));
    m.add(vec3(size, 0.0f, 0.0f));
    m.add(vec3(0.0f, size, 0.0f));
    for (int i = 0; i < copies; ++i) m.indices.insert(m.indices.end(), {0u, 1u, 2u});
    return m;
}

// Depth of the leaf at the end of a chain of single children.
int chainLength(const OctreeNode* node) {
    int depth = 0;
    for (; !node->isLeaf(); ++depth) {
        EXPECT_EQ(std::count(std::begin(node->children), std::end(node->children), nullptr), 7);
        node = *std::find_if(std::begin(node->children), std::end(node->children),
                             [](const OctreeNode* c) { return c; });
    }
    return depth;
}

} // namespace

TEST(OctreeBuild, TreesFromTriangleNumbersKeepTheRules) {
    for (int count : {10, 11, 12, 300, 4000}) {
        for (float size : {0.02f, 1.0f, 50.0f}) {
            const Mesh m = testmesh::randomSoup(count, size, static_cast<unsigned>(count));
            // The whole list, and a shuffled half with a repeated number.
            std::vector<int> subset = m.allTriangles();
            std::shuffle(subset.begin(), subset.end(), std::mt19937(count));
            subset.resize(subset.size() / 2 + 1);
            subset.push_back(subset.front());
            for (const std::vector<int>& list : {m.allTriangles(), subset}) {
                SCOPED_TRACE(testing::Message() << count << " triangles, size " << size);
                Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, list, 0));
                expectValidTree(tree.get(), m, list, 1);
                forEachNode(tree.get(), 0, [](const OctreeNode* n, int) {
                    EXPECT_TRUE(n->reserved == 0 && !n->cachedEmpty && !n->cachedEmptyValid);
                });
            }
        }
    }
    const Mesh& bunny = testmesh::bunny();
    ASSERT_EQ(bunny.triangleCount(), 69666);
    expectValidTree(buildTree(bunny).get(), bunny, bunny.allTriangles(), 1);
}

TEST(OctreeBuild, ThresholdsDepthsAndChains) {
    // (10 against 11 triangles is met in the random soups above.) A depth above 8 makes a leaf
    // at once; a depth of 3 or more builds on the calling thread by the same rules; a negative
    // depth counts as 0.
    const Mesh spread = testmesh::randomSoup(11, 10.0f, 7);
    EXPECT_TRUE(Tree(buildOctreeFromTriangleIndices(spread.positions, spread.indices,
                                                    spread.allTriangles(), 9))
                    ->isLeaf());
    const Mesh soup = testmesh::randomSoup(2000, 5.0f, 9);
    Tree atThree(
        buildOctreeFromTriangleIndices(soup.positions, soup.indices, soup.allTriangles(), 3));
    expectValidTree(atThree.get(), soup, soup.allTriangles(), 1, mat4(1.0f), 3);
    Tree negative(buildOctreeFromTriangleIndices(soup.positions, soup.indices, soup.allTriangles(),
                                                 -1000000));
    expectSameTree(negative.get(), buildTree(soup).get(), "negative depth");

    // Copies of one triangle chain down to a leaf at depth 9, also with a diagonal of exactly
    // 0.05, which is split; the vertex builder makes one leaf of them at once.
    EXPECT_EQ(chainLength(buildTree(copiesOfOneTriangle(11, 1.0f)).get()), 9);
    Mesh exact = copiesOfOneTriangle(11, 0.05f);
    exact.positions[2] = exact.positions[0]; // the box is the segment (0,0,0)-(0.05,0,0)
    ASSERT_EQ(glm::length(exact.positions[1]), 0.05f);
    EXPECT_EQ(chainLength(buildTree(exact).get()), 9);
    const Mesh copies = copiesOfOneTriangle(20, 1.0f);
    Tree one(buildOctree(copies.positions, copies.indices, {}, 0, mat4(1.0f)));
    EXPECT_TRUE(one->isLeaf());
    EXPECT_EQ(one->triangles.size(), 60u);

    // Empty lists give no tree from either builder.
    EXPECT_EQ(buildOctreeFromTriangleIndices(soup.positions, soup.indices, {}, 0), nullptr);
    EXPECT_EQ(buildOctree(soup.positions, {}, {}, 0, mat4(1.0f)), nullptr);

    // A centroid exactly on the centre goes to slot 7: eight corner triangles, two copies, and
    // one centred on the origin, the middle of the box [-1, 1]^3.
    Mesh m;
    for (int i = 0; i < 8; ++i) {
        const vec3 c(i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f);
        for (float f : {1.0f, 0.9f, 0.8f}) m.add(c * f);
        const auto n = static_cast<unsigned>(m.positions.size());
        m.indices.insert(m.indices.end(), {n - 3, n - 2, n - 1});
    }
    m.indices.insert(m.indices.end(), {0u, 1u, 2u, 3u, 4u, 5u});
    for (float x : {-0.3f, 0.3f, 0.0f}) m.add(vec3(x, 0, 0));
    m.indices.insert(m.indices.end(), {24u, 25u, 26u});
    const Tree tree = buildTree(m);
    const std::vector<int> slot7 = entriesInTreeOrder(tree->children[7]);
    EXPECT_NE(std::find(slot7.begin(), slot7.end(), m.triangleCount() - 1), slot7.end());
}

TEST(OctreeBuild, VertexIndexTreesKeepTheirRules) {
    const mat4 rotation =
        glm::rotate(glm::translate(mat4(1.0f), vec3(1, 2, 3)), 0.7f, glm::normalize(vec3(1, 1, 0)));
    for (int count : {10, 11, 500, 3000}) { // 30 entries make a leaf, 33 may split
        SCOPED_TRACE(count);
        const Mesh m = testmesh::randomSoup(count, 4.0f, static_cast<unsigned>(count));
        Tree tree(buildOctree(m.positions, m.indices, {}, 0, rotation));
        expectValidTree(tree.get(), m, asInts(m.indices), 3, rotation);
        // The carried list is never read.
        Tree carried(buildOctree(m.positions, m.indices, {1, 2, 3, 99999}, 0, rotation));
        expectSameTree(carried.get(), tree.get(), "carried list");
    }
}

TEST(OctreeBuild, BadInputGivesABoundedTreeAndNoCrash) {
    // NaN and infinite positions: each triangle still stored once, the depth bounded.
    Mesh m = testmesh::randomSoup(400, 3.0f, 11);
    for (size_t i = 0; i < m.positions.size(); i += 7) m.positions[i].y = NAN;
    m.positions[5] = vec3(std::numeric_limits<float>::infinity());
    Tree tree = buildTree(m);
    std::vector<int> entries = entriesInTreeOrder(tree.get());
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, m.allTriangles());
    forEachNode(tree.get(), 0, [](const OctreeNode*, int depth) { EXPECT_LE(depth, 9); });
    Mesh allNan = testmesh::randomSoup(50, 1.0f, 12);
    for (vec3& p : allNan.positions) p = vec3(NAN);
    EXPECT_EQ(chainLength(buildTree(allNan).get()), 9);
    Tree nanIndexTree(buildOctree(allNan.positions, allNan.indices, {}, 0, mat4(1.0f)));
    EXPECT_EQ(entriesInTreeOrder(nanIndexTree.get()).size(), allNan.indices.size());

    // Numbers that address no triangle and corners that address no vertex are kept once and
    // widen no box.
    const Mesh good = testmesh::randomSoup(100, 2.0f, 13);
    Mesh bad = good;
    bad.indices.insert(bad.indices.end(), {0u, 1u, 99999999u});
    std::vector<int> list = good.allTriangles();
    list.insert(list.end(), {-1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(),
                             bad.triangleCount() - 1, bad.triangleCount(), 715827882});
    Tree badTree(buildOctreeFromTriangleIndices(bad.positions, bad.indices, list, 0));
    entries = entriesInTreeOrder(badTree.get());
    std::sort(entries.begin(), entries.end());
    std::sort(list.begin(), list.end());
    EXPECT_EQ(entries, list);
    EXPECT_TRUE(sameBits(badTree->bounds.min, buildTree(good)->bounds.min));
    std::vector<unsigned int> idx = good.indices;
    idx.insert(idx.end(), {5u, 4000000000u, 6u, 7u, 8u}); // and a trailing partial triangle
    Tree indexTree(buildOctree(good.positions, idx, {}, 0, mat4(1.0f)));
    EXPECT_EQ(entriesInTreeOrder(indexTree.get()).size(), idx.size());
    freeOctree(nullptr);
}

// Several builders at once, each with its own fan-out of tasks, on shared read-only arrays.
TEST(OctreeBuildThreads, ConcurrentParallelBuildsAgree) {
    const Mesh m = testmesh::randomSoup(6000, 4.0f, 21);
    const Tree alone = buildTree(m);
    std::vector<Tree> trees(3);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < trees.size(); ++i)
        threads.emplace_back([&, i] { trees[i] = buildTree(m); });
    for (std::thread& t : threads) t.join();
    for (const Tree& tree : trees) expectSameTree(tree.get(), alone.get(), "concurrent");
}
