#include <korvex/hasher.h>
#include <korvex/mesh.h>
#include <korvex/plane.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <unordered_map>

namespace {

Triangle tri(const vec3& a, const vec3& b, const vec3& c) {
    return Triangle(a, b, c);
}

// The counting written plainly with the standard container and the library's functors; edges
// in order of first use (entries by address: an edge with a NaN cannot be found by value).
std::vector<Edge> oracle(const std::vector<Triangle>& triangles) {
    std::unordered_map<Edge, int, EdgeHash> count;
    std::vector<const std::pair<const Edge, int>*> firstUse;
    for (const Triangle& t : triangles)
        for (const auto& [p, q] :
             {std::pair(t.p0, t.p1), std::pair(t.p1, t.p2), std::pair(t.p2, t.p0)}) {
            const auto [it, inserted] = count.try_emplace(MakeEdge(p, q), 0);
            if (inserted) firstUse.push_back(&*it);
            ++it->second;
        }
    std::vector<Edge> out;
    for (const auto* entry : firstUse)
        if (entry->second > 2) out.push_back(entry->first);
    return out;
}

// Bit for bit, in the same order.
void expectEdges(const std::vector<Edge>& got, const std::vector<Edge>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_EQ(std::memcmp(&got[i], &want[i], sizeof(Edge)), 0) << i;
}

const vec3 A(0, 0, 0), B(1, 0, 0), C(0, 1, 0), D(0, 0, 1), E(0, -1, 0);

} // namespace

TEST(DetectNonManifoldEdges, CountsAboveTwoAreReportedOnceInCanonicalOrder) {
    // Empty, one triangle, an edge shared the same way or the opposite way: nothing.
    EXPECT_TRUE(DetectNonManifoldEdges({}).empty());
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C)}).empty());
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(B, A, E)}).empty());
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(A, B, E)}).empty());
    // Three and four triangles on B-A (given from B to A): one edge, A first.
    std::vector<Triangle> fan{tri(C, B, A), tri(A, B, E), tri(B, A, D)};
    expectEdges(DetectNonManifoldEdges(fan), {Edge(A, B)});
    fan.push_back(tri(vec3(1, 1, 1), A, B));
    expectEdges(DetectNonManifoldEdges(fan), {Edge(A, B)});
    // The same triangle twice: manifold; three times: all three edges.
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(A, B, C)}).empty());
    expectEdges(DetectNonManifoldEdges({tri(A, B, C), tri(A, B, C), tri(A, B, C)}),
                {MakeEdge(A, B), MakeEdge(B, C), MakeEdge(C, A)});
    // (A, A, B) counts a zero-length edge and A-B twice; one more triangle on A-B makes three.
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, A, B)}).empty());
    expectEdges(DetectNonManifoldEdges({tri(A, A, B), tri(A, B, C)}), {MakeEdge(A, B)});
    EXPECT_EQ(DetectNonManifoldEdges({tri(A, A, A)}).size(), 1u);
}

TEST(DetectNonManifoldEdges, NearAndNonFiniteCornersFollowTheHashContainer) {
    // +0 and -0 are one coordinate; the reported edge carries its first use's coordinates.
    const std::vector<Triangle> signedZero = {tri(vec3(-0.0f), B, C), tri(A, B, E), tri(B, A, D)};
    expectEdges(DetectNonManifoldEdges(signedZero), oracle(signedZero));
    EXPECT_TRUE(std::signbit(DetectNonManifoldEdges(signedZero).at(0).a.x));
    // Near-equal corners are separate keys unless their hashes meet, as for zero-length edges.
    const vec3 nearA(1e-6f, 0, 0);
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(nearA, B, E), tri(B, A, D)}).empty());
    const std::vector<Triangle> points = {tri(A, A, B), tri(nearA, nearA, C), tri(A, A, D)};
    expectEdges(DetectNonManifoldEdges(points), oracle(points));
    // A NaN corner equals nothing and an infinite one is not within 1e-5 of itself: their
    // edges never count twice. B-C is used six times.
    const vec3 N(NAN, 0, 0), I(std::numeric_limits<float>::infinity(), 0, 0);
    const std::vector<Triangle> soup = {tri(N, B, C), tri(N, B, C), tri(N, B, C),
                                        tri(I, B, C), tri(I, B, C), tri(I, B, C)};
    expectEdges(DetectNonManifoldEdges(soup), {MakeEdge(B, C)});
}

