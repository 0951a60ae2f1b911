#include "octree_test_util.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <thread>

#include <glm/gtc/matrix_transform.hpp>

using namespace octest;

namespace {

vec3 centroidOf(const Mesh& m, int t) {
    return (m.corner(t, 0) + m.corner(t, 1) + m.corner(t, 2)) / 3.0f;
}

} // namespace

// The library's traversal enters children nearest first and passes over those that cannot
// win; the plain one visits everything. Cases that punish a wrong pass: coincident triangles in
// different slots, a node with its own list and children, rays of any length, large triangles
// met at grazing angles, a placed model; and the bunny, also against brute force.
TEST(OctreeRayHit, MatchesThePlainTraversalAndBruteForce) {
    Mesh m = testmesh::randomSoup(1500, 6.0f, 91);
    // A large floor, a copy lifted by a hair, and a copy exactly coincident.
    for (float y : {-1.0f, -1.0f + 1e-6f, -1.0f}) {
        const auto n = static_cast<unsigned>(m.positions.size());
        for (float x : {-50.0f, 50.0f})
            for (float z : {-50.0f, 50.0f}) m.add(vec3(x, y, z));
        m.indices.insert(m.indices.end(), {n, n + 2, n + 1, n + 2, n + 3, n + 1});
    }
    // A root with 40 triangles of its own; slot 2 the first floor and the lifted one (a flat
    // box); slot 5 part of the soup; slot 6 the rest, overlapping slot 5, and the coincident
    // floor. From above slot 6 is entered first, yet on the floor slot 2's copy must win.
    const int floor = 1500;
    Tree root(new OctreeNode());
    std::vector<int> flat{floor, floor + 1, floor + 2, floor + 3}, low, high{floor + 4, floor + 5};
    for (int t = 0; t < floor; ++t) (t < 40 ? root->triangles : t < 800 ? low : high).push_back(t);
    for (int t = 700; t < 800; ++t) high.push_back(t);
    root->children[2] = buildOctreeFromTriangleIndices(m.positions, m.indices, flat, 1);
    root->children[5] = buildOctreeFromTriangleIndices(m.positions, m.indices, low, 1);
    root->children[6] = buildOctreeFromTriangleIndices(m.positions, m.indices, high, 1);
    root->bounds = root->worldBounds = AABB(vec3(-60), vec3(60));
    const Tree built = buildTree(m);
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const mat4 tilt = glm::scale(glm::rotate(glm::translate(mat4(1.0f), vec3(0.5f, -2, 1)), 0.3f,
                                             glm::normalize(vec3(1, 0.2f, 0))),
                                 vec3(1.5f));
    int hits = 0, floorHits = 0;
    for (int i = 0; i < 1000; ++i) {
        vec3 origin(unit(rng) * 8, unit(rng) * 3, unit(rng) * 8);
        vec3 direction = glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
        if (i % 3 == 0) { // grazing the floor
            origin.y = -1.0f + std::pow(10.0f, -1.0f - 5.0f * std::fabs(unit(rng)));
            direction.y = -std::pow(10.0f, -1.0f - 6.0f * std::fabs(unit(rng)));
        }
        const Ray ray(origin, direction * (i % 3 == 1 ? 0.25f : i % 3 == 2 ? 7.0f : 1.0f));
        for (const OctreeNode* tree : {root.get(), built.get()})
            for (const mat4& model : {mat4(1.0f), tilt}) {
                const int triangle = expectSameAsPlainTraversal(tree, m, ray, model);
                hits += triangle >= 0;
                floorHits += tree == root.get() && (triangle == floor || triangle == floor + 1);
            }
    }
    EXPECT_GT(hits, 1300);
    EXPECT_GT(floorHits, 130);

    const Mesh& bunny = testmesh::bunny();
    const Tree tree = buildTree(bunny);
    for (const mat4& model : {mat4(1.0f), tilt}) {
        int i = 0;
        for (const Ray& local : raysAt(bunny, 120, 5, 0.02f)) {
            const Ray ray(vec3(model * vec4(local.origin, 1.0f)),
                          glm::normalize(vec3(model * vec4(local.direction, 0.0f))));
            vec3 point;
            const int triangle = expectSameAsPlainTraversal(tree.get(), bunny, ray, model, &point);
            if (++i % 3 != 0) continue; // brute force for a third of the rays
            float nearest = kFloatMax, d;
            for (int t = 0; t < bunny.triangleCount(); ++t) {
                vec3 p[3], at;
                for (int k = 0; k < 3; ++k) p[k] = vec3(model * vec4(bunny.corner(t, k), 1.0f));
                if (RayIntersectsTriangle(ray, p[0], p[1], p[2], at, d))
                    nearest = std::min(nearest, d);
            }
            ASSERT_EQ(triangle >= 0, nearest < kFloatMax);
            if (triangle >= 0) {
                EXPECT_NEAR(glm::distance(ray.origin, point), nearest, 1e-4f * nearest);
            }
        }
    }
}

