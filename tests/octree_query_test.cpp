#include "octree_test_util.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <thread>

#include <glm/gtc/matrix_transform.hpp>

using namespace octest;

namespace {

std::vector<int> sorted(std::vector<int> v) {
    std::sort(v.begin(), v.end());
    return v;
}

vec3 centroidOf(const Mesh& m, int t) {
    return (m.vertices[m.indices[3 * t]].position + m.vertices[m.indices[3 * t + 1]].position +
            m.vertices[m.indices[3 * t + 2]].position) /
           3.0f;
}

std::vector<Ray> raysAt(const Mesh& m, int count, unsigned seed, float spread) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<Ray> rays;
    for (int i = 0; i < count; ++i) {
        // Aim near a vertex so that most rays hit something.
        const vec3 target = m.positions[static_cast<size_t>(rng() % m.positions.size())] +
                            spread * vec3(unit(rng), unit(rng), unit(rng));
        const vec3 origin = target + 3.0f * glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
        rays.emplace_back(origin, glm::normalize(target - origin));
    }
    return rays;
}

// The nearest hit by brute force over every triangle, as its distance along the ray.
bool bruteForceDistance(const Mesh& m, const Ray& ray, const mat4& model, float& distance) {
    bool hit = false;
    distance = kFloatMax;
    for (int t = 0; t < m.triangleCount(); ++t) {
        vec3 p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = vec3(model * vec4(m.vertices[m.indices[3 * t + k]].position, 1.0f));
        vec3 point;
        float d;
        if (RayIntersectsTriangle(ray, p[0], p[1], p[2], point, d) && d < distance) {
            distance = d;
            hit = true;
        }
    }
    return hit;
}

} // namespace

TEST(OctreeRayHit, MatchesTheReferenceTraversalAndBruteForce) {
    const mat4 placed = glm::scale(glm::rotate(glm::translate(mat4(1.0f), vec3(0.5f, -2, 1)), 1.1f,
                                               glm::normalize(vec3(0.2f, 1, 0.4f))),
                                   vec3(1.5f));
    struct Case {
        Mesh mesh;
        float spread;
    };
    std::vector<Case> cases;
    cases.push_back({randomSoup(3000, 4.0f, 31), 0.05f});
    cases.push_back({uvSphere(48, 24, 1.0f), 0.01f});
    cases.push_back({loadBunny(), 0.02f});
    for (const Case& c : cases) {
        const Tree tree = buildTree(c.mesh);
        for (const mat4& model : {mat4(1.0f), placed}) {
            int hits = 0, checked = 0;
            for (const Ray& local : raysAt(c.mesh, 300, 5, c.spread)) {
                const Ray ray(vec3(model * vec4(local.origin, 1.0f)),
                              glm::normalize(vec3(model * vec4(local.direction, 0.0f))));
                vec3 point(7.0f), expectedPoint(7.0f);
                int triangle = -7, expectedTriangle = -7;
                const bool hit = meshGeometry::TraverseOctreeForRayHit(
                    tree.get(), ray, model, c.mesh.vertices, c.mesh.indices, point, triangle);
                const bool expected =
                    referenceRayHit(tree.get(), ray, model, c.mesh.vertices, c.mesh.indices,
                                    expectedPoint, expectedTriangle);
                ASSERT_EQ(hit, expected);
                EXPECT_TRUE(sameBits(point, expectedPoint));
                EXPECT_EQ(triangle, expectedTriangle);
                // Brute force over every triangle for a sample of the rays.
                if (++checked % 4 != 0) {
                    hits += hit;
                    continue;
                }
                float distance;
                ASSERT_EQ(hit, bruteForceDistance(c.mesh, ray, model, distance));
                if (!hit) {
                    EXPECT_EQ(point, vec3(7.0f)) << "a miss leaves the outputs alone";
                    EXPECT_EQ(triangle, -7);
                    continue;
                }
                ++hits;
                EXPECT_NEAR(glm::distance(ray.origin, point), distance, 1e-4f * distance);
            }
            EXPECT_GT(hits, 200);
        }
    }
}

