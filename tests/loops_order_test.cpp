#include <korvex/loops.h>

#include "loops_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

using loopstest::LogCapture;
using EdgeSet = std::unordered_set<Edge, EdgeHash>;

namespace {

const std::string kLimit = "Loop traversal took too long \x97 possible infinite loop.";
const std::string kTooFew = "Failed to build valid loop \x97 too few points.";

// Points on a circle of radius 100: neighbours are about 0.06 apart even for
// 10005 points, far above the closing distance of 0.0001.
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
    for (size_t i = 0; i < points.size(); ++i) {
        edges.insert(Edge(points[i], points[(i + 1) % points.size()]));
    }
    return edges;
}

// Lexicographic order, so that points can key ordered containers.
struct Vec3Less {
    bool operator()(const vec3& a, const vec3& b) const {
        return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    }
};

using PointPairs = std::set<std::pair<vec3, vec3>,
                            bool (*)(const std::pair<vec3, vec3>&, const std::pair<vec3, vec3>&)>;

bool pairLess(const std::pair<vec3, vec3>& p, const std::pair<vec3, vec3>& q) {
    Vec3Less less;
    if (less(p.first, q.first)) return true;
    if (less(q.first, p.first)) return false;
    return less(p.second, q.second);
}

PointPairs pairsOf(const EdgeSet& edges) {
    PointPairs pairs(pairLess);
    for (const Edge& e : edges) {
        pairs.insert({e.a, e.b});
        pairs.insert({e.b, e.a});
    }
    return pairs;
}