// Rays that skim the bunny's surface: along a triangle's edge, a hair above, on or below its
// plane, tilted by a hair. Its triangles are small, so the walk passes over most groups of a
// leaf by their boxes, and grazing hits are where the triangle test strays from its triangle.
// Enough rays first that the tree answers from its packed copy.
TEST(OctreeRayHit, RaysSkimmingTheBunny) {
    const Mesh& bunny = testmesh::bunny();
    const Tree tree = buildTree(bunny);
    askUntilCopied(tree.get(), bunny, raysAt(bunny, 1000, 3, 0.02f));
    std::mt19937 rng(31);
    const float heights[] = {0.0f, 1e-7f, -1e-7f, 1e-6f, -1e-5f};
    const float tilts[] = {0.0f, 1e-4f, -1e-4f, 1e-3f, -1e-2f};
    int hits = 0;
    for (int i = 0; i < 3000; ++i) {
        const int t = static_cast<int>(rng() % static_cast<unsigned>(bunny.triangleCount()));
        const vec3 a = bunny.corner(t, 0), b = bunny.corner(t, 1), c = bunny.corner(t, 2);
        const vec3 normal = glm::normalize(glm::cross(b - a, c - a));
        if (!std::isfinite(normal.x)) continue;
        const vec3 along = glm::normalize(i % 2 ? b - a : (b + c) * 0.5f - a);
        const vec3 direction = glm::normalize(along + normal * tilts[rng() % 5]);
        const vec3 start = (i % 3 ? a : (a + b + c) / 3.0f) + normal * heights[rng() % 5];
        const Ray ray(start - direction * (0.001f + 0.05f * static_cast<float>(i % 4)), direction);
        hits += expectSameAsPlainTraversal(tree.get(), bunny, ray, mat4(1.0f)) >= 0;
    }
    EXPECT_GT(hits, 2000);
}

// A tree made by hand need not keep a node's triangles inside its box. A child whose box lies
// behind the best hit is still searched, and its triangle in front of that hit wins.
// Unit squares in the three axis planes of a lattice, and rays that start on its planes, edges
// and corners with direction components of every awkward size: boxes of zero width, rays that
// run a hair off a face, hits the triangle test accepts a rounding outside their triangle. The
// passes over subtrees must never lose the plain traversal's answer.
TEST(OctreeRayHit, LatticeRaysAlongAndNearlyAlongItsPlanes) {
    const Mesh m = testmesh::axisPlaneLattice(10, 0.1f);
    const Tree tree = buildTree(m);
    std::mt19937 rng(23);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const float sizes[] = {0.0f, -0.0f, 1e-35f, -1e-30f, 1e-7f, -3e-6f, 1.0f, -1.0f};
    const mat4 shifted = glm::translate(mat4(1.0f), vec3(0.25f, 0.0f, -0.5f));
    int hits = 0;
    for (int i = 0; i < 3000; ++i) {
        const int a = static_cast<int>(rng() % static_cast<unsigned>(m.triangleCount()));
        const int b = static_cast<int>(rng() % static_cast<unsigned>(m.triangleCount()));
        vec3 origin = m.corner(a, 0) + (m.corner(b, 1) - m.corner(a, 0)) * (unit(rng) * 1.5f);
        if (i % 4 == 0) origin = m.corner(a, 1);
        if (i % 4 == 1) origin[rng() % 3] = m.corner(a, 2)[static_cast<int>(rng() % 3)];
        vec3 direction = m.corner(b, 2) - origin;
        for (int axis = 0; axis < 3; ++axis)
            if (rng() % 3 == 0) direction[axis] = sizes[rng() % 8];
        if (glm::length(direction) > 1e-3f && i % 2 == 0) direction = glm::normalize(direction);
        const Ray ray(origin, direction);
        for (const mat4& model : {mat4(1.0f), shifted})
            hits += expectSameAsPlainTraversal(tree.get(), m, ray, model) >= 0;
    }
    EXPECT_GT(hits, 1500);
}

