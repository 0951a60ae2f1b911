#include <korvex/loops.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

using testmesh::LogCapture;
using EdgeSet = std::unordered_set<Edge, EdgeHash>;

namespace {

const std::string kNoNeighbour = "No unvisited neighbors found, terminating traversal.";
const std::string kLimit = "Loop traversal took too long \x97 possible infinite loop.";
const std::string kTooFew = "Failed to build valid loop \x97 too few points.";

// Points on a circle of radius 100: neighbours stay far above the closing distance of 1e-4.
std::vector<vec3> circle(int n) {
    std::vector<vec3> points;
    for (int i = 0; i < n; ++i) {
        const double a = 2.0 * M_PI * i / n;
        points.emplace_back(100.0 * std::cos(a), 100.0 * std::sin(a), 0.25f * (i % 3));
    }
    return points;
}

EdgeSet ringEdges(const std::vector<vec3>& points) {
    EdgeSet edges;
    for (size_t i = 0; i < points.size(); ++i)
        edges.insert(Edge(points[i], points[(i + 1) % points.size()]));
    return edges;
}

// Every step of the loop (and the closing one when `closed`) runs along an edge of the set, and
// no point repeats.
void expectWalksAlongEdges(const std::vector<vec3>& loop, const EdgeSet& edges, bool closed) {
    for (size_t i = 0; i + 1 < loop.size(); ++i)
        EXPECT_EQ(edges.count(Edge(loop[i], loop[i + 1])), 1u) << "step " << i;
    if (closed) {
        EXPECT_EQ(edges.count(Edge(loop.back(), loop.front())), 1u) << "closing step";
    }
    std::vector<vec3> sorted = loop;
    std::sort(sorted.begin(), sorted.end(), [](const vec3& a, const vec3& b) {
        return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    });
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "a point repeats";
}

std::vector<std::string> expectedLog(size_t edgeCount, size_t pointCount, const std::string& end,
                                     size_t loopSize, bool built) {
    return {"Input edge count: " + std::to_string(edgeCount),
            "Adjacency map size: " + std::to_string(pointCount),
            "Starting loop traversal...",
            end,
            "Ordered loop size: " + std::to_string(loopSize),
            built ? "Loop successfully built." : kTooFew};
}

} // namespace

TEST(OrderLoop, ClosedRingsUpToTheStepLimitWithTheExactLog) {
    // 10002 points need 10001 moves: all are found, but the counter passes the limit before
    // the walk can notice that nothing is left. Longer rings stop at 10002 points.
    for (int n : {3, 4, 100, 10001, 10002, 10005}) {
        SCOPED_TRACE(n);
        const EdgeSet edges = ringEdges(circle(n));
        const size_t expectedSize = std::min(n, 10002);
        std::vector<vec3> loop{vec3(9.0f)}; // replaced, not appended to
        LogCapture log;
        ASSERT_TRUE(meshGeometry::orderLoop(edges, loop));
        ASSERT_EQ(loop.size(), expectedSize);
        expectWalksAlongEdges(loop, edges, n <= 10002);
        EXPECT_EQ(log.lines,
                  expectedLog(n, n, n < 10002 ? kNoNeighbour : kLimit, expectedSize, true));
    }
}

TEST(OrderLoop, NothingToWalkLeavesTheLoopUntouched) {
    const std::vector<vec3> before{vec3(1, 2, 3), vec3(4, 5, 6)};
    const vec3 p(0, 0, 0), q(1, 0, 0);
    const std::string tooFew = "Too few unique points to build a loop.";
    const std::pair<EdgeSet, std::vector<std::string>> cases[] = {
        {{}, {"Input edge count: 0", "Edge set is empty, cannot build loop."}},
        {{Edge(p, q)}, {"Input edge count: 1", "Adjacency map size: 2", tooFew}},
        // A point joined to itself is one point; +0 and -0 are the same point.
        {{Edge(p, p), Edge(q, q)}, {"Input edge count: 2", "Adjacency map size: 2", tooFew}},
        {{Edge(p, q), Edge(vec3(-0.0f, 0, 0), vec3(0, 0, -0.0f))},
         {"Input edge count: 2", "Adjacency map size: 2", tooFew}},
    };
    for (const auto& [edges, lines] : cases) {
        std::vector<vec3> loop = before;
        LogCapture log;
        EXPECT_FALSE(meshGeometry::orderLoop(edges, loop));
        EXPECT_EQ(loop, before);
        EXPECT_EQ(log.lines, lines);
    }
}

