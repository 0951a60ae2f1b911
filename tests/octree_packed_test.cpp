// A builder's tree answers rays from a compact copy once it has answered a few. The copy must
// give the plain traversal's answers, and must stop answering once the tree is changed by hand
// or the query's arrays are not the ones it was made from.
#include "octree_test_util.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <thread>

using namespace octest;

namespace {

// The leaf holding triangle t.
OctreeNode* leafOf(OctreeNode* root, int t) {
    OctreeNode* found = nullptr;
    forEachNode(root, 0, [&](const OctreeNode* node, int) {
        for (int entry : node->triangles)
            if (entry == t) found = const_cast<OctreeNode*>(node);
    });
    return found;
}

// The first triangle that one of the rays meets first on a tree over the whole mesh and that
// `accept` takes; -1 if none.
template <typename Accept>
int firstHitAmong(const Mesh& m, const std::vector<Ray>& rays, Accept accept) {
    const Tree full = buildTree(m);
    for (const Ray& ray : rays) {
        const int hit = expectSameAsPlainTraversal(full.get(), m, ray, mat4(1.0f));
        if (hit >= 0 && accept(hit)) return hit;
    }
    return -1;
}

// A tree over every triangle of the mesh but `left`, answering from its copy.
Tree treeWithout(const Mesh& m, int left, const std::vector<Ray>& rays) {
    std::vector<int> others = m.allTriangles();
    others.erase(std::find(others.begin(), others.end(), left));
    Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, others, 0));
    askUntilCopied(tree.get(), m, rays);
    return tree;
}

AABB boxOfTriangle(const Mesh& m, int t) {
    AABB box(m.positions[m.indices[3 * t]], m.positions[m.indices[3 * t]]);
    for (int k = 1; k < 3; ++k) {
        box.min = glm::min(box.min, m.positions[m.indices[3 * t + k]]);
        box.max = glm::max(box.max, m.positions[m.indices[3 * t + k]]);
    }
    return box;
}

} // namespace

// Each edit changes the answer of the first ray that hits, through a different field: the
// list's length, an entry in place, a child slot, a box. Every ray is asked once the copy is
// made, before the edit and after it.
TEST(OctreePackedCopy, HandEditsAfterTheCopyIsMadeAreSeen) {
    const Mesh& m = testmesh::bunny();
    const std::vector<Ray> rays = raysAt(m, 200, 41, 0.01f);
    const std::function<void(OctreeNode*, int, std::vector<OctreeNode*>&)> edits[] = {
        [](OctreeNode* root, int hit, std::vector<OctreeNode*>&) {
            std::vector<int>& list = leafOf(root, hit)->triangles;
            list.erase(std::find(list.begin(), list.end(), hit));
        },
        [](OctreeNode* root, int hit, std::vector<OctreeNode*>&) {
            std::vector<int>& list = leafOf(root, hit)->triangles;
            *std::find(list.begin(), list.end(), hit) = -1;
        },
        [](OctreeNode* root, int hit, std::vector<OctreeNode*>& detached) {
            const OctreeNode* leaf = leafOf(root, hit);
            for (OctreeNode*& child : root->children) {
                bool holds = false;
                forEachNode(child, 1, [&](const OctreeNode* n, int) { holds |= n == leaf; });
                if (!holds) continue;
                detached.push_back(child);
                child = nullptr;
            }
        },
        [](OctreeNode* root, int hit, std::vector<OctreeNode*>&) {
            leafOf(root, hit)->worldBounds = AABB(vec3(90.0f), vec3(91.0f));
        },
    };
    for (const auto& edit : edits) {
        Tree tree = buildTree(m);
        askUntilCopied(tree.get(), m, rays);
        int first = -1, changed = 0;
        for (const Ray& ray : rays) {
            const int hit = expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f));
            if (first < 0) first = hit;
        }
        ASSERT_GE(first, 0);
        std::vector<OctreeNode*> detached;
        edit(tree.get(), first, detached);
        for (int pass = 0; pass < 2; ++pass) // the second pass after the copy was set aside
            for (const Ray& ray : rays)
                changed += expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)) != first;
        EXPECT_GT(changed, 0);
        for (OctreeNode* subtree : detached) freeOctree(subtree);
    }
}