TEST(OctreeRayHit, HandMadeBoxesBehindTheBestHitAreStillSearched) {
    // Small triangles, so that no rounding bound is needed to keep a box in the search.
    const float s = 0.01f;
    Mesh m;
    for (float z : {0.0f, 3.0f, -2.0f})
        for (const vec3& p : {vec3(-s, -s, z), vec3(s, -s, z), vec3(0, s, z)}) m.add(p);
    m.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8}; // at z = 0, 3 and -2
    const auto box = [s](float z0, float z1) { return AABB(vec3(-s, -s, z0), vec3(s, s, z1)); };
    Tree root(new OctreeNode());
    root->bounds = root->worldBounds = box(-2, 3);
    root->children[0] = new OctreeNode();
    root->children[0]->triangles = {0};
    root->children[0]->bounds = root->children[0]->worldBounds = box(0, 0);
    // Slot 1's box holds only the triangle at z = -2, behind the first hit, but its list also
    // has the one at z = 3.
    root->children[1] = new OctreeNode();
    root->children[1]->triangles = {2, 1};
    root->children[1]->bounds = root->children[1]->worldBounds = box(-2, -2);
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    EXPECT_EQ(expectSameAsPlainTraversal(root.get(), m, ray, mat4(1.0f)), 1);
}

// A built tree edited so that an inner node has a list of its own, and a ray of half length.
// Inside that node the list's best is a ray parameter, twice its hit's distance, so a grandchild
// beyond the distance of the nearer sibling still wins there, and then loses to that sibling;
// passed over, it would leave the list's hit, nearer than the sibling's, to win.
TEST(OctreeRayHit, AnInnerNodesOwnListUnderAShortDirection) {
    Mesh m;
    for (float x : {2.0f, 2.5f, 3.0f})
        for (const vec3& p : {vec3(x, 0, 0), vec3(x, 0.1f, 0), vec3(x, 0, 0.1f)}) m.add(p);
    m.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8}; // at x = 2, 2.5 and 3
    const auto box = [](float x0, float x1) { return AABB(vec3(x0, 0, 0), vec3(x1, 0.1f, 0.1f)); };
    Tree tree = buildTree(m); // one leaf, remembered as built, so its queries pass over
    ASSERT_TRUE(tree->isLeaf());
    tree->triangles.clear();
    OctreeNode* withList = tree->children[0] = new OctreeNode();
    withList->triangles = {0};
    withList->bounds = withList->worldBounds = box(2, 3);
    withList->children[0] = new OctreeNode();
    withList->children[0]->triangles = {2};
    withList->children[0]->bounds = withList->children[0]->worldBounds = box(3, 3);
    OctreeNode* sibling = tree->children[1] = new OctreeNode();
    sibling->triangles = {1};
    sibling->bounds = sibling->worldBounds = box(1.5f, 2.5f); // entered first
    const Ray ray(vec3(0, 0.02f, 0.02f), vec3(0.5f, 0, 0));
    EXPECT_EQ(expectSameAsPlainTraversal(tree.get(), m, ray, mat4(1.0f)), 1);
}

