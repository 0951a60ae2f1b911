// A built tree answers rays from a packed copy of itself; a hand-made tree, or the same nodes
// under a hand-made root, are walked node by node. Both must report the very same hit, above
// all where the packed copy's quicker box test is least sure of itself: rays along the axes,
// boxes of zero width, origins on box faces, rays that run within a face, extreme scales, NaN
// corners.
#include <korvex/bvh.h>
#include <korvex/ray.h>

#include "bvh_oracle.h"
#include "test_meshes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>

using bvhtest::bruteForce;
using bvhtest::Hit;
using bvhtest::sameHit;

namespace {

Hit query(const BVHNode* root, const Ray& ray, float limit = kFloatMax) {
    Hit h;
    h.distance = limit;
    h.hit = RayIntersectsBVH(ray, root, h.point, h.distance);
    return h;
}

std::vector<Triangle> lattice(int n, float scale) {
    return testmesh::axisPlaneLattice(n, scale).soup();
}

// Rays that start on corners, faces and edges of the geometry, along axes and within faces,
// with direction components of every awkward size.
std::vector<Ray> awkwardRays(const std::vector<Triangle>& tris, size_t count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const float sizes[] = {0.0f, -0.0f, 1e-35f, -1e-30f, 1e-7f, 1.0f, -1.0f, 3e30f, 1e35f};
    std::vector<Ray> rays;
    for (size_t i = 0; i < count; ++i) {
        const Triangle& a = tris[rng() % tris.size()];
        const Triangle& b = tris[rng() % tris.size()];
        vec3 origin = a.p0 + (b.p1 - a.p0) * (unit(rng) * 1.5f);
        if (i % 4 == 0) origin = a.p1; // on a corner, so on faces of several boxes
        if (i % 4 == 1) origin[rng() % 3] = a.p2[rng() % 3];
        vec3 direction = b.p2 - origin;
        for (int axis = 0; axis < 3; ++axis)
            if (rng() % 4 == 0) direction[axis] = sizes[rng() % 9];
        if (i % 9 == 0) direction = vec3(0.0f), direction[rng() % 3] = unit(rng) < 0 ? -1.0f : 2.0f;
        rays.emplace_back(origin, direction);
    }
    return rays;
}

// Every ray through the built tree (packed), then through the same nodes under a hand-made
// root (walked): the answers must agree bit for bit, with and without a limit.
void expectPackedMatchesWalk(const std::vector<Triangle>& tris, const std::vector<Ray>& rays,
                             const char* what) {
    std::unique_ptr<BVHNode> built = createBVHNode(tris, 0);
    ASSERT_TRUE(built && built->left) << what;
    std::vector<Hit> packed, limited;
    for (const Ray& ray : rays) {
        packed.push_back(query(built.get(), ray));
        limited.push_back(query(built.get(), ray, packed.back().distance * 1.0001f));
    }
    BVHNode walked;
    walked.bounds = built->bounds;
    walked.left = std::move(built->left);
    walked.right = std::move(built->right);
    size_t hits = 0, mismatches = 0;
    for (size_t i = 0; i < rays.size(); ++i) {
        const Hit expected = query(&walked, rays[i]);
        hits += expected.hit;
        mismatches += !sameHit(packed[i], expected);
        mismatches += !sameHit(limited[i], query(&walked, rays[i], expected.distance * 1.0001f));
    }
    EXPECT_EQ(mismatches, 0u) << what;
    EXPECT_GT(hits, rays.size() / 20) << what;
}

} // namespace

TEST(BvhPacked, AnswersAsTheNodeWalkWhereTheQuickBoxTestIsUnsure) {
    const std::vector<Triangle> soup = testmesh::randomSoup(3000, 20.0f, 4).soup();
    expectPackedMatchesWalk(soup, awkwardRays(soup, 3000, 1), "soup");
    for (float scale : {1.0f, 1e-2f, 1e9f, 3.0e-3f}) {
        const std::vector<Triangle> grid = lattice(14, scale);
        expectPackedMatchesWalk(grid, awkwardRays(grid, 3000, 2), "lattice");
    }
    const std::vector<Triangle> bunny = testmesh::bunny().soup();
    expectPackedMatchesWalk(bunny, awkwardRays(bunny, 2000, 3), "bunny");

    // NaN and infinite corners leave boxes that do not nest, so every parent box is tested
    // again; the rays still come from the finite triangles.
    std::vector<Triangle> broken = soup;
    for (size_t i = 0; i < broken.size(); i += 97) broken[i].p1.y = NAN;
    for (size_t i = 5; i < broken.size(); i += 131) broken[i].p2.x = INFINITY;
    expectPackedMatchesWalk(broken, awkwardRays(soup, 2000, 5), "non-finite corners");
}