TEST(DetectNonManifoldEdges, RandomSoupsAndTheBunnyMatchTheHashContainer) {
    // Random soups over a small pool of grid points: fins, repeats and degenerate triangles.
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> coordinate(0, 3);
    std::vector<vec3> pool;
    for (int i = 0; i < 12; ++i)
        pool.emplace_back(coordinate(rng) * 0.5f, coordinate(rng) * 0.25f, coordinate(rng) - 1.0f);
    std::uniform_int_distribution<size_t> pick(0, pool.size() - 1);
    for (size_t size : {20u, 2000u}) {
        std::vector<Triangle> soup;
        for (size_t t = 0; t < size; ++t)
            soup.push_back(tri(pool[pick(rng)], pool[pick(rng)], pool[pick(rng)]));
        expectEdges(DetectNonManifoldEdges(soup), oracle(soup));
    }
    // The closed bunny, with fins added along the first 500 triangles' first edges.
    std::vector<Triangle> bunny = testmesh::bunny().soup();
    ASSERT_EQ(bunny.size(), 69666u) << "bunny not found at " << KORVEX_BUNNY_PATH;
    EXPECT_TRUE(DetectNonManifoldEdges(bunny).empty());
    for (size_t t = 0; t < 500; ++t)
        bunny.push_back(tri(bunny[t].p1, bunny[t].p0, bunny[t].p0 + vec3(0, 0, 1)));
    const std::vector<Edge> fins = DetectNonManifoldEdges(bunny);
    expectEdges(fins, oracle(bunny));
    EXPECT_GE(fins.size(), 400u);
}
namespace {

// A strip of `quads` quads along x at about height y, two triangles each: edges used once or
// twice, none shared with anything else in the tests below. Coordinates vary along the strip,
// since EdgeHash gives all edges that differ only in a shared coordinate one value.
std::vector<Triangle> strip(size_t quads, float y) {
    const auto p = [y](size_t i, int up) {
        const float x = static_cast<float>(i);
        return vec3(x, y + static_cast<float>(up) + 1e-3f * x, 0.5f * x);
    };
    std::vector<Triangle> out;
    for (size_t i = 0; i < quads; ++i) {
        out.push_back(tri(p(i, 0), p(i + 1, 0), p(i, 1)));
        out.push_back(tri(p(i + 1, 0), p(i + 1, 1), p(i, 1)));
    }
    return out;
}

void append(std::vector<Triangle>& to, const std::vector<Triangle>& from) {
    to.insert(to.end(), from.begin(), from.end());
}

} // namespace

TEST(DetectNonManifoldEdges, UsesFarApartInTheListAreCountedTogether) {
    // Uses of one edge separated by tens of thousands of triangles, so that the counting
    // cannot rely on meeting them close together.
    const vec3 P(-0.0f, 0, 5), Q(1, 0, 5), S(2, 0, 5), T(3, 0, 5);
    std::vector<Triangle> soup = {tri(P, Q, vec3(0, 1, 5)), tri(A, B, C), tri(S, T, vec3(2, 1, 5))};
    append(soup, strip(30000, 10));
    soup.push_back(tri(Q, vec3(0, 0, 5), vec3(0, -1, 5))); // P-Q again, with +0, reversed
    soup.push_back(tri(T, S, vec3(2, -1, 5)));             // S-T: twice, never reported
    soup.push_back(tri(A, B, C));
    append(soup, strip(30000, 20));
    soup.push_back(tri(vec3(0, 0, 5), Q, vec3(0, 0, 6))); // P-Q a third time
    soup.push_back(tri(A, B, C));
    // A-B twice more, close together, after all that.
    soup.push_back(tri(B, A, E));
    soup.push_back(tri(A, B, D));

    const std::vector<Edge> got = DetectNonManifoldEdges(soup);
    expectEdges(got, oracle(soup));
    // P-Q first, with the coordinates of its first use (-0), then the three edges of A-B-C.
    ASSERT_EQ(got.size(), 4u);
    EXPECT_TRUE(std::signbit(got[0].a.x));
    const Edge ab(A, B);
    EXPECT_EQ(std::memcmp(&got[1], &ab, sizeof(Edge)), 0);
}