// The traversal enters children nearest first and passes over those that cannot win; these
// cases are built to punish a wrong pass: coincident triangles in different slots, a node with
// its own list and children, rays of any length, and large triangles met at grazing angles,
// where the test's rounding moves the reported point far from the triangle.
TEST(OctreeRayHit, PassesOverNothingThatCouldWin) {
    Mesh m = randomSoup(1500, 6.0f, 91);
    // A large floor, a copy of it lifted by a hair, and a second copy exactly coincident.
    for (float y : {-1.0f, -1.0f + 1e-6f, -1.0f}) {
        const auto n = static_cast<unsigned>(m.positions.size());
        m.add(vec3(-50, y, -50));
        m.add(vec3(50, y, -50));
        m.add(vec3(-50, y, 50));
        m.add(vec3(50, y, 50));
        m.indices.insert(m.indices.end(), {n, n + 1, n + 2, n + 1, n + 3, n + 2});
    }
    // A node with its own list and children: 40 soup triangles in the root's own list; slot 2
    // the first and the lifted floor, a flat box; slot 5 part of the soup; slot 6 the rest of
    // the soup, overlapping slot 5, and the floor's coincident copy. Seen from above, slot 6 is
    // entered first, yet on the floor slot 2's copy must win the tie.
    const int floor = 1500;
    Tree root(new OctreeNode());
    for (int t = 0; t < 40; ++t) root->triangles.push_back(t);
    std::vector<int> flat{floor, floor + 1, floor + 2, floor + 3}, low, high;
    for (int t = 40; t < 800; ++t) low.push_back(t);
    for (int t = 700; t < floor; ++t) high.push_back(t);
    high.insert(high.end(), {floor + 4, floor + 5});
    root->children[2] = buildOctreeFromTriangleIndices(m.positions, m.indices, flat, 1);
    root->children[5] = buildOctreeFromTriangleIndices(m.positions, m.indices, low, 1);
    root->children[6] = buildOctreeFromTriangleIndices(m.positions, m.indices, high, 1);
    root->bounds = root->worldBounds = AABB(vec3(-60), vec3(60));
    const Tree built = buildTree(m);

    std::mt19937 rng(17);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const mat4 tilt = glm::rotate(mat4(1.0f), 0.3f, vec3(1, 0, 0));
    int hits = 0, floorHits = 0;
    for (int i = 0; i < 1500; ++i) {
        vec3 origin(unit(rng) * 8, unit(rng) * 3, unit(rng) * 8);
        vec3 direction = glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
        if (i % 3 == 0) { // grazing the floor
            origin.y = -1.0f + std::pow(10.0f, -1.0f - 5.0f * std::fabs(unit(rng)));
            direction.y = -std::pow(10.0f, -1.0f - 6.0f * std::fabs(unit(rng)));
        }
        const float lengths[] = {1.0f, 0.25f, 7.0f};
        direction *= lengths[i % 3];
        const Ray ray(origin, direction);
        for (const OctreeNode* tree : {root.get(), built.get()})
            for (const mat4& model : {mat4(1.0f), tilt}) {
                vec3 point(9.0f), expectedPoint(9.0f);
                int triangle = -9, expectedTriangle = -9;
                const bool hit =
                    meshGeometry::TraverseOctreeForRayHit(const_cast<OctreeNode*>(tree), ray, model,
                                                          m.vertices, m.indices, point, triangle);
                const bool expected = referenceRayHit(tree, ray, model, m.vertices, m.indices,
                                                      expectedPoint, expectedTriangle);
                ASSERT_EQ(hit, expected) << "ray " << i;
                ASSERT_TRUE(sameBits(point, expectedPoint)) << "ray " << i;
                ASSERT_EQ(triangle, expectedTriangle) << "ray " << i;
                hits += hit;
                floorHits += tree == root.get() && (triangle == floor || triangle == floor + 1);
            }
    }
    EXPECT_GT(hits, 2000);
    EXPECT_GT(floorHits, 200);
}

TEST(OctreeRayHit, TiesKeepTheEarlierCandidate) {
    // Two coincident triangles under the ray in one leaf: the first listed wins.
    Mesh m;
    m.add(vec3(-1, -1, 0));
    m.add(vec3(1, -1, 0));
    m.add(vec3(0, 1, 0));
    m.indices = {0, 1, 2, 2, 1, 0};
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    for (const std::vector<int>& list : {std::vector<int>{0, 1}, std::vector<int>{1, 0}}) {
        Tree tree(buildOctreeFromTriangleIndices(m.positions, m.indices, list, 0));
        vec3 point;
        int triangle = -1;
        ASSERT_TRUE(meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), m.vertices,
                                                          m.indices, point, triangle));
        EXPECT_EQ(triangle, list[0]);
        EXPECT_EQ(point, vec3(0.0f));
    }
    // Across children: twelve copies of one triangle chain down to one leaf, plus a triangle
    // elsewhere that splits the root; the chain's first copy wins over the later ones.
    Mesh c;
    c.add(vec3(-1, -1, 0));
    c.add(vec3(1, -1, 0));
    c.add(vec3(0, 1, 0));
    c.add(vec3(10, 10, 10));
    c.add(vec3(11, 10, 10));
    c.add(vec3(10, 11, 10));
    for (int i = 0; i < 12; ++i) c.indices.insert(c.indices.end(), {0u, 1u, 2u});
    c.indices.insert(c.indices.end(), {3u, 4u, 5u});
    std::vector<int> list = c.allTriangles();
    std::reverse(list.begin(), list.end());
    Tree tree(buildOctreeFromTriangleIndices(c.positions, c.indices, list, 0));
    vec3 point;
    int triangle = -1;
    ASSERT_TRUE(meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), c.vertices,
                                                      c.indices, point, triangle));
    EXPECT_EQ(triangle, 11);
}