// The copy holds the corners of the arrays it was made from. A shorter index array (fewer valid
// triangle numbers) and a copy of the vertices are answered from the nodes, as the plain
// traversal answers them.
TEST(OctreePackedCopy, OtherArraysAreAnsweredFromTheNodes) {
    const Mesh& m = testmesh::bunny();
    const Tree tree = buildTree(m);
    const std::vector<Ray> rays = raysAt(m, 150, 43, 0.01f);
    askUntilCopied(tree.get(), m, rays);
    for (const Ray& ray : rays) expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f));

    const std::vector<unsigned int> half(m.indices.begin(),
                                         m.indices.begin() + m.indices.size() / 6 * 3);
    std::vector<kvx::nsVertex> moved = m.vertices;
    for (kvx::nsVertex& v : moved) v.position.y += 0.01f;
    Mesh shifted = m;
    shifted.vertices = moved;
    for (const Ray& ray : rays) {
        vec3 point(7.0f), expected(7.0f);
        int triangle = -7, expectedTriangle = -7;
        EXPECT_EQ(
            meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), m.vertices, half,
                                                  point, triangle),
            referenceRayHit(tree.get(), ray, mat4(1.0f), m, half, expected, expectedTriangle));
        EXPECT_TRUE(sameBits(point, expected));
        EXPECT_EQ(triangle, expectedTriangle);
        // Moved vertices break the promise that they are the build's, but are still read.
        const bool hit = meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), moved,
                                                               m.indices, point, triangle);
        EXPECT_EQ(hit, referenceRayHit(tree.get(), ray, mat4(1.0f), shifted, m.indices, expected,
                                       expectedTriangle));
        EXPECT_TRUE(sameBits(point, expected));
        EXPECT_EQ(triangle, expectedTriangle);
    }
}

// Several threads start asking a new tree at once, so that one of them makes the copy while the
// others walk the nodes and then read the copy; every answer is the plain traversal's.
TEST(OctreePackedCopy, ThreadsAskWhileTheCopyIsMade) {
    const Mesh m = testmesh::randomSoup(20000, 4.0f, 5);
    const std::vector<Ray> rays = raysAt(m, 600, 47, 0.02f);
    std::vector<int> expected(rays.size());
    std::vector<vec3> expectedPoints(rays.size());
    {
        const Tree reference = buildTree(m);
        for (size_t i = 0; i < rays.size(); ++i) {
            expected[i] = -1;
            referenceRayHit(reference.get(), rays[i], mat4(1.0f), m, m.indices, expectedPoints[i],
                            expected[i]);
        }
    }
    const Tree tree = buildTree(m);
    std::vector<std::vector<int>> answers(4);
    std::vector<std::vector<vec3>> points(4);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < answers.size(); ++k)
        threads.emplace_back([&, k] {
            for (size_t i = 0; i < rays.size(); ++i) {
                const size_t r = (i + k * 150) % rays.size();
                vec3 point(0.0f);
                int triangle = -1;
                meshGeometry::TraverseOctreeForRayHit(tree.get(), rays[r], mat4(1.0f), m.vertices,
                                                      m.indices, point, triangle);
                answers[k].push_back(triangle);
                points[k].push_back(point);
            }
        });
    for (std::thread& t : threads) t.join();
    for (size_t k = 0; k < answers.size(); ++k)
        for (size_t i = 0; i < rays.size(); ++i) {
            const size_t r = (i + k * 150) % rays.size();
            EXPECT_EQ(answers[k][i], expected[r]);
            if (expected[r] >= 0) {
                EXPECT_TRUE(sameBits(points[k][i], expectedPoints[r]));
            }
        }
}

