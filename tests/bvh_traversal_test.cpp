// BVH traversal against a plain loop over every triangle, on random soups and
// the Stanford bunny, and from several threads on one tree.
#include <korvex/bvh.h>
#include <korvex/ray.h>

#include "../bvh/line_box.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace {

struct Hit {
    bool hit = false;
    vec3 point{-7.0f};
    float distance = kFloatMax;
};

// The oracle: every triangle, t above 0.001 and strictly below the best.
Hit bruteForce(const std::vector<Triangle>& tris, const Ray& ray, float limit = kFloatMax) {
    Hit best;
    best.distance = limit;
    for (const Triangle& t : tris) {
        vec3 p;
        float d;
        if (RayIntersectsTriangle(ray, t.p0, t.p1, t.p2, p, d) && d > 0.001f && d < best.distance) {
            best.hit = true;
            best.point = p;
            best.distance = d;
        }
    }
    return best;
}

Hit throughBvh(const BVHNode* root, const Ray& ray, bool flagged = false, bool flag = false) {
    Hit h;
    h.hit = flagged ? RayIntersectsBVHDoublePoly(ray, root, h.point, h.distance, flag)
                    : RayIntersectsBVH(ray, root, h.point, h.distance);
    return h;
}

bool sameBits(const vec3& a, const vec3& b) {
    return std::memcmp(&a, &b, sizeof(vec3)) == 0;
}

void expectSameHit(const Hit& expected, const Hit& actual, const std::string& what) {
    ASSERT_EQ(expected.hit, actual.hit) << what;
    EXPECT_TRUE(sameBits(expected.point, actual.point)) << what;
    EXPECT_EQ(expected.distance, actual.distance) << what;
}

std::vector<Triangle> randomSoup(size_t count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> coord(-10.0f, 10.0f), edge(-1.5f, 1.5f);
    std::vector<Triangle> tris;
    for (size_t i = 0; i < count; ++i) {
        const vec3 p(coord(rng), coord(rng), coord(rng));
        tris.emplace_back(p, p + vec3(edge(rng), edge(rng), edge(rng)),
                          p + vec3(edge(rng), edge(rng), edge(rng)));
    }
    return tris;
}

// Rays from inside and outside the soup, some along the axes and some with
// direction components exactly zero, which make the box test divide by zero.
std::vector<Ray> randomRays(size_t count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> coord(-14.0f, 14.0f), dir(-1.0f, 1.0f);
    std::vector<Ray> rays;
    for (size_t i = 0; i < count; ++i) {
        vec3 d(dir(rng), dir(rng), dir(rng));
        if (i % 5 == 1) d.x = 0.0f;
        if (i % 7 == 2) d = vec3(0.0f, 0.0f, d.z < 0 ? -1.0f : 1.0f);
        if (i % 3 == 0) d *= 3.0f; // not of unit length
        rays.emplace_back(vec3(coord(rng), coord(rng), coord(rng)), d);
    }
    return rays;
}

// The bunny of glmark2-data: "v x y z" and "f a b c" lines (a/b/c forms too).
std::vector<Triangle> loadBunny() {
    std::ifstream in(KORVEX_BUNNY_PATH);
    std::vector<vec3> vertices;
    std::vector<Triangle> tris;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string tag;
        words >> tag;
        if (tag == "v") {
            vec3 v;
            words >> v.x >> v.y >> v.z;
            vertices.push_back(v);
        } else if (tag == "f") {
            std::string a, b, c;
            words >> a >> b >> c;
            const auto index = [&](const std::string& w) { return std::stoul(w) - 1; };
            tris.emplace_back(vertices.at(index(a)), vertices.at(index(b)), vertices.at(index(c)));
        }
    }
    return tris;
}

std::vector<Ray> raysAtBunny(size_t count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<Ray> rays;
    for (size_t i = 0; i < count; ++i) {
        const vec3 from = glm::normalize(vec3(unit(rng), unit(rng), unit(rng))) * 4.0f;
        const vec3 to(unit(rng) * 0.8f, unit(rng) * 0.8f, unit(rng) * 0.8f);
        rays.emplace_back(from, glm::normalize(to - from));
    }
    return rays;
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
        const auto line = korvex_detail::lineLanesOf(ray);
        ASSERT_EQ(korvex_detail::lineThroughBox(line, box).meets, box.intersects(ray)) << i;
    }
}