// Every step of the loop, including the implied closing one when `closed`,
// runs along an edge of the set, and no point repeats.
void expectWalksAlongEdges(const std::vector<vec3>& loop, const EdgeSet& edges, bool closed) {
    const PointPairs pairs = pairsOf(edges);
    for (size_t i = 0; i + 1 < loop.size(); ++i) {
        EXPECT_TRUE(pairs.count({loop[i], loop[i + 1]})) << "step " << i;
    }
    if (closed) {
        EXPECT_TRUE(pairs.count({loop.back(), loop.front()})) << "closing step";
    }
    const std::set<vec3, Vec3Less> distinct(loop.begin(), loop.end());
    EXPECT_EQ(distinct.size(), loop.size());
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

TEST(OrderLoop, ClosedRingsComeBackWholeWithTheExactLog) {
    for (int n : {3, 4, 7, 100, 10001}) {
        SCOPED_TRACE(n);
        const std::vector<vec3> ring = circle(n);
        const EdgeSet edges = ringEdges(ring);
        std::vector<vec3> loop{vec3(9.0f)}; // replaced, not appended to
        LogCapture log;
        ASSERT_TRUE(meshGeometry::orderLoop(edges, loop));
        ASSERT_EQ(loop.size(), size_t(n));
        expectWalksAlongEdges(loop, edges, true);
        EXPECT_EQ(
            log.lines,
            expectedLog(n, n, "No unvisited neighbors found, terminating traversal.", n, true));
    }
}

TEST(OrderLoop, StepLimitStopsLongRingsAfter10001Moves) {
    // 10002 points need exactly 10001 moves: all are found, yet the counter
    // passes the limit before the walk can notice that nothing is left.
    for (int n : {10002, 10005}) {
        SCOPED_TRACE(n);
        const std::vector<vec3> ring = circle(n);
        const EdgeSet edges = ringEdges(ring);
        std::vector<vec3> loop;
        LogCapture log;
        EXPECT_TRUE(meshGeometry::orderLoop(edges, loop));
        ASSERT_EQ(loop.size(), 10002u);
        expectWalksAlongEdges(loop, edges, n == 10002);
        EXPECT_EQ(log.lines, expectedLog(n, n, kLimit, 10002, true));
    }
}

TEST(OrderLoop, NothingToWalkLeavesTheLoopUntouched) {
    const std::vector<vec3> before{vec3(1, 2, 3), vec3(4, 5, 6)};
    const vec3 p(0, 0, 0), q(1, 0, 0);
    struct Case {
        EdgeSet edges;
        std::vector<std::string> log;
    };
    const Case cases[] = {
        {{}, {"Input edge count: 0", "Edge set is empty, cannot build loop."}},
        {{Edge(p, q)},
         {"Input edge count: 1", "Adjacency map size: 2",
          "Too few unique points to build a loop."}},
        // The reversed edge is the same key: the set keeps one.
        {{Edge(p, q), Edge(q, p)},
         {"Input edge count: 1", "Adjacency map size: 2",
          "Too few unique points to build a loop."}},
        // A point joined to itself is one point, not two.
        {{Edge(p, p), Edge(q, q)},
         {"Input edge count: 2", "Adjacency map size: 2",
          "Too few unique points to build a loop."}},
        // +0 and -0 are the same point.
        {{Edge(p, q), Edge(vec3(-0.0f, 0, 0), vec3(0, 0, -0.0f))},
         {"Input edge count: 2", "Adjacency map size: 2",
          "Too few unique points to build a loop."}},
    };
    for (const Case& c : cases) {
        std::vector<vec3> loop = before;
        LogCapture log;
        EXPECT_FALSE(meshGeometry::orderLoop(c.edges, loop));
        EXPECT_EQ(loop, before);
        EXPECT_EQ(log.lines, c.log);
    }
}

TEST(OrderLoop, PointsMeetOnlyOnExactlyEqualCoordinates) {
    // The last edge ends 1e-6 off the first point: Edge equality would merge
    // that, the walk does not, so 4 points are found and the ring is open.
    const vec3 a(0, 0, 0), b(1, 0, 0), c(1, 1, 0), nearA(1e-6f, 0, 0);
    const EdgeSet edges{Edge(a, b), Edge(b, c), Edge(c, nearA)};
    std::vector<vec3> loop;
    LogCapture log;
    meshGeometry::orderLoop(edges, loop);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 4");
}

TEST(OrderLoop, TwoEdgeChainDependsOnWhereTheWalkStarts) {
    // Started at an end, the walk finds all three points although no closing
    // edge exists; started in the middle it finds two and fails. Which start
    // the tables pick is theirs to choose, so try chains until both occur.
    bool sawEnd = false, sawMiddle = false;
    for (int i = 0; i < 400 && !(sawEnd && sawMiddle); ++i) {
        const vec3 a(0.37f * float(i), 0, 0), mid(0.5f, float(i) / 7.0f, 1), b(1, 2, float(i));
        // The order of insertion changes the order the set delivers its edges.
        EdgeSet edges;
        edges.insert(i % 2 ? Edge(a, mid) : Edge(mid, b));
        edges.insert(i % 2 ? Edge(mid, b) : Edge(a, mid));
        std::vector<vec3> loop;
        LogCapture log;
        const bool built = meshGeometry::orderLoop(edges, loop);
        ASSERT_FALSE(loop.empty());
        if (loop.front() == mid) {
            sawMiddle = true;
            EXPECT_FALSE(built);
            ASSERT_EQ(loop.size(), 2u);
            EXPECT_TRUE(loop[1] == a || loop[1] == b);
            EXPECT_EQ(log.lines,
                      expectedLog(2, 3, "No unvisited neighbors found, terminating traversal.", 2,
                                  false));
        } else {
            sawEnd = true;
            EXPECT_TRUE(built);
            ASSERT_EQ(loop.size(), 3u);
            EXPECT_EQ(loop[1], mid);
            EXPECT_EQ(loop[2], loop.front() == a ? b : a);
        }
    }
    EXPECT_TRUE(sawEnd);
    EXPECT_TRUE(sawMiddle);
}

TEST(OrderLoop, OpenChainsAndSeparatePiecesGiveOnlyWhatTheStartReaches) {
    // An open chain: from the start the walk runs to one end, a contiguous run.
    std::vector<vec3> chain;
    for (int i = 0; i < 12; ++i) chain.emplace_back(float(i), float(i * i), 0);
    EdgeSet chainEdges;
    for (size_t i = 0; i + 1 < chain.size(); ++i) chainEdges.insert(Edge(chain[i], chain[i + 1]));
    std::vector<vec3> loop;
    {
        LogCapture log;
        meshGeometry::orderLoop(chainEdges, loop);
    }
    const auto startAt = std::find(chain.begin(), chain.end(), loop.front());
    ASSERT_NE(startAt, chain.end());
    const size_t s = size_t(startAt - chain.begin());
    const bool forward = loop.size() > 1 && s + 1 < chain.size() && loop[1] == chain[s + 1];
    ASSERT_EQ(loop.size(), forward ? chain.size() - s : s + 1);
    for (size_t k = 0; k < loop.size(); ++k) {
        EXPECT_EQ(loop[k], forward ? chain[s + k] : chain[s - k]);
    }

    // Two separate rings: only the ring of the start point comes back.
    const std::vector<vec3> small = circle(5);
    std::vector<vec3> large = circle(9);
    for (vec3& p : large) p.z += 10.0f;
    EdgeSet both = ringEdges(small);
    for (const Edge& e : ringEdges(large)) both.insert(e);
    LogCapture log;
    EXPECT_TRUE(meshGeometry::orderLoop(both, loop));
    const bool inSmall = std::find(small.begin(), small.end(), loop.front()) != small.end();
    EXPECT_EQ(loop.size(), inSmall ? 5u : 9u);
    expectWalksAlongEdges(loop, both, true);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 14");
}

TEST(OrderLoop, SelfEdgesAndDisconnectedEdges) {
    // A point that is its own neighbour never counts as unvisited again.
    const std::vector<vec3> tri{vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)};
    EdgeSet edges = ringEdges(tri);
    edges.insert(Edge(tri[1], tri[1]));
    std::vector<vec3> loop;
    {
        LogCapture log;
        EXPECT_TRUE(meshGeometry::orderLoop(edges, loop));
        EXPECT_EQ(loop.size(), 3u);
        EXPECT_EQ(log.lines[1], "Adjacency map size: 3");
    }

    // Three separate edges: 6 points pass the first check, the walk finds 2.
    const EdgeSet apart{Edge(vec3(0, 0, 0), vec3(1, 0, 0)), Edge(vec3(0, 5, 0), vec3(1, 5, 0)),
                        Edge(vec3(0, 9, 0), vec3(1, 9, 0))};
    LogCapture log;
    EXPECT_FALSE(meshGeometry::orderLoop(apart, loop));
    ASSERT_EQ(loop.size(), 2u);
    EXPECT_EQ(loop[0].y, loop[1].y);
    EXPECT_EQ(log.lines,
              expectedLog(3, 6, "No unvisited neighbors found, terminating traversal.", 2, false));
}

