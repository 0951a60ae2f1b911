#include "octree_test_util.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

#include <glm/gtc/matrix_transform.hpp>

using namespace octest;

namespace {

int octantOf(const vec3& c, const AABB& parent) {
    const vec3 m = (parent.min + parent.max) * 0.5f;
    return (c.x >= m.x ? 1 : 0) | (c.y >= m.y ? 2 : 0) | (c.z >= m.z ? 4 : 0);
}

vec3 centroid(const Mesh& m, int t) {
    return (m.positions[m.indices[3 * t]] + m.positions[m.indices[3 * t + 1]] +
            m.positions[m.indices[3 * t + 2]]) /
           3.0f;
}

// The three rules of a finished tree from triangle numbers, checked from the outside, plus the
// split rules that decide where each triangle went.
void expectTreeInvariants(const OctreeNode* root, const Mesh& m, const std::vector<int>& input) {
    ASSERT_NE(root, nullptr);
    std::vector<int> seen(static_cast<size_t>(m.triangleCount()), 0);
    std::vector<std::pair<const OctreeNode*, int>> stack{{root, 0}};
    while (!stack.empty()) {
        const auto [node, depth] = stack.back();
        stack.pop_back();
        ASSERT_LE(depth, 9);
        const bool leaf = node->isLeaf();
        EXPECT_NE(leaf, node->triangles.empty()) << "a node is a leaf or interior, never both";
        EXPECT_TRUE(sameBits(node->bounds, node->worldBounds));
        // The box is the exact fit of the subtree's vertices.
        AABB fit(vec3(kFloatMax), vec3(-kFloatMax));
        size_t count = 0;
        forEachNode(node, 0, [&](const OctreeNode* n, int) {
            for (int t : n->triangles) {
                ++count;
                for (int k = 0; k < 3; ++k) {
                    fit.min = glm::min(fit.min, m.positions[m.indices[3 * t + k]]);
                    fit.max = glm::max(fit.max, m.positions[m.indices[3 * t + k]]);
                }
            }
        });
        EXPECT_EQ(fit.min, node->bounds.min);
        EXPECT_EQ(fit.max, node->bounds.max);
        const float diagonal = glm::length(node->bounds.max - node->bounds.min);
        if (leaf) {
            for (int t : node->triangles) ++seen[static_cast<size_t>(t)];
            // A leaf is small, or at the depth limit.
            EXPECT_TRUE(depth > 8 || count < 11 || diagonal < 0.05f)
                << "depth " << depth << " count " << count << " diagonal " << diagonal;
        } else {
            EXPECT_TRUE(depth <= 8 && count >= 11 && diagonal >= 0.05f);
            for (int s = 0; s < 8; ++s) {
                const OctreeNode* child = node->children[s];
                if (!child) continue;
                forEachNode(child, 0, [&](const OctreeNode* n, int) {
                    for (int t : n->triangles)
                        ASSERT_EQ(octantOf(centroid(m, t), node->bounds), s) << "triangle " << t;
                });
                stack.push_back({child, depth + 1});
            }
        }
    }
    std::vector<int> expected(seen.size(), 0);
    for (int t : input) ++expected[static_cast<size_t>(t)];
    EXPECT_EQ(seen, expected) << "every listed triangle stands in exactly one leaf";
}

// Literal sequential version of the vertex-index builder, for bitwise comparison.
OctreeNode* referenceBuildOctree(const std::vector<vec3>& positions,
                                 const std::vector<unsigned int>& indices, int depth,
                                 const mat4& matrix) {
    if (indices.empty()) return nullptr;
    auto* node = new OctreeNode();
    node->bounds = AABB(vec3(kFloatMax), vec3(-kFloatMax));
    for (unsigned e : indices) {
        node->bounds.min = glm::min(node->bounds.min, positions[e]);
        node->bounds.max = glm::max(node->bounds.max, positions[e]);
    }
    const vec3 a = vec3(matrix * vec4(node->bounds.min, 1.0f));
    const vec3 b = vec3(matrix * vec4(node->bounds.max, 1.0f));
    node->worldBounds = AABB(glm::min(a, b), glm::max(a, b));
    if (depth > 8 || indices.size() < 33 ||
        glm::length(node->bounds.max - node->bounds.min) < 0.05f) {
        node->triangles.assign(indices.begin(), indices.end());
        return node;
    }
    const vec3 m = (node->bounds.min + node->bounds.max) * 0.5f;
    std::vector<unsigned int> lists[8];
    std::vector<int> codes;
    for (size_t i = 0; i < indices.size(); i += 3) {
        const vec3 c =
            (positions[indices[i]] + positions[indices[i + 1]] + positions[indices[i + 2]]) / 3.0f;
        const int code = (c.x >= m.x ? 1 : 0) | (c.y >= m.y ? 2 : 0) | (c.z >= m.z ? 4 : 0);
        codes.push_back(code);
        lists[code].insert(lists[code].end(), {indices[i], indices[i + 1], indices[i + 2]});
    }
    if (std::all_of(codes.begin(), codes.end(), [&](int c) { return c == codes[0]; })) {
        node->triangles.assign(indices.begin(), indices.end());
        return node;
    }
    for (int s = 0; s < 8; ++s)
        node->children[s] = referenceBuildOctree(positions, lists[s], depth + 1, matrix);
    return node;
}

Mesh copiesOfOneTriangle(int copies, float size) {
    Mesh m;
    m.add(vec3(0.0f));
    m.add(vec3(size, 0.0f, 0.0f));
    m.add(vec3(0.0f, size, 0.0f));
    for (int i = 0; i < copies; ++i) m.indices.insert(m.indices.end(), {0u, 1u, 2u});
    return m;
}

int leafDepth(const OctreeNode* root) {
    int depth = 0;
    while (!root->isLeaf()) {
        int children = 0;
        const OctreeNode* next = nullptr;
        for (const OctreeNode* c : root->children)
            if (c) ++children, next = c;
        EXPECT_EQ(children, 1);
        root = next;
        ++depth;
    }
    return depth;
}

} // namespace