// A ray a hair off a face plane of the lattice leaves the plane's boxes, by the span of their
// slabs, right at its origin; but the triangle test, within its rounding, still hits a square
// of that plane at t = 0.5. A built tree must not pass those boxes over.
TEST(BvhPacked, RaysAHairOffAFacePlaneStillFindTheirNearestHit) {
    const std::vector<Triangle> grid = lattice(14, 1.0f);
    std::unique_ptr<BVHNode> built = createBVHNode(grid, 0);
    const Ray rays[] = {
        Ray(vec3(10, 2, 11), vec3(2, 1e-7f, 0)), Ray(vec3(5, 1, 6), vec3(8, 1, 1e-7f)),
        Ray(vec3(4.14145565f, 7, 13.2357588f), vec3(-0.14145565f, 1e-35f, -0.235758781f))};
    for (const Ray& ray : rays) {
        const Hit expected = bruteForce(grid, ray);
        ASSERT_TRUE(expected.hit);
        EXPECT_TRUE(sameHit(query(built.get(), ray), expected)) << expected.distance;
    }
}

// Trees come and go; a root's packed copy must go with it, or a later tree at the same address
// would answer from the old one. Many trees alive at once must each answer for itself.
TEST(BvhPacked, EachTreeAnswersForItselfAcrossBuildsAndReleases) {
    std::vector<std::vector<Triangle>> soups;
    for (unsigned s = 0; s < 6; ++s)
        soups.push_back(testmesh::randomSoup(400, 10.0f, 50 + s).soup());
    const Ray ray(vec3(0.3f, -0.2f, 30.0f), vec3(0.01f, 0.02f, -1.0f));
    for (int round = 0; round < 60; ++round) {
        const auto& tris = soups[round % soups.size()];
        std::unique_ptr<BVHNode> root = createBVHNode(tris, 0);
        ASSERT_TRUE(sameHit(query(root.get(), ray), bruteForce(tris, ray))) << round;
        if (round % 2) getBVHRoot(std::move(root));
    }
    std::vector<std::unique_ptr<BVHNode>> alive;
    for (int k = 0; k < 300; ++k) alive.push_back(createBVHNode(soups[k % soups.size()], 0));
    for (int k = 0; k < 300; ++k)
        ASSERT_TRUE(sameHit(query(alive[k].get(), ray), bruteForce(soups[k % soups.size()], ray)))
            << k;
}

// Editors build trees on worker threads while other threads query theirs: the table of packed
// copies is written by builds and releases while it is read by queries.
TEST(BvhConcurrency, TreesBuiltQueriedAndReleasedOnSeveralThreadsAtOnce) {
    const std::vector<Triangle> shared = testmesh::randomSoup(2000, 10.0f, 71).soup();
    const auto sharedRoot = createBVHNode(shared, 0);
    const Ray ray(vec3(0.2f, 0.1f, 30.0f), vec3(0.0f, 0.01f, -1.0f));
    const Hit expected = query(sharedRoot.get(), ray);
    ASSERT_TRUE(expected.hit);
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&, k] {
            const std::vector<Triangle> own =
                testmesh::randomSoup(300, 10.0f, 80 + static_cast<unsigned>(k)).soup();
            const Hit ownExpected = bruteForce(own, ray);
            for (int round = 0; round < 15; ++round) {
                const auto root = createBVHNode(own, 0);
                mismatches[k] += !sameHit(query(root.get(), ray), ownExpected);
                mismatches[k] += !sameHit(query(sharedRoot.get(), ray), expected);
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
