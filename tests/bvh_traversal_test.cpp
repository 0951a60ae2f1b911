// BVH traversal against a plain loop over every triangle, on random soups and the bunny, and
// from several threads on one tree.
#include <korvex/bvh.h>
#include <korvex/ray.h>

#include "../bvh/line_box.h"
#include "bvh_oracle.h"
#include "test_meshes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>

using bvhtest::bruteForce;
using bvhtest::Hit;
using bvhtest::sameHit;
using testmesh::sameBits;

namespace {

Hit throughBvh(const BVHNode* root, const Ray& ray, bool flagged = false, bool flag = false) {
    Hit h;
    h.hit = flagged ? RayIntersectsBVHDoublePoly(ray, root, h.point, h.distance, flag)
                    : RayIntersectsBVH(ray, root, h.point, h.distance);
    return h;
}

// Rays from inside and outside the soup, some with direction components exactly zero (the box
// test divides by them) and some not of unit length.
std::vector<Ray> randomRays(size_t count, unsigned seed, float reach) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> coord(-reach, reach), dir(-1.0f, 1.0f);
    std::vector<Ray> rays;
    for (size_t i = 0; i < count; ++i) {
        vec3 d(dir(rng), dir(rng), dir(rng));
        if (i % 5 == 1) d.x = 0.0f;
        if (i % 7 == 2) d = vec3(0.0f, 0.0f, d.z < 0 ? -1.0f : 1.0f);
        if (i % 3 == 0) d *= 3.0f;
        rays.emplace_back(vec3(coord(rng), coord(rng), coord(rng)), d);
    }
    return rays;
}

std::vector<Triangle> soup(int count, unsigned seed) {
    return testmesh::randomSoup(count, 20.0f, seed).soup();
}

} // namespace

TEST(BvhTraversal, LineBoxTestMatchesBoundingBoxIntersects) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> coord(-3.0f, 3.0f);
    const float specials[] = {0.0f, -0.0f, 1.0f, -1.0f, INFINITY, -INFINITY, NAN, 1e-30f};
    for (int i = 0; i < 20000; ++i) {
        vec3 lo(coord(rng), coord(rng), coord(rng)), hi = lo + vec3(std::fabs(coord(rng)));
        Ray ray(vec3(coord(rng), coord(rng), coord(rng)), vec3(coord(rng), coord(rng), coord(rng)));
        for (int axis = 0; axis < 3; ++axis) {
            const int pick = static_cast<int>(rng() % 16);
            if (pick < 8) ray.direction[axis] = specials[pick];
            if (rng() % 6 == 0) ray.origin[axis] = rng() % 2 ? lo[axis] : hi[axis]; // on a face
        }
        const BoundingBox box(lo, hi);
        ASSERT_EQ(korvex_detail::lineMeetsBox(korvex_detail::lineLanesOf(ray), box),
                  box.intersects(ray))
            << i;
    }
}

TEST(BvhTraversal, MatchesBruteForceOnRandomSoupsAndTheBunny) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const std::vector<Triangle> tris = soup(1500 * seed, seed);
        const auto root = createBVHNode(tris, 0);
        size_t hits = 0;
        for (const Ray& ray : randomRays(400, seed + 10, 14.0f)) {
            const Hit expected = bruteForce(tris, ray);
            hits += expected.hit;
            EXPECT_TRUE(sameHit(expected, throughBvh(root.get(), ray)));
            EXPECT_TRUE(sameHit(expected, throughBvh(root.get(), ray, true, seed % 2 == 0)));
        }
        EXPECT_GT(hits, 100u);
    }
    const std::vector<Triangle> bunny = testmesh::bunny().soup();
    const auto root = createBVHNode(bunny, 0);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    size_t hits = 0;
    for (int i = 0; i < 150; ++i) {
        const vec3 from = glm::normalize(vec3(unit(rng), unit(rng), unit(rng))) * 4.0f;
        const Ray ray(from, glm::normalize(vec3(unit(rng), unit(rng), unit(rng)) * 0.8f - from));
        const Hit expected = bruteForce(bunny, ray);
        hits += expected.hit;
        EXPECT_TRUE(sameHit(expected, throughBvh(root.get(), ray))) << i;
    }
    EXPECT_GT(hits, 50u);
}