TEST(OctreeBuild, MatchesTheSequentialReferenceBitForBit) {
    for (unsigned seed : {1u, 2u, 3u}) {
        for (int count : {1, 10, 11, 12, 300, 4000}) {
            for (float size : {0.02f, 1.0f, 50.0f}) {
                const Mesh m = randomSoup(count, size, seed * 1000 + static_cast<unsigned>(count));
                // Whole list, and a shuffled subset with a repeated number.
                std::vector<int> subset = m.allTriangles();
                std::shuffle(subset.begin(), subset.end(), std::mt19937(seed));
                subset.resize(subset.size() / 2 + 1);
                subset.push_back(subset.front());
                for (const std::vector<int>& list : {m.allTriangles(), subset}) {
                    Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, list, 0));
                    Tree reference(referenceBuildFromTriangles(m.positions, m.indices, list, 0));
                    expectSameTree(tree.get(), reference.get(), "n=" + std::to_string(count));
                    expectTreeInvariants(tree.get(), m, list);
                }
            }
        }
    }
}

TEST(OctreeBuild, BunnyTreeKeepsTheInvariants) {
    const Mesh& bunny = loadBunny();
    ASSERT_EQ(bunny.triangleCount(), 69666);
    const Tree tree = buildTree(bunny);
    expectTreeInvariants(tree.get(), bunny, bunny.allTriangles());
    Tree reference(
        referenceBuildFromTriangles(bunny.positions, bunny.indices, bunny.allTriangles(), 0));
    expectSameTree(tree.get(), reference.get(), "bunny");
}