TEST(BvhTraversal, MatchesBruteForceOnRandomSoups) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const std::vector<Triangle> tris = randomSoup(1500 * seed, seed);
        const auto root = createBVHNode(tris, 0);
        size_t hits = 0;
        for (const Ray& ray : randomRays(400, seed + 10)) {
            const Hit expected = bruteForce(tris, ray);
            hits += expected.hit;
            expectSameHit(expected, throughBvh(root.get(), ray), "plain");
            expectSameHit(expected, throughBvh(root.get(), ray, true, seed % 2 == 0), "flagged");
        }
        EXPECT_GT(hits, 100u);
    }
}

TEST(BvhTraversal, MatchesBruteForceOnTheBunny) {
    if (!std::ifstream(KORVEX_BUNNY_PATH)) GTEST_SKIP() << "bunny mesh not installed";
    const std::vector<Triangle> tris = loadBunny();
    ASSERT_GT(tris.size(), 60000u);
    const auto root = createBVHNode(tris, 0);
    size_t hits = 0;
    for (const Ray& ray : raysAtBunny(150, 3)) {
        const Hit expected = bruteForce(tris, ray);
        hits += expected.hit;
        expectSameHit(expected, throughBvh(root.get(), ray), "bunny");
    }
    EXPECT_GT(hits, 50u);
}

TEST(BvhTraversal, NearestDistanceIsAnInputLimit) {
    // One triangle in z = -6, seen from the origin along -z: t = 6.
    const std::vector<Triangle> tris{Triangle(vec3(-1, -1, -6), vec3(1, -1, -6), vec3(0, 1, -6))};
    const auto root = createBVHNode(tris, 0);
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

    // Carried into a second query on another tree: only a nearer hit counts.
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
        vec3 point(5.0f);
        float nearest = kFloatMax;
        EXPECT_EQ(RayIntersectsBVH(ray, root.get(), point, nearest), t > 0.001f) << height;
        EXPECT_EQ(RayIntersectsBVHDoublePoly(ray, root.get(), point, nearest, false), false);
    }
    // The floor is in units of the direction's length: a direction of length
    // 0.1 puts the plane at t = 0.005.
    const Ray slow(vec3(0, 0, 0.0005f), vec3(0, 0, -0.1f));
    vec3 point;
    float nearest = kFloatMax;
    EXPECT_TRUE(RayIntersectsBVH(slow, root.get(), point, nearest));
    EXPECT_FLOAT_EQ(nearest, 0.005f);
}

TEST(BvhTraversal, BadAndDegenerateInputs) {
    vec3 point(3.0f);
    float nearest = kFloatMax;
    EXPECT_FALSE(RayIntersectsBVH(Ray(vec3(0.0f), vec3(0, 0, 1)), nullptr, point, nearest));

    const auto root = createBVHNode(randomSoup(500, 9), 0);
    for (const Ray& ray : {Ray(vec3(NAN, 0, 0), vec3(0, 0, 1)), Ray(vec3(0.0f), vec3(0, NAN, 1)),
                           Ray(vec3(0.0f), vec3(0.0f)), Ray(vec3(0.0f), vec3(INFINITY, 0, 0))}) {
        EXPECT_FALSE(RayIntersectsBVH(ray, root.get(), point, nearest));
        EXPECT_EQ(point, vec3(3.0f));
    }
    // A NaN limit lets no hit be nearer.
    float nanLimit = NAN;
    EXPECT_FALSE(
        RayIntersectsBVH(Ray(vec3(0, 0, 20), vec3(0, 0, -1)), root.get(), point, nanLimit));

    // A flat tree (all triangles in z = 0) and a leaf without triangles.
    std::vector<Triangle> flat;
    for (int i = 0; i < 50; ++i) flat.emplace_back(vec3(i, 0, 0), vec3(i + 1, 0, 0), vec3(i, 1, 0));
    const auto flatRoot = createBVHNode(flat, 0);
    EXPECT_TRUE(RayIntersectsBVH(Ray(vec3(10.2f, 0.2f, 1), vec3(0, 0, -1)), flatRoot.get(), point,
                                 nearest));
    EXPECT_EQ(point, vec3(10.2f, 0.2f, 0));
    BVHNode empty;
    empty.bounds = BoundingBox(vec3(-1.0f), vec3(1.0f));
    nearest = kFloatMax;
    EXPECT_FALSE(RayIntersectsBVH(Ray(vec3(0, 0, 5), vec3(0, 0, -1)), &empty, point, nearest));

    // A hand-made chain far deeper than any built tree is walked, not recursed.
    auto chain = std::make_unique<BVHNode>();
    BVHNode* tip = chain.get();
    for (int i = 0; i < 300; ++i) {
        tip->bounds = BoundingBox(vec3(-1.0f), vec3(1.0f));
        tip->left = std::make_unique<BVHNode>();
        tip->right = std::make_unique<BVHNode>();
        tip->right->bounds = BoundingBox(vec3(-1.0f), vec3(1.0f));
        tip = tip->left.get();
    }
    tip->bounds = BoundingBox(vec3(-1.0f), vec3(1.0f));
    tip->triangles.push_back(Triangle(vec3(-1, -1, 0), vec3(1, -1, 0), vec3(0, 1, 0)));
    nearest = kFloatMax;
    EXPECT_TRUE(RayIntersectsBVH(Ray(vec3(0, 0, 5), vec3(0, 0, -1)), chain.get(), point, nearest));
    EXPECT_EQ(nearest, 5.0f);
}