TEST(OctreeRayHit, TiesInALeafKeepTheFirstListed) {
    Mesh m;
    for (const vec3& p : {vec3(-1, -1, 0), vec3(1, -1, 0), vec3(0, 1, 0)}) m.add(p);
    m.indices = {0, 1, 2, 2, 1, 0};
    for (const std::vector<int>& list : {std::vector<int>{0, 1}, std::vector<int>{1, 0}}) {
        Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, list, 0));
        vec3 point;
        int triangle = -1;
        ASSERT_TRUE(meshGeometry::TraverseOctreeForRayHit(
            tree.get(), Ray(vec3(0, 0, 5), vec3(0, 0, -1)), mat4(1.0f), m.vertices, m.indices,
            point, triangle));
        EXPECT_EQ(triangle, list[0]);
        EXPECT_EQ(point, vec3(0.0f));
    }
}

TEST(OctreeRayHit, BadInputIsAMissOrPassedOver) {
    const Mesh m = testmesh::randomSoup(300, 2.0f, 33);
    const Tree tree = buildTree(m);
    vec3 point(3.0f);
    int triangle = 3;
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    const auto hit = [&](const OctreeNode* root, const Ray& r, const Mesh& mesh) {
        return meshGeometry::TraverseOctreeForRayHit(const_cast<OctreeNode*>(root), r, mat4(1.0f),
                                                     mesh.vertices, m.indices, point, triangle);
    };
    EXPECT_FALSE(hit(nullptr, ray, m));
    EXPECT_FALSE(hit(tree.get(), Ray(ray.origin, vec3(0.0f)), m)); // zero direction
    EXPECT_FALSE(hit(tree.get(), Ray(vec3(NAN), ray.direction), m));
    Mesh withNan = m;
    for (auto& v : withNan.vertices) v.position.x = NAN;
    EXPECT_FALSE(hit(tree.get(), ray, withNan));
    EXPECT_EQ(point, vec3(3.0f)) << "a miss leaves the outputs alone";
    EXPECT_EQ(triangle, 3);
    // Too short an index array: the numbers past its end are passed over.
    Mesh half = m;
    half.indices.resize(m.indices.size() / 2);
    const int t = expectSameAsPlainTraversal(tree.get(), half, ray, mat4(1.0f));
    EXPECT_LT(3 * t + 2, static_cast<int>(half.indices.size()));
}

TEST(OctreeCandidates, RayAndRadiusListsFollowTheBoxes) {
    const Tree tree = buildTree(testmesh::randomSoup(2000, 4.0f, 41));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(-2.0f, 2.0f);
    for (int i = 0; i < 60; ++i) {
        // The ray takes a node's list where it meets its box and every ancestor's; the sphere
        // takes the leaves' lists likewise. Both append.
        const vec3 centre(unit(rng), unit(rng), unit(rng));
        const Ray ray(centre * 3.0f,
                      glm::normalize(vec3(unit(rng), unit(rng), unit(rng)) - centre));
        const float radius = i % 2 ? 0.3f : -0.3f; // the sign plays no part
        std::vector<int> viaRay{-5}, viaRadius{-5}, expectedRay{-5}, expectedRadius{-5};
        findTrianglesInOctree(tree.get(), ray, viaRay);
        findTrianglesInOctreeInRadius(tree.get(), centre, radius, mat4(0.0f), viaRadius);
        std::function<void(const OctreeNode*, bool, bool)> walk = [&](const OctreeNode* n,
                                                                      bool byRay, bool bySphere) {
            if (!n) return;
            byRay = byRay && rayIntersectsAABB(ray, n->bounds.min, n->bounds.max);
            bySphere = bySphere && AABBIntersectsSphere(n->worldBounds, centre, radius);
            if (byRay)
                expectedRay.insert(expectedRay.end(), n->triangles.begin(), n->triangles.end());
            if (bySphere && n->isLeaf())
                expectedRadius.insert(expectedRadius.end(), n->triangles.begin(),
                                      n->triangles.end());
            for (const OctreeNode* c : n->children) walk(c, byRay, bySphere);
        };
        walk(tree.get(), true, true);
        EXPECT_EQ(viaRay, expectedRay);
        EXPECT_EQ(viaRadius, expectedRadius);
    }
    std::vector<int> untouched{1, 2};
    findTrianglesInOctree(nullptr, Ray(vec3(0), vec3(1, 0, 0)), untouched);
    findTrianglesInOctreeInRadius(nullptr, vec3(0), 1e9f, mat4(1.0f), untouched);
    EXPECT_EQ(untouched, (std::vector<int>{1, 2}));
}

