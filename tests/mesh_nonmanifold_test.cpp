#include "mesh_support.h"

#include <korvex/hasher.h>
#include <korvex/mesh.h>
#include <korvex/plane.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <unordered_map>

namespace {

Triangle tri(const vec3& a, const vec3& b, const vec3& c) {
    return Triangle(a, b, c);
}

bool bitEqual(const Edge& a, const Edge& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The counting written out literally, with the standard container and the
// library's functors; its edges in order of first use.
std::vector<Edge> oracle(const std::vector<Triangle>& triangles) {
    std::unordered_map<Edge, int, EdgeHash> count;
    // Entries by address (stable in the container): an edge with a NaN
    // cannot be found again by value.
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

void expectSameEdges(const std::vector<Edge>& got, const std::vector<Edge>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_TRUE(bitEqual(got[i], want[i])) << i;
}

const vec3 A(0, 0, 0), B(1, 0, 0), C(0, 1, 0), D(0, 0, 1), E(0, -1, 0);

} // namespace

TEST(DetectNonManifoldEdges, BoundaryAndInteriorEdgesAreNotReported) {
    EXPECT_TRUE(DetectNonManifoldEdges({}).empty());
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C)}).empty());
    // Shared edge A-B, run the same way and the opposite way.
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(B, A, E)}).empty());
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(A, B, E)}).empty());
}

TEST(DetectNonManifoldEdges, FinsAreReportedOnceInCanonicalOrder) {
    // Three and four triangles on B-A (given from B to A): one edge, A first.
    for (const std::vector<Triangle>& fan :
         {std::vector<Triangle>{tri(C, B, A), tri(A, B, E), tri(B, A, D)},
          std::vector<Triangle>{tri(C, B, A), tri(A, B, E), tri(B, A, D),
                                tri(vec3(1, 1, 1), A, B)}}) {
        const std::vector<Edge> edges = DetectNonManifoldEdges(fan);
        ASSERT_EQ(edges.size(), 1u);
        EXPECT_EQ(edges[0].a, A);
        EXPECT_EQ(edges[0].b, B);
    }
    // The same triangle twice: manifold; three times: all three edges.
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, B, C), tri(A, B, C)}).empty());
    const std::vector<Triangle> thrice = {tri(A, B, C), tri(A, B, C), tri(A, B, C)};
    expectSameEdges(DetectNonManifoldEdges(thrice),
                    {MakeEdge(A, B), MakeEdge(B, C), MakeEdge(C, A)});
}

TEST(DetectNonManifoldEdges, DegenerateTrianglesCountTheirCollapsedEdges) {
    // (A, A, B): a zero-length edge and A-B twice; one more triangle on A-B
    // brings it to three.
    EXPECT_TRUE(DetectNonManifoldEdges({tri(A, A, B)}).empty());
    const std::vector<Edge> edges = DetectNonManifoldEdges({tri(A, A, B), tri(A, B, C)});
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_TRUE(bitEqual(edges[0], MakeEdge(A, B)));
    // Three zero-length edges at one point: a point triangle.
    EXPECT_EQ(DetectNonManifoldEdges({tri(A, A, A)}).size(), 1u);
}

// +0 and -0 are one coordinate (equal floats, equal hashes); a reported edge
// carries the coordinates of its first use.
TEST(DetectNonManifoldEdges, SignedZerosMeetAndTheFirstUseIsKept) {
    const vec3 negA(-0.0f, -0.0f, -0.0f);
    const std::vector<Triangle> fan = {tri(negA, B, C), tri(A, B, E), tri(B, A, D)};
    const std::vector<Edge> edges = DetectNonManifoldEdges(fan);
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_TRUE(std::signbit(edges[0].a.x));
    expectSameEdges(edges, oracle(fan));
}

// Near-equal corners count as the map with EdgeHash counts them: separate
// keys unless their hashes meet, as they do for every zero-length edge.
TEST(DetectNonManifoldEdges, NearlyEqualCornersFollowTheHashContainer) {
    const vec3 nearA(1e-6f, 0, 0);
    const std::vector<Triangle> shifted = {tri(A, B, C), tri(nearA, B, E), tri(B, A, D)};
    expectSameEdges(DetectNonManifoldEdges(shifted), oracle(shifted));
    EXPECT_TRUE(DetectNonManifoldEdges(shifted).empty());

    const std::vector<Triangle> points = {tri(A, A, B), tri(nearA, nearA, C), tri(A, A, D)};
    expectSameEdges(DetectNonManifoldEdges(points), oracle(points));
}

TEST(DetectNonManifoldEdges, NonFiniteCornersAreDefined) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const vec3 N(nan, 0, 0), I(inf, 0, 0);
    // A NaN corner never equals anything, not even itself, and an infinite
    // one is not within 1e-5 of itself (inf - inf is NaN): their edges are
    // never counted twice. B-C is used six times.
    const std::vector<Triangle> soup = {tri(N, B, C), tri(N, B, C), tri(N, B, C),
                                        tri(I, B, C), tri(I, B, C), tri(I, B, C)};
    expectSameEdges(DetectNonManifoldEdges(soup), oracle(soup));
    EXPECT_EQ(DetectNonManifoldEdges(soup).size(), 1u);
}

// Random soups over a small pool of grid points share many edges, with fins,
// repeats and degenerate triangles; the order of first use is kept.
TEST(DetectNonManifoldEdges, RandomSoupsMatchTheHashContainer) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> coordinate(0, 3);
    std::vector<vec3> pool;
    for (int i = 0; i < 12; ++i)
        pool.emplace_back(coordinate(rng) * 0.5f, coordinate(rng) * 0.25f, coordinate(rng) - 1.0f);
    std::uniform_int_distribution<size_t> pick(0, pool.size() - 1);
    for (size_t size : {3u, 20u, 100u, 2000u}) {
        std::vector<Triangle> soup;
        for (size_t t = 0; t < size; ++t)
            soup.push_back(tri(pool[pick(rng)], pool[pick(rng)], pool[pick(rng)]));
        expectSameEdges(DetectNonManifoldEdges(soup), oracle(soup));
    }
}

// The real scanned bunny: mostly manifold, and on a whole mesh (with growth of
// the table past its first size on a soup of separate triangles), the same as
// the container.
TEST(DetectNonManifoldEdges, BunnyMatchesTheHashContainer) {
    const MeshData& bunny = meshtest::bunny();
    ASSERT_GT(bunny.indices.size(), 200000u) << "bunny not found at " << KORVEX_BUNNY_PATH;
    std::vector<Triangle> soup = meshtest::toSoup(bunny);
    const size_t scanned = DetectNonManifoldEdges(soup).size();

    // Add fins along the first 500 triangles' first edges.
    for (size_t t = 0; t < 500; ++t)
        soup.push_back(tri(soup[t].p1, soup[t].p0, soup[t].p0 + vec3(0, 0, 1)));
    const std::vector<Edge> fins = DetectNonManifoldEdges(soup);
    expectSameEdges(fins, oracle(soup));
    EXPECT_GE(fins.size(), scanned + 400);

    // Every triangle moved apart: 3 distinct edges each, none shared.
    std::vector<Triangle> apart;
    for (size_t t = 0; t < 20000; ++t) {
        const vec3 offset(static_cast<float>(t), 0, 0);
        apart.push_back(tri(soup[t].p0 + offset, soup[t].p1 + offset, soup[t].p2 + offset));
    }
    EXPECT_TRUE(DetectNonManifoldEdges(apart).empty());
}