// A triangle that the tree was not built over is put by hand into a far leaf, whose box and its
// ancestors' grow until one already holds it, as an editor might add a triangle to its
// selectable set. The ray at it meets none of the old boxes of the grown nodes, so only their
// boxes as they are now lead to it.
TEST(OctreePackedCopy, BoxesGrownByHandOffTheRaysPathAreSeen) {
    const Mesh& m = testmesh::bunny();
    const std::vector<Ray> rays = raysAt(m, 200, 53, 0.01f);
    const int added = firstHitAmong(m, rays, [](int) { return true; });
    ASSERT_GE(added, 0);
    const Tree tree = treeWithout(m, added, rays);
    const AABB box = boxOfTriangle(m, added);
    const auto holds = [&](const AABB& b) {
        return glm::all(glm::lessThanEqual(b.min, box.min)) &&
               glm::all(glm::greaterThanEqual(b.max, box.max));
    };
    // The path to the last leaf in tree order that lies far from the triangle.
    std::vector<OctreeNode*> path;
    const std::function<bool(OctreeNode*)> descend = [&](OctreeNode* node) {
        path.push_back(node);
        if (node->isLeaf() && glm::distance(node->worldBounds.min, box.min) > 0.05f) return true;
        for (int slot = 7; slot >= 0; --slot)
            if (node->children[slot] && descend(node->children[slot])) return true;
        path.pop_back();
        return false;
    };
    ASSERT_TRUE(descend(tree.get()));
    path.back()->triangles.push_back(added);
    for (size_t i = path.size(); i-- > 1 && !holds(path[i]->worldBounds);) {
        for (AABB* b : {&path[i]->bounds, &path[i]->worldBounds}) {
            b->min = glm::min(b->min, box.min);
            b->max = glm::max(b->max, box.max);
        }
    }
    int found = 0;
    for (const Ray& ray : rays)
        found += expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)) == added;
    EXPECT_GT(found, 0);
}

// A leaf that is given a child by hand becomes an inner node while its own list stays as it
// was; the walk must see the child, here a triangle nearer than anything the leaf holds.
TEST(OctreePackedCopy, ALeafGivenAChildByHandIsSeen) {
    const Mesh& m = testmesh::bunny();
    const std::vector<Ray> rays = raysAt(m, 200, 61, 0.01f);
    const int added = firstHitAmong(m, rays, [](int) { return true; });
    ASSERT_GE(added, 0);
    const Tree tree = treeWithout(m, added, rays);

    // The first ray that met the left-out triangle now ends in some leaf behind it; that leaf
    // gets the triangle as its child.
    int behind = -1;
    for (const Ray& ray : rays) {
        const int hit = expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f));
        if (behind < 0 && hit >= 0) behind = hit;
    }
    ASSERT_GE(behind, 0);
    OctreeNode* leaf = leafOf(tree.get(), behind);
    auto* child = new OctreeNode;
    child->triangles.push_back(added);
    child->bounds = child->worldBounds = boxOfTriangle(m, added);
    leaf->children[5] = child;
    int found = 0;
    for (const Ray& ray : rays)
        found += expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)) == added;
    EXPECT_GT(found, 0);
}

// A list one entry longer and a box grown by one float step on one side and two on another
// change three words of what the walk checks of a node by small amounts; no such few small
// changes may cancel in the check. The mesh lies below y = 0 and reaches below z = 0, so that
// growing the box moves those two sides' bits in opposite directions.
TEST(OctreePackedCopy, SmallChangesToSeveralFieldsOfANodeAreSeenTogether) {
    Mesh m = testmesh::bunny();
    for (size_t i = 0; i < m.positions.size(); ++i) {
        m.positions[i].y -= 2.0f;
        m.vertices[i].position = m.positions[i];
    }
    const std::vector<Ray> rays = raysAt(m, 300, 59, 0.01f);
    // A triangle left out of the tree below.
    const int added = firstHitAmong(m, rays, [](int t) { return t % 10 == 0; });
    ASSERT_GE(added, 0);
    std::vector<int> built;
    for (int t = 0; t < m.triangleCount(); ++t)
        if (t % 10 != 0) built.push_back(t);
    const Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, built, 0));
    askUntilCopied(tree.get(), m, rays);

    AABB& box = tree->worldBounds;
    ASSERT_LT(box.min.z, 0.0f);
    ASSERT_LT(box.max.y, 0.0f);
    tree->triangles.push_back(added);
    box.min.z = std::nextafter(box.min.z, -kFloatMax);
    box.max.y = std::nextafter(std::nextafter(box.max.y, kFloatMax), kFloatMax);
    int found = 0;
    for (const Ray& ray : rays)
        found += expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)) == added;
    EXPECT_GT(found, 0);
}