TEST(DetectNonManifoldEdges, ShuffledMeshesMatchTheHashContainer) {
    // The bunny with fins, in random order: nearly every edge's uses lie far apart, and tens
    // of thousands of distinct edges make some of their hashes meet.
    std::vector<Triangle> bunny = testmesh::bunny().soup();
    ASSERT_FALSE(bunny.empty());
    for (size_t t = 0; t < 3000; t += 3)
        bunny.push_back(tri(bunny[t].p2, bunny[t].p1, bunny[t].p1 - vec3(0, 0, 1)));
    std::mt19937 rng(11);
    std::shuffle(bunny.begin(), bunny.end(), rng);
    const std::vector<Edge> fins = DetectNonManifoldEdges(bunny);
    expectEdges(fins, oracle(bunny));
    EXPECT_GE(fins.size(), 900u);
}

TEST(DetectNonManifoldEdges, ZeroLengthEdgesJoinTheFirstKeyWithinTolerance) {
    // One use of one zero-length edge each: the sides to the NaN corner count for nothing.
    const auto degenerate = [](const vec3& p) { return tri(p, p, vec3(NAN, 0, 0)); };
    // Either side of a multiple of 2e-5 (0.2e-5 apart): one key.
    EXPECT_EQ(
        DetectNonManifoldEdges({degenerate(vec3(1.9e-5f, 0, 0)), degenerate(vec3(2.1e-5f, 0, 0)),
                                degenerate(vec3(1.9e-5f, 0, 0))})
            .size(),
        1u);
    // 0 and 1.2e-5 are two keys; 0.6e-5, close to both, joins the first made, which reaches
    // three uses and is reported with its own point.
    const std::vector<Edge> chain =
        DetectNonManifoldEdges({degenerate(vec3(0, 0, 0)), degenerate(vec3(1.2e-5f, 0, 0)),
                                degenerate(vec3(0.6e-5f, 0, 0)), degenerate(vec3(0.6e-5f, 0, 0))});
    ASSERT_EQ(chain.size(), 1u);
    EXPECT_EQ(chain[0].a.x, 0.0f);
    EXPECT_EQ(chain[0].b.x, 0.0f);
    // Exactly 1e-5 apart is not within the tolerance; -0 and +0 are one point.
    EXPECT_TRUE(DetectNonManifoldEdges({degenerate(vec3(0, 0, 0)), degenerate(vec3(1e-5f, 0, 0)),
                                        degenerate(vec3(0, 0, 0))})
                    .empty());
    EXPECT_EQ(DetectNonManifoldEdges({degenerate(vec3(-0.0f, 0, 0)), degenerate(vec3(0, -0.0f, 0)),
                                      degenerate(vec3(0, 0, -0.0f))})
                  .size(),
              1u);
    // Far from the origin neighbouring floats are far apart; an infinite point matches nothing.
    const vec3 far(1e20f, -3e30f, 0);
    const vec3 farNext(std::nextafter(far.x, 2e20f), far.y, far.z);
    EXPECT_EQ(DetectNonManifoldEdges({degenerate(far), degenerate(far), degenerate(far)}).size(),
              1u);
    EXPECT_TRUE(
        DetectNonManifoldEdges({degenerate(far), degenerate(farNext), degenerate(far)}).empty());
    const vec3 inf(std::numeric_limits<float>::infinity(), 0, 0);
    EXPECT_TRUE(
        DetectNonManifoldEdges({degenerate(inf), degenerate(inf), degenerate(inf)}).empty());

    // Many degenerate triangles at distinct points, each used three times, far apart: all of
    // them, in order of first use, each with its own point.
    std::vector<Triangle> many;
    for (int pass = 0; pass < 3; ++pass)
        for (int i = 0; i < 5000; ++i) many.push_back(degenerate(vec3(i * 1e-3f, 1, 2)));
    const std::vector<Edge> found = DetectNonManifoldEdges(many);
    ASSERT_EQ(found.size(), 5000u);
    for (int i = 0; i < 5000; ++i) EXPECT_EQ(found[i].a.x, i * 1e-3f) << i;
}