TEST(OctreeSphereAndPlane, MatchBruteForceOverEveryTriangle) {
    for (const Mesh& m : {testmesh::randomSoup(2500, 3.0f, 51), testmesh::bunny()}) {
        const Tree tree = buildTree(m);
        const std::vector<int> treeOrder = entriesInTreeOrder(tree.get());
        std::mt19937 rng(9);
        std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
        for (int i = 0; i < 12; ++i) {
            const vec3 centre(unit(rng), unit(rng), unit(rng));
            const float radius = 0.1f + 0.4f * std::fabs(unit(rng));
            const vec3 normal = glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
            const float tolerance = i % 3 == 0 ? 0.0f : 0.02f;
            std::vector<int> sphere{42}, near{-1}, expectedSphere, expectedNear{-1};
            for (int t : treeOrder) {
                const vec3 d = centroidOf(m, t) - centre;
                if (glm::dot(d, d) <= radius * radius) expectedSphere.push_back(t);
                float s[3];
                for (int k = 0; k < 3; ++k) s[k] = glm::dot(m.corner(t, k) - centre, normal);
                if (std::fabs(s[0]) <= tolerance || std::fabs(s[1]) <= tolerance ||
                    std::fabs(s[2]) <= tolerance || s[0] * s[1] < 0 || s[1] * s[2] < 0 ||
                    s[0] * s[2] < 0)
                    expectedNear.push_back(t);
            }
            meshGeometry::findTrianglesInSphere(tree.get(), centre, radius, m.vertices, m.indices,
                                                sphere);
            EXPECT_EQ(sphere, expectedSphere) << "replaced, in tree order";
            findTrianglesNearPlane(tree.get(), centre, normal, m.vertices, m.indices, tolerance,
                                   near);
            EXPECT_EQ(near, expectedNear) << "appended, in tree order";
        }
    }
}

TEST(OctreeSphereAndPlane, BoundaryCases) {
    Mesh m;
    // Triangle 0 has vertices at +1 and -1 from the plane z = 0; 1 lies in it; 2 has one vertex
    // exactly 0.25 away and the rest farther; 3 lies wholly above.
    for (const vec3& p : {vec3(0, 0, 1), vec3(1, 0, -1), vec3(0, 1, 1), vec3(5, 0, 0),
                          vec3(6, 0, 0), vec3(5, 1, 0), vec3(0, 5, 0.25f), vec3(1, 5, 0.5f),
                          vec3(0, 6, 0.5f), vec3(3, 3, 2), vec3(4, 3, 2), vec3(3, 4, 2)})
        m.add(p);
    m.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    const Tree tree = buildTree(m);
    // Four triangles make one leaf: results come in index order.
    for (const auto& [tolerance, expected] :
         {std::pair(0.0f, std::vector<int>{0, 1}), std::pair(0.25f, std::vector<int>{0, 1, 2})}) {
        std::vector<int> result;
        findTrianglesNearPlane(tree.get(), vec3(0), vec3(0, 0, 1), m.vertices, m.indices, tolerance,
                               result);
        EXPECT_EQ(result, expected) << tolerance;
    }
    // A box that touches the slab exactly stays in the search: triangle 2 alone.
    const Tree alone(buildOctreeFromTriangleIndices(m.positions, m.indices, {2}, 0));
    std::vector<int> touching;
    findTrianglesNearPlane(alone.get(), vec3(0), vec3(0, 0, 1), m.vertices, m.indices, 0.25f,
                           touching);
    EXPECT_EQ(touching, std::vector<int>{2});
    // A centroid at exactly the radius counts; a vertex inside with the centroid outside not.
    std::vector<int> inSphere;
    meshGeometry::findTrianglesInSphere(tree.get(), centroidOf(m, 3) + vec3(0, 0, 2), 2.0f,
                                        m.vertices, m.indices, inSphere);
    EXPECT_EQ(inSphere, (std::vector<int>{3}));
    meshGeometry::findTrianglesInSphere(tree.get(), vec3(3, 3, 2.5f), 0.6f, m.vertices, m.indices,
                                        inSphere);
    EXPECT_TRUE(inSphere.empty());
    // A null root leaves the list alone, even here; numbers past the index array are skipped.
    std::vector<int> keep{9};
    meshGeometry::findTrianglesInSphere(nullptr, vec3(0), 100.0f, m.vertices, m.indices, keep);
    findTrianglesNearPlane(nullptr, vec3(0), vec3(0, 0, 1), m.vertices, m.indices, 1.0f, keep);
    EXPECT_EQ(keep, (std::vector<int>{9}));
    const std::vector<unsigned int> shorter(m.indices.begin(), m.indices.begin() + 8);
    meshGeometry::findTrianglesInSphere(tree.get(), vec3(0), 100.0f, m.vertices, shorter, keep);
    EXPECT_EQ(keep, (std::vector<int>{0, 1}));
}