TEST(OrderLoop, AnEndCloserThan1e4ToTheStartClosesTheLoop) {
    // A ring opened at one point: the last edge ends 5e-5 beside where the
    // first begins, so the set is a chain. Started at either end, the walk
    // stops on the near-duplicate with "Loop closed successfully."; started
    // inside, it runs to an end. Try each point as the one displaced.
    const std::vector<vec3> ring = circle(6);
    bool sawClosed = false;
    for (size_t d = 0; d < ring.size(); ++d) {
        const vec3 first = ring[d], last = ring[d] + vec3(5e-5f, 0, 0);
        EdgeSet edges;
        for (size_t i = 0; i < ring.size(); ++i) {
            const vec3 p = ring[(d + i) % ring.size()];
            const vec3 q = i + 1 == ring.size() ? last : ring[(d + i + 1) % ring.size()];
            edges.insert(Edge(p, q));
        }
        std::vector<vec3> loop;
        LogCapture log;
        EXPECT_TRUE(meshGeometry::orderLoop(edges, loop));
        if (loop.front() == first || loop.front() == last) {
            sawClosed = true;
            ASSERT_EQ(loop.size(), 7u);
            EXPECT_EQ(loop.back(), loop.front() == first ? last : first);
            EXPECT_EQ(log.lines, expectedLog(6, 7, "Loop closed successfully.", 7, true));
        } else {
            EXPECT_EQ(log.lines[3], "No unvisited neighbors found, terminating traversal.");
        }
    }
    EXPECT_TRUE(sawClosed);
}

TEST(OrderLoop, NaNEndPointsEndTheWalkWithoutHanging) {
    // A NaN point equals nothing, itself included: every occurrence is a new
    // point and never counts as visited. The walk still ends at once.
    const float nan = std::nanf("");
    const std::vector<vec3> tri{vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)};
    EdgeSet edges = ringEdges(tri);
    edges.insert(Edge(tri[0], vec3(nan, 0, 0)));
    edges.insert(Edge(vec3(nan, 1, 0), vec3(2, 2, 2)));
    std::vector<vec3> loop;
    LogCapture log;
    meshGeometry::orderLoop(edges, loop);
    EXPECT_EQ(log.lines[1], "Adjacency map size: 6");
    EXPECT_LE(loop.size(), 4u);
    EXPECT_GE(loop.size(), 1u);
}

namespace {

// The boundary of a mesh: edges used by exactly one triangle, as points.
EdgeSet boundaryEdges(const std::vector<vec3>& positions, const std::vector<unsigned>& indices) {
    std::map<std::pair<unsigned, unsigned>, int> uses;
    for (size_t t = 0; t + 2 < indices.size(); t += 3) {
        for (int k = 0; k < 3; ++k) {
            const unsigned a = indices[t + k], b = indices[t + (k + 1) % 3];
            ++uses[{std::min(a, b), std::max(a, b)}];
        }
    }
    EdgeSet edges;
    for (const auto& [key, count] : uses) {
        if (count == 1) edges.insert(Edge(positions[key.first], positions[key.second]));
    }
    return edges;
}

} // namespace