TEST(BvhTraversal, NearestDistanceIsAnInputLimit) {
    // One triangle in z = -6, seen from the origin along -z: t = 6.
    const auto root =
        createBVHNode({Triangle(vec3(-1, -1, -6), vec3(1, -1, -6), vec3(0, 1, -6))}, 0);
    const Ray ray(vec3(0.0f), vec3(0, 0, -1));
    vec3 point(9.0f);
    float nearest = 5.0f;
    EXPECT_FALSE(RayIntersectsBVH(ray, root.get(), point, nearest));
    EXPECT_EQ(point, vec3(9.0f));
    EXPECT_EQ(nearest, 5.0f);
    nearest = 6.0f; // equal is not nearer
    EXPECT_FALSE(RayIntersectsBVHDoublePoly(ray, root.get(), point, nearest, true));
    nearest = 7.0f;
    EXPECT_TRUE(RayIntersectsBVH(ray, root.get(), point, nearest));
    EXPECT_EQ(nearest, 6.0f);
    EXPECT_EQ(point, vec3(0, 0, -6));
    // Carried into a query on another tree: only a nearer hit counts.
    const auto farther =
        createBVHNode({Triangle(vec3(-1, -1, -8), vec3(1, -1, -8), vec3(0, 1, -8))}, 0);
    EXPECT_FALSE(RayIntersectsBVH(ray, farther.get(), point, nearest));
    EXPECT_EQ(point, vec3(0, 0, -6));
}

TEST(BvhTraversal, HitsUpToTheFloorOfAThousandthAreIgnored) {
    const Triangle tri(vec3(-1, -1, 0), vec3(1, -1, 0), vec3(0, 1, 0));
    const auto root = createBVHNode({tri}, 0);
    for (float height : {0.0005f, 0.001f, 0.0011f}) {
        const Ray ray(vec3(0, 0, height), vec3(0, 0, -1));
        vec3 p;
        float t;
        ASSERT_TRUE(RayIntersectsTriangle(ray, tri.p0, tri.p1, tri.p2, p, t));
        EXPECT_EQ(throughBvh(root.get(), ray).hit, t > 0.001f) << height;
        EXPECT_EQ(throughBvh(root.get(), ray, true, false).hit, t > 0.001f) << height;
    }
    // The floor is in units of the direction's length: length 0.1 puts the plane at t = 0.005.
    const Hit slow = throughBvh(root.get(), Ray(vec3(0, 0, 0.0005f), vec3(0, 0, -0.1f)));
    EXPECT_TRUE(slow.hit);
    EXPECT_FLOAT_EQ(slow.distance, 0.005f);
}

TEST(BvhTraversal, BadAndDegenerateInputs) {
    vec3 point(3.0f);
    float nearest = kFloatMax;
    EXPECT_FALSE(RayIntersectsBVH(Ray(vec3(0.0f), vec3(0, 0, 1)), nullptr, point, nearest));
    const auto root = createBVHNode(soup(500, 9), 0);
    for (const Ray& ray : {Ray(vec3(NAN, 0, 0), vec3(0, 0, 1)), Ray(vec3(0.0f), vec3(0, NAN, 1)),
                           Ray(vec3(0.0f), vec3(0.0f)), Ray(vec3(0.0f), vec3(INFINITY, 0, 0))}) {
        EXPECT_FALSE(RayIntersectsBVH(ray, root.get(), point, nearest));
        EXPECT_EQ(point, vec3(3.0f));
    }
    float nanLimit = NAN; // no hit is nearer than NaN
    EXPECT_FALSE(
        RayIntersectsBVH(Ray(vec3(0, 0, 20), vec3(0, 0, -1)), root.get(), point, nanLimit));

    // A hand-made leaf without triangles.
    BVHNode empty;
    empty.bounds = BoundingBox(vec3(-1.0f), vec3(1.0f));
    EXPECT_FALSE(RayIntersectsBVH(Ray(vec3(0, 0, 5), vec3(0, 0, -1)), &empty, point, nearest));
}