TEST(OctreeEmptyMemo, AnswersFromTheMemoOnceSet) {
    EXPECT_TRUE(isSubtreeEmptyCached(nullptr));
    Tree tree = buildTree(testmesh::randomSoup(200, 3.0f, 61));
    EXPECT_FALSE(isSubtreeEmptyCached(tree.get()));
    EXPECT_TRUE(tree->cachedEmptyValid && !tree->cachedEmpty);
    // Only slots up to the first non-empty child were visited.
    int first = 0;
    while (!tree->children[first]) ++first;
    for (int s = first; s < 8; ++s)
        EXPECT_EQ(tree->children[s] && tree->children[s]->cachedEmptyValid, s == first) << s;
    // A hand-made empty node is remembered as empty; a later change is not seen.
    OctreeNode empty;
    EXPECT_TRUE(isSubtreeEmptyCached(&empty));
    empty.triangles.push_back(1);
    EXPECT_TRUE(isSubtreeEmptyCached(&empty));
    empty.cachedEmptyValid = false;
    EXPECT_FALSE(isSubtreeEmptyCached(&empty));
    // An interior node with no child in slot 0 is not a leaf.
    OctreeNode parent, child;
    parent.children[5] = &child;
    EXPECT_FALSE(parent.isLeaf());
    parent.children[5] = nullptr;
}

// Read-only queries from several threads on one finished tree, each with its own result.
TEST(OctreeQueryThreads, ConcurrentQueriesOnOneTreeAgree) {
    const Mesh& m = testmesh::bunny();
    const Tree tree = buildTree(m);
    const std::vector<Ray> rays = raysAt(m, 200, 71, 0.02f);
    using Answers = std::pair<std::vector<int>, std::vector<vec3>>;
    const auto ask = [&](Answers& a) {
        for (const Ray& ray : rays) {
            vec3 p(0.0f);
            int t = -1;
            meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), m.vertices,
                                                  m.indices, p, t);
            a.first.push_back(t);
            a.second.push_back(p);
            findTrianglesInOctree(tree.get(), ray, a.first);
        }
        std::vector<int> sphere;
        meshGeometry::findTrianglesInSphere(tree.get(), vec3(0), 0.5f, m.vertices, m.indices,
                                            sphere);
        a.first.insert(a.first.end(), sphere.begin(), sphere.end());
        findTrianglesNearPlane(tree.get(), vec3(0), vec3(0, 1, 0), m.vertices, m.indices, 0.01f,
                               a.first);
    };
    Answers alone;
    ask(alone);
    std::vector<Answers> answers(4);
    std::vector<std::thread> threads;
    for (Answers& a : answers) threads.emplace_back([&] { ask(a); });
    for (std::thread& t : threads) t.join();
    for (const Answers& a : answers) EXPECT_TRUE(a == alone);
}