TEST(OctreeRayHit, BadInputIsAMissOrPassedOver) {
    const Mesh m = uvSphere(16, 8, 1.0f);
    const Tree tree = buildTree(m);
    vec3 point(3.0f);
    int triangle = 3;
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    EXPECT_FALSE(meshGeometry::TraverseOctreeForRayHit(nullptr, ray, mat4(1.0f), m.vertices,
                                                       m.indices, point, triangle));
    // A zero direction misses every box; a NaN ray hits nothing.
    EXPECT_FALSE(meshGeometry::TraverseOctreeForRayHit(tree.get(), Ray(ray.origin, vec3(0.0f)),
                                                       mat4(1.0f), m.vertices, m.indices, point,
                                                       triangle));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE(meshGeometry::TraverseOctreeForRayHit(tree.get(), Ray(vec3(nan), ray.direction),
                                                       mat4(1.0f), m.vertices, m.indices, point,
                                                       triangle));
    // Too short an index array: the numbers past its end are passed over.
    std::vector<unsigned int> half(m.indices.begin(), m.indices.begin() + m.indices.size() / 2);
    vec3 p1, p2;
    int t1 = -1, t2 = -1;
    const bool h1 = meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), m.vertices,
                                                          half, p1, t1);
    const bool h2 = referenceRayHit(tree.get(), ray, mat4(1.0f), m.vertices, half, p2, t2);
    EXPECT_EQ(h1, h2);
    EXPECT_EQ(t1, t2);
    if (h1) {
        EXPECT_LT(3 * t1 + 2, static_cast<int>(half.size()));
    }
    // NaN vertices are misses, not crashes.
    Mesh withNan = m;
    for (auto& v : withNan.vertices) v.position.x = nan;
    EXPECT_FALSE(meshGeometry::TraverseOctreeForRayHit(
        tree.get(), ray, mat4(1.0f), withNan.vertices, m.indices, point, triangle));
    EXPECT_EQ(point, vec3(3.0f));
    EXPECT_EQ(triangle, 3);
}

TEST(OctreeCandidates, RayAndRadiusListsCoverEveryTrueHit) {
    const Mesh m = randomSoup(2000, 4.0f, 41);
    const Tree tree = buildTree(m);
    for (const Ray& ray : raysAt(m, 60, 6, 0.05f)) {
        std::vector<int> result{-5};
        findTrianglesInOctree(tree.get(), ray, result);
        ASSERT_EQ(result.front(), -5) << "appended, not replaced";
        std::vector<int> expected{-5};
        // Oracle: a node's list is reported when the ray meets its box and every ancestor's.
        std::function<void(const OctreeNode*)> walk = [&](const OctreeNode* n) {
            if (!n || !rayIntersectsAABB(ray, n->bounds.min, n->bounds.max)) return;
            expected.insert(expected.end(), n->triangles.begin(), n->triangles.end());
            for (const OctreeNode* c : n->children) walk(c);
        };
        walk(tree.get());
        EXPECT_EQ(result, expected);
        // Every triangle the ray really hits is a candidate.
        for (int t = 0; t < m.triangleCount(); ++t) {
            vec3 p;
            float d;
            if (RayIntersectsTriangle(ray, m.positions[m.indices[3 * t]],
                                      m.positions[m.indices[3 * t + 1]],
                                      m.positions[m.indices[3 * t + 2]], p, d)) {
                EXPECT_NE(std::find(result.begin(), result.end(), t), result.end());
            }
        }
    }
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(-2.0f, 2.0f);
    for (int i = 0; i < 40; ++i) {
        const vec3 centre(unit(rng), unit(rng), unit(rng));
        const float radius = i % 2 ? 0.3f : -0.3f; // the sign plays no part
        std::vector<int> result;
        findTrianglesInOctreeInRadius(tree.get(), centre, radius, mat4(0.0f), result);
        const std::vector<int> once = result;
        findTrianglesInOctreeInRadius(tree.get(), centre, radius, mat4(0.0f), result);
        ASSERT_EQ(result.size(), 2 * once.size()) << "appended, not replaced";
        std::vector<int> expected;
        std::function<void(const OctreeNode*)> walk = [&](const OctreeNode* n) {
            if (!n || !AABBIntersectsSphere(n->worldBounds, centre, radius)) return;
            if (n->isLeaf())
                expected.insert(expected.end(), n->triangles.begin(), n->triangles.end());
            for (const OctreeNode* c : n->children) walk(c);
        };
        walk(tree.get());
        EXPECT_EQ(once, expected);
        for (int t = 0; t < m.triangleCount(); ++t)
            for (int k = 0; k < 3; ++k)
                if (glm::distance(m.positions[m.indices[3 * t + k]], centre) < 0.299f) {
                    EXPECT_NE(std::find(once.begin(), once.end(), t), once.end());
                }
    }
    std::vector<int> untouched{1, 2};
    findTrianglesInOctree(nullptr, Ray(vec3(0), vec3(1, 0, 0)), untouched);
    findTrianglesInOctreeInRadius(nullptr, vec3(0), 1e9f, mat4(1.0f), untouched);
    EXPECT_EQ(untouched, (std::vector<int>{1, 2}));
}