TEST(BvhConcurrency, QueriesFromSeveralThreadsOnOneTree) {
    const std::vector<Triangle> tris = soup(4000, 21);
    const auto root = createBVHNode(tris, 0);
    const std::vector<Ray> rays = randomRays(300, 22, 14.0f);
    std::vector<Hit> expected;
    for (const Ray& ray : rays) expected.push_back(bruteForce(tris, ray));
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; ++k)
        threads.emplace_back([&, k] {
            for (size_t i = 0; i < 3 * rays.size(); ++i) {
                const size_t r = (i * (k + 1)) % rays.size();
                mismatches[k] +=
                    !sameHit(throughBvh(root.get(), rays[r], k % 2, true), expected[r]);
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

// Builds run their own tasks; several at once on one shared input list.
TEST(BvhConcurrency, ParallelBuildsOfOneListAgree) {
    const std::vector<Triangle> tris = soup(6000, 31);
    const auto reference = createBVHNode(tris, 0);
    std::vector<std::unique_ptr<BVHNode>> trees(3);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < trees.size(); ++k)
        threads.emplace_back([&, k] { trees[k] = createBVHNode(tris, static_cast<int>(k)); });
    for (std::thread& t : threads) t.join();
    for (const auto& tree : trees)
        for (const Ray& ray : randomRays(100, 32, 14.0f))
            EXPECT_TRUE(sameHit(throughBvh(reference.get(), ray), throughBvh(tree.get(), ray)));
}

// A hand-made tree far deeper than any build makes: every level leaves a sibling pending, so
// the traversal's stack outgrows its fixed part. The nearest triangle sits in the first
// sibling left behind, which is popped last, after the spill; losing or reordering an entry
// there loses it.
TEST(BvhTraversal, DeepHandMadeTreeKeepsEveryPendingSibling) {
    const int levels = 300;
    const auto triangleAt = [](float z) {
        return Triangle(vec3(-1, -1, z), vec3(1, -1, z), vec3(0, 1, z));
    };
    const BoundingBox box(vec3(-1, -1, -float(levels) - 1), vec3(1, 1, 1));
    std::vector<Triangle> all;
    auto root = std::make_unique<BVHNode>();
    BVHNode* chain = root.get();
    for (int i = 0; i < levels; ++i) {
        chain->bounds = box;
        chain->left = std::make_unique<BVHNode>();
        chain->right = std::make_unique<BVHNode>();
        chain->right->bounds = box;
        chain->right->triangles.push_back(triangleAt(-float(i)));
        all.push_back(chain->right->triangles.back());
        chain = chain->left.get();
    }
    chain->bounds = box;
    chain->triangles.push_back(triangleAt(-0.5f));
    all.push_back(chain->triangles.back());

    const Ray ray(vec3(0, 0, 1000), vec3(0, 0, -1));
    const Hit expected = bruteForce(all, ray);
    ASSERT_TRUE(expected.hit);
    EXPECT_EQ(expected.distance, 1000.0f);
    const Hit got = throughBvh(root.get(), ray);
    EXPECT_TRUE(got.hit);
    EXPECT_TRUE(sameBits(got.point, expected.point));
    EXPECT_EQ(got.distance, expected.distance);
}

// Nothing says a hand-made node's box holds its triangles. Every box that meets the line is
// searched, so a triangle outside its leaf's box still wins when it is nearer than a hit found
// in a box the line enters first.
TEST(BvhTraversal, HandMadeBoxesThatDoNotHoldTheirTrianglesAreStillSearched) {
    const auto triangleAt = [](float z) {
        return Triangle(vec3(-1, -1, z), vec3(1, -1, z), vec3(0, 1, z));
    };
    BVHNode root;
    root.bounds = BoundingBox(vec3(-1, -1, -20), vec3(1, 1, 0));
    root.left = std::make_unique<BVHNode>(); // entered at t = 10, holds a triangle at t = 2
    root.left->bounds = BoundingBox(vec3(-1, -1, -20), vec3(1, 1, -10));
    root.left->triangles.push_back(triangleAt(-2.0f));
    root.right = std::make_unique<BVHNode>(); // entered at t = 3, holds a triangle at t = 4
    root.right->bounds = BoundingBox(vec3(-1, -1, -5), vec3(1, 1, -3));
    root.right->triangles.push_back(triangleAt(-4.0f));
    const Hit got = throughBvh(&root, Ray(vec3(0.0f), vec3(0, 0, -1)));
    EXPECT_TRUE(got.hit);
    EXPECT_EQ(got.distance, 2.0f);
    EXPECT_EQ(got.point, vec3(0, 0, -2));
}