TEST(OctreeBuild, LeafRulesAtTheirThresholds) {
    // Ten triangles stay together, eleven are split (spread well beyond 0.05).
    const Mesh spread = randomSoup(11, 10.0f, 7);
    std::vector<int> ten = spread.allTriangles();
    ten.pop_back();
    Tree tenTree(buildOctreeFromTriangleIndices(spread.positions, spread.indices, ten, 0));
    EXPECT_TRUE(tenTree->isLeaf());
    EXPECT_EQ(tenTree->triangles, ten);
    EXPECT_FALSE(buildTree(spread)->isLeaf());

    // However many, triangles inside a box of diagonal below 0.05 make one leaf.
    const Mesh tiny = randomSoup(500, 0.02f, 8);
    ASSERT_LT(glm::length(buildTree(tiny)->bounds.max - buildTree(tiny)->bounds.min), 0.05f);
    EXPECT_TRUE(buildTree(tiny)->isLeaf());

    // Copies of one triangle: a chain of single children down to a leaf at depth 9.
    const Mesh copies = copiesOfOneTriangle(11, 1.0f);
    const Tree chain = buildTree(copies);
    EXPECT_EQ(leafDepth(chain.get()), 9);
    // A diagonal of exactly 0.05 is split: the copies chain again.
    Mesh exact;
    exact.add(vec3(0.0f));
    exact.add(vec3(0.05f, 0.0f, 0.0f));
    exact.add(vec3(0.0f, 0.0f, 0.0f));
    for (int i = 0; i < 11; ++i) exact.indices.insert(exact.indices.end(), {0u, 1u, 2u});
    ASSERT_EQ(glm::length(vec3(0.05f, 0.0f, 0.0f)), 0.05f);
    EXPECT_EQ(leafDepth(buildTree(exact).get()), 9);

    // Depth above 8 makes the root a leaf; 3 or more builds sequentially, same tree below.
    Tree deep(
        buildOctreeFromTriangleIndices(spread.positions, spread.indices, spread.allTriangles(), 9));
    EXPECT_TRUE(deep->isLeaf());
    const Mesh soup = randomSoup(2000, 5.0f, 9);
    Tree atThree(
        buildOctreeFromTriangleIndices(soup.positions, soup.indices, soup.allTriangles(), 3));
    Tree referenceAtThree(
        referenceBuildFromTriangles(soup.positions, soup.indices, soup.allTriangles(), 3));
    expectSameTree(atThree.get(), referenceAtThree.get(), "depth 3");
    // A negative depth is built as depth 0.
    Tree negative(buildOctreeFromTriangleIndices(soup.positions, soup.indices, soup.allTriangles(),
                                                 -1000000));
    expectSameTree(negative.get(), buildTree(soup).get(), "negative depth");

    // Empty lists give no tree from either builder.
    EXPECT_EQ(buildOctreeFromTriangleIndices(soup.positions, soup.indices, {}, 0), nullptr);
    EXPECT_EQ(buildOctree(soup.positions, {}, {}, 0, mat4(1.0f)), nullptr);
}

TEST(OctreeBuild, CentroidOnTheCentreGoesToSlotSeven) {
    // Ten triangles around the box's corners and one whose centroid is exactly the centre.
    Mesh m;
    for (int i = 0; i < 8; ++i) {
        const vec3 corner(i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f);
        m.add(corner);
        m.add(corner * 0.9f);
        m.add(corner * 0.8f);
        const auto n = static_cast<unsigned>(m.positions.size());
        m.indices.insert(m.indices.end(), {n - 3, n - 2, n - 1});
    }
    m.indices.insert(m.indices.end(), {0u, 1u, 2u, 3u, 4u, 5u}); // two more copies
    m.add(vec3(-0.3f, 0.0f, 0.0f));
    m.add(vec3(0.3f, 0.0f, 0.0f));
    m.add(vec3(0.0f, 0.0f, 0.0f));
    const auto n = static_cast<unsigned>(m.positions.size());
    m.indices.insert(m.indices.end(), {n - 3, n - 2, n - 1});
    const Tree tree = buildTree(m);
    const int centred = m.triangleCount() - 1;
    ASSERT_FALSE(tree->isLeaf());
    const std::vector<int> slot7 = entriesInTreeOrder(tree->children[7]);
    EXPECT_NE(std::find(slot7.begin(), slot7.end(), centred), slot7.end());
}

TEST(OctreeBuild, VertexIndexBuilderMatchesReferenceAndItsOwnRules) {
    const mat4 rotation =
        glm::rotate(glm::translate(mat4(1.0f), vec3(1, 2, 3)), 0.7f, glm::normalize(vec3(1, 1, 0)));
    for (int count : {10, 11, 500, 3000}) {
        const Mesh m = randomSoup(count, 4.0f, static_cast<unsigned>(count));
        Tree tree(buildOctree(m.positions, m.indices, {}, 0, rotation));
        Tree reference(referenceBuildOctree(m.positions, m.indices, 0, rotation));
        expectSameTree(tree.get(), reference.get(), "buildOctree n=" + std::to_string(count));
        // The carried list is never read.
        Tree carried(buildOctree(m.positions, m.indices, {1, 2, 3, 99999}, 0, rotation));
        expectSameTree(carried.get(), tree.get(), "carried list");
        // Entries are vertex indices, three a triangle, each triangle in one leaf.
        std::vector<int> entries = entriesInTreeOrder(tree.get());
        EXPECT_EQ(entries.size(), m.indices.size());
    }
    // 30 entries make a leaf, 33 are split.
    const Mesh eleven = randomSoup(11, 10.0f, 3);
    std::vector<unsigned int> thirty(eleven.indices.begin(), eleven.indices.begin() + 30);
    EXPECT_TRUE(Tree(buildOctree(eleven.positions, thirty, {}, 0, mat4(1.0f)))->isLeaf());
    EXPECT_FALSE(Tree(buildOctree(eleven.positions, eleven.indices, {}, 0, mat4(1.0f)))->isLeaf());
    // All triangles in one octant: one leaf at once, no chain.
    const Mesh copies = copiesOfOneTriangle(20, 1.0f);
    Tree one(buildOctree(copies.positions, copies.indices, {}, 0, mat4(1.0f)));
    EXPECT_TRUE(one->isLeaf());
    EXPECT_EQ(one->triangles.size(), 60u);
    // worldBounds is the box of the two transformed corners only.
    const AABB& b = one->bounds;
    const vec3 p = vec3(rotation * vec4(b.min, 1.0f)), q = vec3(rotation * vec4(b.max, 1.0f));
    Tree rotated(buildOctree(copies.positions, copies.indices, {}, 0, rotation));
    EXPECT_EQ(rotated->worldBounds.min, glm::min(p, q));
    EXPECT_EQ(rotated->worldBounds.max, glm::max(p, q));
}