// Two boxes on either side of the origin: the line test lets both through,
// and the triangles decide, whichever way the ray points.
TEST(BvhTraversal, OriginBetweenTwoBoxes) {
    std::vector<Triangle> tris;
    for (float z : {5.0f, -5.0f})
        for (int i = 0; i < 7; ++i)
            tris.emplace_back(vec3(-1, -1, z), vec3(1, -1, z), vec3(0, 1, z + 0.1f * i));
    const auto root = createBVHNode(tris, 0);
    ASSERT_TRUE(root->left && root->right);
    for (float dz : {1.0f, -1.0f}) {
        const Ray ray(vec3(0.0f), vec3(0, 0, dz));
        expectSameHit(bruteForce(tris, ray), throughBvh(root.get(), ray), "between");
    }
}

TEST(BvhConcurrency, QueriesFromSeveralThreadsOnOneTree) {
    const std::vector<Triangle> tris = randomSoup(4000, 21);
    const auto root = createBVHNode(tris, 0);
    const std::vector<Ray> rays = randomRays(300, 22);
    std::vector<Hit> expected;
    for (const Ray& ray : rays) expected.push_back(bruteForce(tris, ray));

    constexpr int kThreads = 4;
    std::vector<int> mismatches(kThreads, 0);
    std::vector<std::thread> threads;
    for (int k = 0; k < kThreads; ++k)
        threads.emplace_back([&, k] {
            for (int pass = 0; pass < 3; ++pass)
                for (size_t i = 0; i < rays.size(); ++i) {
                    const size_t r = (i * (k + 1) + pass) % rays.size();
                    const Hit h = throughBvh(root.get(), rays[r], k % 2 == 1, true);
                    if (h.hit != expected[r].hit || !sameBits(h.point, expected[r].point))
                        ++mismatches[k];
                }
        });
    for (std::thread& t : threads) t.join();
    for (int k = 0; k < kThreads; ++k) EXPECT_EQ(mismatches[k], 0) << "thread " << k;
}

// Builds run their own tasks; several at once on one shared input list.
TEST(BvhConcurrency, ParallelBuildsOfOneListAgree) {
    const std::vector<Triangle> tris = randomSoup(6000, 31);
    const auto reference = createBVHNode(tris, 0);
    const std::vector<Ray> rays = randomRays(100, 32);
    std::vector<std::unique_ptr<BVHNode>> trees(3);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < trees.size(); ++k)
        threads.emplace_back([&, k] { trees[k] = createBVHNode(tris, static_cast<int>(k)); });
    for (std::thread& t : threads) t.join();
    for (const auto& tree : trees)
        for (const Ray& ray : rays)
            expectSameHit(throughBvh(reference.get(), ray), throughBvh(tree.get(), ray), "tree");
}