// A long triangle of the mesh, left out of the tree, is put by hand into a leaf whose box holds
// it. Rays almost in its plane compute hits that stray from it by far more than the tree's own
// tiny triangles allow, nearer than the wall of tiny triangles they would hit otherwise. The
// walk passes over that leaf by its box's distance, so what it allows for a hit's stray must
// hold for any triangle of the arrays, not only for those packed.
TEST(OctreePackedCopy, ALongTriangleAddedToALeafThatIsPassedOverIsSeen) {
    Mesh m;
    const auto tiny = [&m](const vec3& corner) {
        const unsigned int first = static_cast<unsigned int>(m.positions.size());
        for (const vec3& p :
             {corner, corner + vec3(0.003f, 0, 0), corner + vec3(0, 0.003f, 0.003f)})
            m.add(p);
        m.indices.insert(m.indices.end(), {first, first + 1, first + 2});
    };
    // Far corners that put the root's centre just below x = 0, and the eight corners of the leaf's
    // box, [0, 0.6] x [0.01, 0.61]^2.
    for (const vec3& c :
         {vec3(-1.005f, -1, -1), vec3(0.997f, -1, -1), vec3(-1, 0.997f, -1), vec3(-1, -1, 0.997f)})
        tiny(c);
    for (int i = 0; i < 8; ++i)
        tiny(vec3(i & 1 ? 0.597f : 0.0f, i & 2 ? 0.607f : 0.01f, i & 4 ? 0.607f : 0.01f));
    const vec3 a(0.0f, 0.02f, 0.02f), b = a + vec3(0.54f, 0.108f, 0.144f),
                                      c = a + vec3(0.03f, 0.324f, 0.432f);
    const vec3 normal = glm::normalize(glm::cross(b - a, c - a));
    const vec3 aim = 0.49f * a + 0.49f * c + 0.02f * b;
    const vec3 along = glm::normalize(vec3(1, 0, 0) - normal * normal.x);
    // The wall, in the plane x = -0.01 where the rays cross it.
    const vec3 wall = aim + along * ((-0.01f - aim.x) / along.x);
    for (int i = -6; i <= 6; ++i)
        for (int j = -6; j <= 6; ++j) {
            const unsigned int k = static_cast<unsigned int>(m.positions.size());
            const vec3 corner = wall + vec3(0, i * 0.004f, j * 0.004f);
            for (const vec3& p : {corner, corner + vec3(0, 0.004f, 0), corner + vec3(0, 0, 0.004f),
                                  corner + vec3(0, 0.004f, 0.004f)})
                m.add(p);
            m.indices.insert(m.indices.end(), {k, k + 1, k + 2, k + 1, k + 3, k + 2});
        }
    const int longOne = m.triangleCount();
    for (const vec3& p : {a, b, c}) m.add(p);
    for (unsigned int k = 3; k > 0; --k)
        m.indices.push_back(static_cast<unsigned int>(m.positions.size()) - k);

    std::vector<int> built = m.allTriangles();
    built.pop_back();
    const Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, built, 0));
    // Rays that the long triangle would stop first, were it in the tree.
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const float tilt = 1e-6f / glm::length(glm::cross(b - a, c - a));
    std::vector<Ray> rays;
    for (int i = 0; i < 100000 && rays.size() < 300; ++i) {
        const vec3 d = glm::normalize(along + tilt * (1.0f + 0.5f * std::fabs(unit(rng))) *
                                                  (unit(rng) > 0 ? 1.0f : -1.0f) * normal);
        vec3 p = aim + 0.01f * vec3(unit(rng), unit(rng), unit(rng));
        p -= normal * glm::dot(p - aim, normal);
        const Ray ray(p - 6.0f * d, d);
        vec3 onLong, onTree;
        float t;
        int hit = -1;
        if (RayIntersectsTriangle(ray, a, b, c, onLong, t) &&
            referenceRayHit(tree.get(), ray, mat4(1.0f), m, m.indices, onTree, hit) &&
            glm::distance(ray.origin, onLong) < glm::distance(ray.origin, onTree))
            rays.push_back(ray);
    }
    ASSERT_GE(rays.size(), 50u);
    askUntilCopied(tree.get(), m, rays);

    OctreeNode* leaf = leafOf(tree.get(), 4); // one of the eight corners of the box
    ASSERT_TRUE(leaf->isLeaf());
    for (const vec3& p : {a, b, c})
        ASSERT_TRUE(glm::all(glm::greaterThanEqual(p, leaf->worldBounds.min)) &&
                    glm::all(glm::lessThanEqual(p, leaf->worldBounds.max)));
    leaf->triangles.push_back(longOne);
    int found = 0;
    for (const Ray& ray : rays)
        found += expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)) == longOne;
    EXPECT_GT(found, 0);
}