TEST(OrderLoop, HoleCutIntoTheBunnyComesBackAsItsBoundary) {
    const loopstest::ObjMesh& bunny = loopstest::bunny();
    ASSERT_GT(bunny.indices.size(), 200000u) << "bunny not found at " << KORVEX_BUNNY_PATH;
    // The scan is closed; drop the triangles around one vertex to open a hole.
    const vec3 centre = bunny.positions[1000];
    std::vector<unsigned> kept;
    for (size_t t = 0; t < bunny.indices.size(); t += 3) {
        const vec3 mid =
            (bunny.positions[bunny.indices[t]] + bunny.positions[bunny.indices[t + 1]] +
             bunny.positions[bunny.indices[t + 2]]) /
            3.0f;
        if (glm::distance(mid, centre) > 0.08f) {
            kept.insert(kept.end(), bunny.indices.begin() + t, bunny.indices.begin() + t + 3);
        }
    }
    ASSERT_TRUE(boundaryEdges(bunny.positions, bunny.indices).empty());
    const EdgeSet hole = boundaryEdges(bunny.positions, kept);

    // The hole is a simple ring: every boundary point has two boundary edges.
    std::map<vec3, int, Vec3Less> degree;
    for (const Edge& e : hole) ++degree[e.a], ++degree[e.b];
    ASSERT_GT(degree.size(), 20u);
    for (const auto& entry : degree) ASSERT_EQ(entry.second, 2);

    std::vector<vec3> loop;
    LogCapture log;
    ASSERT_TRUE(meshGeometry::orderLoop(hole, loop));
    EXPECT_EQ(loop.size(), degree.size());
    EXPECT_EQ(loop.size(), hole.size());
    expectWalksAlongEdges(loop, hole, true);
    EXPECT_EQ(log.lines.back(), "Loop successfully built.");
}

TEST(OrderLoop, PlaneCutThroughTheBunnyWalksOneCrossSection) {
    // Slice the bunny at y = c: each crossed triangle gives one segment between
    // the points where two of its edges cross. A mesh edge's crossing is
    // computed from its lower-numbered end, so both triangles sharing the edge
    // produce the same floats and the segments meet exactly.
    const loopstest::ObjMesh& bunny = loopstest::bunny();
    const float c = 0.1234567f;
    for (const vec3& p : bunny.positions) ASSERT_NE(p.y, c);
    auto crossing = [&](unsigned i, unsigned j) {
        if (i > j) std::swap(i, j);
        const vec3 p = bunny.positions[i], q = bunny.positions[j];
        return p + (q - p) * ((c - p.y) / (q.y - p.y));
    };
    EdgeSet cut;
    for (size_t t = 0; t < bunny.indices.size(); t += 3) {
        std::vector<vec3> ends;
        for (int k = 0; k < 3; ++k) {
            const unsigned i = bunny.indices[t + k], j = bunny.indices[t + (k + 1) % 3];
            if ((bunny.positions[i].y < c) != (bunny.positions[j].y < c)) {
                ends.push_back(crossing(i, j));
            }
        }
        if (ends.size() == 2) cut.insert(Edge(ends[0], ends[1]));
    }
    ASSERT_GT(cut.size(), 100u);

    // Cross sections, found plainly by flooding over the segments.
    std::map<vec3, std::vector<vec3>, Vec3Less> next;
    for (const Edge& e : cut) next[e.a].push_back(e.b), next[e.b].push_back(e.a);
    std::map<vec3, int, Vec3Less> section;
    std::vector<size_t> sectionSize;
    for (const auto& entry : next) {
        if (section.count(entry.first)) continue;
        const int id = int(sectionSize.size());
        sectionSize.push_back(0);
        std::vector<vec3> stack{entry.first};
        section[entry.first] = id;
        while (!stack.empty()) {
            const vec3 p = stack.back();
            stack.pop_back();
            ++sectionSize[id];
            for (const vec3& q : next[p]) {
                if (section.emplace(q, id).second) stack.push_back(q);
            }
        }
    }

    std::vector<vec3> loop;
    LogCapture log;
    ASSERT_TRUE(meshGeometry::orderLoop(cut, loop));
    const int id = section.at(loop.front());
    EXPECT_EQ(loop.size(), sectionSize[id]);
    for (const vec3& p : loop) EXPECT_EQ(section.at(p), id);
    expectWalksAlongEdges(loop, cut, true);
    EXPECT_EQ(log.lines.front(), "Input edge count: " + std::to_string(cut.size()));
}