TEST(OctreeBuild, IsLeafLooksAtEverySlot) {
    OctreeNode parent, child;
    EXPECT_TRUE(parent.isLeaf());
    parent.children[5] = &child;
    EXPECT_FALSE(parent.isLeaf()) << "slot 0 empty, slot 5 filled";
    EXPECT_EQ(parent.reserved, 0);
    EXPECT_FALSE(parent.cachedEmpty);
    EXPECT_FALSE(parent.cachedEmptyValid);
    parent.children[5] = nullptr; // the destructor leaves children alone anyway
}

TEST(OctreeBuild, BadInputGivesABoundedTreeAndNoCrash) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // NaN and infinite positions: each triangle still stored once, depth bounded.
    Mesh m = randomSoup(400, 3.0f, 11);
    for (size_t i = 0; i < m.positions.size(); i += 7) m.positions[i].y = nan;
    m.positions[5] = vec3(std::numeric_limits<float>::infinity());
    Tree tree = buildTree(m);
    std::vector<int> entries = entriesInTreeOrder(tree.get());
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(entries, m.allTriangles());
    forEachNode(tree.get(), 0, [](const OctreeNode*, int depth) { EXPECT_LE(depth, 9); });
    // Only NaN: a chain to the depth limit, every triangle kept.
    Mesh allNan = randomSoup(50, 1.0f, 12);
    for (vec3& p : allNan.positions) p = vec3(nan);
    EXPECT_EQ(leafDepth(buildTree(allNan).get()), 9);
    Tree nanIndexTree(buildOctree(allNan.positions, allNan.indices, {}, 0, mat4(1.0f)));
    EXPECT_EQ(entriesInTreeOrder(nanIndexTree.get()).size(), allNan.indices.size());

    // Numbers that address no triangle, and corners that address no vertex, are kept once and
    // widen no box.
    const Mesh good = randomSoup(100, 2.0f, 13);
    Mesh bad = good;
    bad.indices.insert(bad.indices.end(), {0u, 1u, 99999999u});
    std::vector<int> list = good.allTriangles();
    list.insert(list.end(), {-1, -2147483647 - 1, 2147483647, bad.triangleCount() - 1,
                             bad.triangleCount(), 715827882});
    Tree badTree(buildOctreeFromTriangleIndices(bad.positions, bad.indices, list, 0));
    entries = entriesInTreeOrder(badTree.get());
    std::sort(entries.begin(), entries.end());
    std::sort(list.begin(), list.end());
    EXPECT_EQ(entries, list);
    Tree goodTree = buildTree(good);
    EXPECT_TRUE(sameBits(badTree->bounds, goodTree->bounds));
    // Out-of-range vertex indices and a trailing incomplete triangle in the vertex builder.
    std::vector<unsigned int> idx = good.indices;
    idx.insert(idx.end(), {5u, 4000000000u, 6u, 7u, 8u});
    Tree indexTree(buildOctree(good.positions, idx, {}, 0, mat4(1.0f)));
    entries = entriesInTreeOrder(indexTree.get());
    EXPECT_EQ(entries.size(), idx.size());

    freeOctree(nullptr);
}

// Several builders at once, each with its own fan-out of tasks, on shared read-only arrays.
TEST(OctreeBuildThreads, ConcurrentParallelBuildsAgree) {
    const Mesh m = randomSoup(6000, 4.0f, 21);
    const Tree expected(referenceBuildFromTriangles(m.positions, m.indices, m.allTriangles(), 0));
    std::vector<Tree> trees(3);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < trees.size(); ++i)
        threads.emplace_back([&, i] { trees[i] = buildTree(m); });
    for (std::thread& t : threads) t.join();
    for (const Tree& tree : trees) expectSameTree(tree.get(), expected.get(), "concurrent");
}