TEST(OctreeSphereAndPlane, MatchBruteForceOverEveryTriangle) {
    for (const Mesh& m : {randomSoup(2500, 3.0f, 51), loadBunny()}) {
        const Tree tree = buildTree(m);
        const std::vector<int> treeOrder = entriesInTreeOrder(tree.get());
        std::mt19937 rng(9);
        std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
        for (int i = 0; i < 12; ++i) {
            const vec3 centre(unit(rng), unit(rng), unit(rng));
            const float radius = 0.1f + 0.4f * std::fabs(unit(rng));
            std::vector<int> result{42, 43};
            meshGeometry::findTrianglesInSphere(tree.get(), centre, radius, m.vertices, m.indices,
                                                result);
            std::vector<int> expected;
            for (int t : treeOrder) {
                const vec3 d = centroidOf(m, t) - centre;
                if (glm::dot(d, d) <= radius * radius) expected.push_back(t);
            }
            EXPECT_EQ(result, expected) << "replaced, in tree order";

            const vec3 normal = glm::normalize(vec3(unit(rng), unit(rng), unit(rng)));
            const float tolerance = i % 3 == 0 ? 0.0f : 0.02f;
            std::vector<int> near{-1};
            findTrianglesNearPlane(tree.get(), centre, normal, m.vertices, m.indices, tolerance,
                                   near);
            std::vector<int> expectedNear{-1};
            for (int t : treeOrder) {
                float d[3];
                for (int k = 0; k < 3; ++k)
                    d[k] = glm::dot(m.vertices[m.indices[3 * t + k]].position - centre, normal);
                if (std::fabs(d[0]) <= tolerance || std::fabs(d[1]) <= tolerance ||
                    std::fabs(d[2]) <= tolerance || d[0] * d[1] < 0 || d[1] * d[2] < 0 ||
                    d[0] * d[2] < 0)
                    expectedNear.push_back(t);
            }
            EXPECT_EQ(near, expectedNear) << "appended, in tree order";
        }
    }
}