TEST(OrderLoop, OnlyWhatTheStartReachesComesBack) {
    // An open chain: the walk runs along it from the start to one of its ends.
    std::vector<vec3> chain;
    EdgeSet chainEdges;
    for (int i = 0; i < 12; ++i) chain.emplace_back(float(i), float(i * i), 0);
    for (size_t i = 0; i + 1 < chain.size(); ++i) chainEdges.insert(Edge(chain[i], chain[i + 1]));
    std::vector<vec3> loop;
    LogCapture log;
    meshGeometry::orderLoop(chainEdges, loop);
    expectWalksAlongEdges(loop, chainEdges, false);
    EXPECT_TRUE(loop.back() == chain.front() || loop.back() == chain.back());

    // Two separate rings: only the start's ring.
    const std::vector<vec3> small = circle(5);
    std::vector<vec3> large = circle(9);
    for (vec3& p : large) p.z += 10.0f;
    EdgeSet both = ringEdges(small);
    for (const Edge& e : ringEdges(large)) both.insert(e);
    EXPECT_TRUE(meshGeometry::orderLoop(both, loop));
    const bool inSmall = std::find(small.begin(), small.end(), loop.front()) != small.end();
    EXPECT_EQ(loop.size(), inSmall ? 5u : 9u);
    expectWalksAlongEdges(loop, both, true);

    // Three separate edges: 6 points pass the first check, the walk finds 2.
    const EdgeSet apart{Edge(vec3(0, 0, 0), vec3(1, 0, 0)), Edge(vec3(0, 5, 0), vec3(1, 5, 0)),
                        Edge(vec3(0, 9, 0), vec3(1, 9, 0))};
    log.lines.clear();
    EXPECT_FALSE(meshGeometry::orderLoop(apart, loop));
    ASSERT_EQ(loop.size(), 2u);
    EXPECT_EQ(loop[0].y, loop[1].y);
    EXPECT_EQ(log.lines, expectedLog(3, 6, kNoNeighbour, 2, false));
}

TEST(OrderLoop, PointsMeetOnExactCoordinatesOnlyAndSelfEdgesAreHarmless) {
    const std::vector<vec3> tri{vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)};
    // The last edge ends 1e-6 off the first point: Edge equality would merge it, the walk not.
    EdgeSet nearly{Edge(tri[0], tri[1]), Edge(tri[1], tri[2]), Edge(tri[2], vec3(1e-6f, 0, 0))};
    std::vector<vec3> loop;
    LogCapture log;
    meshGeometry::orderLoop(nearly, loop);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 4");

    // A point that is its own neighbour never counts as unvisited again.
    EdgeSet selfEdge = ringEdges(tri);
    selfEdge.insert(Edge(tri[1], tri[1]));
    log.lines.clear();
    EXPECT_TRUE(meshGeometry::orderLoop(selfEdge, loop));
    EXPECT_EQ(loop.size(), 3u);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 3");

    // A NaN point equals nothing, itself included; the walk still ends.
    const float nan = std::nanf("");
    EdgeSet withNan = ringEdges(tri);
    withNan.insert(Edge(tri[0], vec3(nan, 0, 0)));
    withNan.insert(Edge(vec3(nan, 1, 0), vec3(2, 2, 2)));
    log.lines.clear();
    meshGeometry::orderLoop(withNan, loop);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 6");
    EXPECT_LE(loop.size(), 4u);
}

TEST(OrderLoop, AnEndCloserThan1e4ToTheStartClosesTheLoop) {
    // A ring opened at one point: the last edge ends 5e-5 beside where the first begins.
    // Started at either end of that chain, the walk stops on the near-duplicate; try each
    // point as the one displaced.
    const std::vector<vec3> ring = circle(6);
    bool sawClosed = false;
    for (size_t d = 0; d < ring.size(); ++d) {
        const vec3 first = ring[d], last = ring[d] + vec3(5e-5f, 0, 0);
        EdgeSet edges;
        for (size_t i = 0; i < ring.size(); ++i)
            edges.insert(Edge(ring[(d + i) % 6], i == 5 ? last : ring[(d + i + 1) % 6]));
        std::vector<vec3> loop;
        LogCapture log;
        EXPECT_TRUE(meshGeometry::orderLoop(edges, loop));
        if (loop.front() != first && loop.front() != last) continue;
        sawClosed = true;
        ASSERT_EQ(loop.size(), 7u);
        EXPECT_EQ(loop.back(), loop.front() == first ? last : first);
        EXPECT_EQ(log.lines, expectedLog(6, 7, "Loop closed successfully.", 7, true));
    }
    EXPECT_TRUE(sawClosed);
}

TEST(OrderLoop, CrossSectionOfTheBunnyComesBackWhole) {
    // The bunny cut at y = 0.1 is one simple ring of segments meeting on equal floats.
    const EdgeSet cut = testmesh::sliceEdges(testmesh::bunny(), 0.1f);
    ASSERT_GT(cut.size(), 100u) << "bunny not found at " << KORVEX_BUNNY_PATH;
    std::vector<vec3> loop;
    LogCapture log;
    ASSERT_TRUE(meshGeometry::orderLoop(cut, loop));
    EXPECT_EQ(loop.size(), cut.size());
    expectWalksAlongEdges(loop, cut, true);
    EXPECT_EQ(log.lines, expectedLog(cut.size(), cut.size(), kNoNeighbour, cut.size(), true));
}