TEST(OctreeSphereAndPlane, BoundaryCases) {
    Mesh m;
    // Triangle 0 with vertices at +1 and -1 from the plane z = 0; triangle 1 lying in it;
    // triangle 2 with one vertex exactly 0.25 away and the rest farther; 3 wholly above.
    for (const vec3& p : {vec3(0, 0, 1), vec3(1, 0, -1), vec3(0, 1, 1), vec3(5, 0, 0),
                          vec3(6, 0, 0), vec3(5, 1, 0), vec3(0, 5, 0.25f), vec3(1, 5, 0.5f),
                          vec3(0, 6, 0.5f), vec3(3, 3, 2), vec3(4, 3, 2), vec3(3, 4, 2)})
        m.add(p);
    m.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    const Tree tree = buildTree(m);
    std::vector<int> result;
    findTrianglesNearPlane(tree.get(), vec3(0), vec3(0, 0, 1), m.vertices, m.indices, 0.0f, result);
    EXPECT_EQ(sorted(result), (std::vector<int>{0, 1}));
    result.clear();
    findTrianglesNearPlane(tree.get(), vec3(0), vec3(0, 0, 1), m.vertices, m.indices, 0.25f,
                           result);
    EXPECT_EQ(sorted(result), (std::vector<int>{0, 1, 2}));

    // A centroid at exactly the radius counts; a triangle that only grazes the sphere does not.
    const vec3 c3 = centroidOf(m, 3);
    std::vector<int> inSphere;
    meshGeometry::findTrianglesInSphere(tree.get(), c3 + vec3(0, 0, 2), 2.0f, m.vertices, m.indices,
                                        inSphere);
    EXPECT_EQ(inSphere, (std::vector<int>{3}));
    meshGeometry::findTrianglesInSphere(tree.get(), vec3(3, 3, 2.5f), 0.6f, m.vertices, m.indices,
                                        inSphere);
    EXPECT_TRUE(inSphere.empty()) << "vertex inside, centroid outside";
    // A null root leaves the list alone, even here.
    std::vector<int> keep{9};
    meshGeometry::findTrianglesInSphere(nullptr, vec3(0), 100.0f, m.vertices, m.indices, keep);
    findTrianglesNearPlane(nullptr, vec3(0), vec3(0, 0, 1), m.vertices, m.indices, 1.0f, keep);
    EXPECT_EQ(keep, (std::vector<int>{9}));
    // Triangle numbers past the index array are passed over.
    const std::vector<unsigned int> shorter(m.indices.begin(), m.indices.begin() + 8);
    meshGeometry::findTrianglesInSphere(tree.get(), vec3(0), 100.0f, m.vertices, shorter, keep);
    EXPECT_EQ(sorted(keep), (std::vector<int>{0, 1}));
}

TEST(OctreeEmptyMemo, AnswersFromTheMemoOnceSet) {
    EXPECT_TRUE(isSubtreeEmptyCached(nullptr));
    const Mesh m = randomSoup(200, 3.0f, 61);
    Tree tree = buildTree(m);
    EXPECT_FALSE(isSubtreeEmptyCached(tree.get()));
    EXPECT_TRUE(tree->cachedEmptyValid);
    EXPECT_FALSE(tree->cachedEmpty);
    // Only slots up to the first non-empty child were visited.
    int first = 0;
    while (!tree->children[first]) ++first;
    EXPECT_TRUE(tree->children[first]->cachedEmptyValid);
    for (int s = first + 1; s < 8; ++s)
        if (tree->children[s]) {
            EXPECT_FALSE(tree->children[s]->cachedEmptyValid);
        }

    // A hand-made empty node is empty and remembered; a later change is not seen.
    OctreeNode empty;
    EXPECT_TRUE(isSubtreeEmptyCached(&empty));
    empty.triangles.push_back(1);
    EXPECT_TRUE(isSubtreeEmptyCached(&empty));
    empty.cachedEmptyValid = false;
    EXPECT_FALSE(isSubtreeEmptyCached(&empty));
}

// Read-only queries from several threads on one finished tree, each with its own result.
TEST(OctreeQueryThreads, ConcurrentQueriesOnOneTreeAgree) {
    const Mesh& m = loadBunny();
    const Tree tree = buildTree(m);
    const std::vector<Ray> rays = raysAt(m, 200, 71, 0.02f);
    struct Answers {
        std::vector<int> hits;
        std::vector<vec3> points;
        std::vector<int> sphere, plane, candidates;
    };
    const auto ask = [&](Answers& a) {
        for (const Ray& ray : rays) {
            vec3 p(0.0f);
            int t = -1;
            meshGeometry::TraverseOctreeForRayHit(tree.get(), ray, mat4(1.0f), m.vertices,
                                                  m.indices, p, t);
            a.hits.push_back(t);
            a.points.push_back(p);
            findTrianglesInOctree(tree.get(), ray, a.candidates);
        }
        meshGeometry::findTrianglesInSphere(tree.get(), vec3(0), 0.5f, m.vertices, m.indices,
                                            a.sphere);
        findTrianglesNearPlane(tree.get(), vec3(0), vec3(0, 1, 0), m.vertices, m.indices, 0.01f,
                               a.plane);
    };
    Answers alone;
    ask(alone);
    std::vector<Answers> answers(4);
    std::vector<std::thread> threads;
    for (Answers& a : answers) threads.emplace_back([&] { ask(a); });
    for (std::thread& t : threads) t.join();
    for (const Answers& a : answers) {
        EXPECT_EQ(a.hits, alone.hits);
        EXPECT_EQ(a.points, alone.points);
        EXPECT_EQ(a.sphere, alone.sphere);
        EXPECT_EQ(a.plane, alone.plane);
        EXPECT_EQ(a.candidates, alone.candidates);
    }
}
