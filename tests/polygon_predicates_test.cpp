#include <korvex/polygon.h>

#include "../octree/lasso_grid.h"
#include "../octree/lasso_index.h"
#include "../octree/segment_crossing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using meshGeometry::isPointInPolygon;
using octree_detail::segmentCrossesPolygon;

namespace {

const std::vector<vec2> kSquare{{0, 0}, {1, 0}, {1, 1}, {0, 1}};

// Plain even-odd parity in double, for points well away from every edge.
bool parityOracle(const vec2& p, const std::vector<vec2>& poly) {
    bool inside = false;
    for (size_t i = 0, j = poly.size() - 1; i < poly.size(); j = i++) {
        const double yi = poly[i].y, yj = poly[j].y, xi = poly[i].x, xj = poly[j].x;
        if ((yi > p.y) != (yj > p.y) && xi + (p.y - yi) * (xj - xi) / (yj - yi) > p.x)
            inside = !inside;
    }
    return inside;
}

} // namespace

TEST(PolygonPredicates, PointTestsAgreeWithParityAwayFromEdges) {
    std::vector<vec2> star;
    for (int i = 0; i < 10; ++i) {
        const float a = 0.6283185f * static_cast<float>(i), r = i % 2 ? 40.0f : 100.0f;
        star.emplace_back(200.0f + r * std::cos(a), 150.0f + r * std::sin(a));
    }
    const std::vector<vec2> reversed(star.rbegin(), star.rend());
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> x(80.0f, 320.0f), y(30.0f, 270.0f);
    for (int i = 0; i < 3000; ++i) {
        const vec2 p(x(rng), y(rng));
        const bool expected = parityOracle(p, star);
        ASSERT_EQ(isPointInPolygon(p, star), expected) << p.x << "," << p.y;
        ASSERT_EQ(isPointInPolygon(p, reversed), expected);
        ASSERT_EQ(isPointInsidePolygon2D(p, star), expected);
    }
}

TEST(PolygonPredicates, BoundaryAndDegenerateRules) {
    for (auto inside : {&isPointInPolygon, &isPointInsidePolygon2D}) {
        // Left edge (interior on +x) inside, right edge outside; the bottom edge's level counts
        // as not above, the top edge's level is outside.
        EXPECT_TRUE(inside(vec2(0.0f, 0.5f), kSquare));
        EXPECT_FALSE(inside(vec2(1.0f, 0.5f), kSquare));
        EXPECT_TRUE(inside(vec2(0.5f, 0.0f), kSquare));
        EXPECT_FALSE(inside(vec2(0.5f, 1.0f), kSquare));
        // The diamond contains its centre, level with two vertices.
        EXPECT_TRUE(inside(vec2(0.0f, 0.0f), {{0, -1}, {1, 0}, {0, 1}, {-1, 0}}));
        // One or two vertices contain nothing; nothing contains nothing; NaN is outside.
        EXPECT_FALSE(inside(vec2(0.0f), {{0, 0}}));
        EXPECT_FALSE(inside(vec2(0.5f, 0.5f), {{0, 0}, {1, 1}}));
        EXPECT_FALSE(inside(vec2(0.0f), {}));
        EXPECT_FALSE(inside(vec2(NAN), kSquare));
    }
    // The divisor addends differ: 1e-5 against a tiny rise moves the crossing, 1e-10 barely.
    const std::vector<vec2> sliver{{0.0f, 0.0f}, {1000.0f, 0.00002f}, {0.0f, 0.00004f}};
    EXPECT_TRUE(isPointInPolygon(vec2(400.0f, 0.00001f), sliver));
    EXPECT_FALSE(isPointInsidePolygon2D(vec2(400.0f, 0.00001f), sliver));
}

TEST(PolygonPredicates, CrossAndRectangles) {
    using namespace meshGeometry;
    EXPECT_EQ(cross2D(vec2(0), vec2(1, 0), vec2(0, 1)), 1.0f);
    EXPECT_EQ(cross2D(vec2(0), vec2(0, 1), vec2(1, 0)), -1.0f);
    EXPECT_EQ(cross2D(vec2(0), vec2(1, 1), vec2(3, 3)), 0.0f);

    const auto corners = [](const ScreenRect& r) { return vec4(r.minX, r.minY, r.maxX, r.maxY); };
    EXPECT_EQ(corners(computePolygonBounds({{5, -2}, {-1, 3}, {2, 7}})), vec4(-1, -2, 5, 7));
    EXPECT_EQ(corners(calculatePolygonScreenAABB_2D({{5, -2}, {-1, 3}, {2, 7}})),
              vec4(-1, -2, 5, 7));
    EXPECT_EQ(corners(computePolygonBounds({})),
              vec4(3.4028235e38f, 3.4028235e38f, -3.4028235e38f, -3.4028235e38f));
    EXPECT_EQ(corners(calculatePolygonScreenAABB_2D({})), vec4(0.0f));

    // Only polygon vertices in the triangle's rectangle count, bounds included.
    EXPECT_TRUE(triangleAABBIntersectsPolygon(vec2(0), vec2(1, 0), vec2(0, 1), {{1, 1}, {5, 5}}));
    EXPECT_FALSE(triangleAABBIntersectsPolygon(vec2(0.4f), vec2(0.5f), vec2(0.4f, 0.5f),
                                               {{-9, -9}, {9, -9}, {9, 9}, {-9, 9}}))
        << "wholly inside, no vertex in its rectangle";
    EXPECT_FALSE(triangleAABBIntersectsPolygon(vec2(0), vec2(1, 0), vec2(0, 1), {}));
    const AABB box(vec3(0), vec3(1));
    EXPECT_TRUE(aabbIntersectsPolygon(box, {{5, 5, 5}, {1, 1, 1}}));
    EXPECT_FALSE(aabbIntersectsPolygon(box, {{-1, 0.5f, 0.5f}, {2, 0.5f, 0.5f}}))
        << "passes right through with no vertex inside";
    EXPECT_FALSE(aabbIntersectsPolygon(box, {{0.5f, 0.5f, 1.01f}}));
    EXPECT_FALSE(aabbIntersectsPolygon(box, {}));
}

TEST(PolygonPredicates, SegmentCrossing) {
    EXPECT_TRUE(segmentCrossesPolygon(kSquare, vec2(-1, 0.5f), vec2(0.5f, 0.5f)));
    EXPECT_FALSE(segmentCrossesPolygon(kSquare, vec2(0.2f, 0.2f), vec2(0.8f, 0.8f)));
    EXPECT_FALSE(segmentCrossesPolygon(kSquare, vec2(-1, -1), vec2(-2, 3)));
    EXPECT_FALSE(segmentCrossesPolygon({}, vec2(-1, 0.5f), vec2(2, 0.5f)));
    // Collinear overlap with an edge is no crossing; touching the end of an edge can be.
    EXPECT_FALSE(segmentCrossesPolygon({{0, 0}, {1, 0}}, vec2(-1, 0), vec2(2, 0)));
    EXPECT_TRUE(segmentCrossesPolygon(kSquare, vec2(-1, 0), vec2(2, 0)));
    EXPECT_TRUE(segmentCrossesPolygon({{0, -1}, {0, 1}}, vec2(-1, 0), vec2(1, 0)));
    // Touching with an end point depends on the orientation.
    const std::vector<vec2> wedge{{0, -1}, {0, 1}, {-5, 0}};
    EXPECT_FALSE(segmentCrossesPolygon(wedge, vec2(0, 0), vec2(1, 0.5f)));
    EXPECT_TRUE(segmentCrossesPolygon(wedge, vec2(0, 0), vec2(-1, 0.5f)));
}

// The split form used for many segments with shared end points gives the same answers, for
// polygons of one side word and more, and for segments touching vertices.
TEST(PolygonPredicates, SegmentCrossingFromPrecomputedSides) {
    std::mt19937 rng(12);
    std::uniform_real_distribution<float> coord(0.0f, 100.0f);
    for (size_t n : {1u, 2u, 3u, 64u, 65u, 256u}) {
        std::vector<vec2> polygon;
        for (size_t i = 0; i < n; ++i) polygon.emplace_back(coord(rng), coord(rng));
        const octree_detail::LassoSides sides(polygon);
        for (int trial = 0; trial < 400; ++trial) {
            // Some ends on polygon vertices, some on a shared grid, most anywhere.
            const auto pick = [&](int k) {
                if (k % 5 == 0) return polygon[rng() % n];
                if (k % 5 == 1) return vec2(std::floor(coord(rng)), 50.0f);
                return vec2(coord(rng), coord(rng));
            };
            const vec2 a = pick(trial), b = pick(trial / 3);
            uint64_t sa[octree_detail::kMaxSideWords], sb[octree_detail::kMaxSideWords];
            sides.of(a, sa);
            sides.of(b, sb);
            ASSERT_EQ(sides.crosses(a, b, sa, sb), segmentCrossesPolygon(polygon, a, b))
                << n << " vertices, trial " << trial;
        }
    }
}

// The lasso grid settles a cell only where the point test cannot change its answer inside it:
// every settled answer must be the point test's own, at vertices, on edges, on cell borders and
// at heights of vertices, for lassos with level edges, near-level edges, vertices on cell
// borders, far-off coordinates and many points. A plain lasso must get most cells settled, and
// a lasso with a NaN vertex none.
TEST(PolygonPredicates, LassoGridSettlesCellsWithThePointTestsAnswer) {
    const auto star = [](int n, float cx, float cy, float r0, float r1) {
        std::vector<vec2> lasso;
        for (int i = 0; i < n; ++i) {
            const float a = 6.2831853f * static_cast<float>(i) / static_cast<float>(n);
            const float r = i % 2 ? r0 : r1;
            lasso.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a));
        }
        return lasso;
    };
    std::vector<vec2> jagged;
    for (int i = 0; i < 1000; ++i) {
        const float a = 6.2831853f * static_cast<float>(i) / 1000.0f;
        const float r = 200 + 60 * std::sin(a * 13) + 20 * std::cos(a * 51);
        jagged.emplace_back(400 + r * std::cos(a), 300 + r * std::sin(a));
    }
    // Over [0, 64] the cell borders fall on whole numbers: a staircase of level edges with
    // vertices on those borders, and local tops and bottoms at shared heights.
    const std::vector<vec2> stairs{{0, 0},   {64, 0},  {64, 16}, {48, 16}, {48, 32},
                                   {56, 32}, {56, 48}, {32, 48}, {32, 64}, {16, 64},
                                   {16, 32}, {8, 40},  {0, 32},  {8, 16}};
    // An edge rising by less than a millionth, where the 1e-10 term moves crossings far: the
    // notch edge from (50, 0) to (0, 1.5e-10) is counted at height 0 up to x = 150, so
    // (100, 0) is outside.
    const std::vector<vec2> nearLevel{{0, 50},  {200, 50}, {200, -50},
                                      {0, -50}, {50, 0},   {0, 1.5e-10f}};
    ASSERT_FALSE(isPointInPolygon(vec2(100, 0), nearLevel));
    ASSERT_TRUE(isPointInPolygon(vec2(100, 1), nearLevel));
    std::vector<vec2> farOff = star(32, 400, 300, 150, 220);
    for (vec2& v : farOff) v += vec2(1e6f, -3e6f);
    std::vector<vec2> withNaN = star(12, 400, 300, 150, 220);
    withNaN[5].x = std::numeric_limits<float>::quiet_NaN();

    const std::vector<std::pair<std::vector<vec2>, double>> cases{
        {star(32, 400, 300, 150, 220), 0.6},
        {star(5, 0, 0, 1e-3f, 2e-3f), 0.4},
        {jagged, 0.4},
        {stairs, 0.5},
        {nearLevel, 0.5},
        {farOff, 0.3},
        {withNaN, 0.0}};
    std::mt19937 rng(21);
    for (const auto& [lasso, leastSettled] : cases) {
        const ScreenRect rect = meshGeometry::computePolygonBounds(lasso);
        const octree_detail::LassoIndex index(lasso, rect);
        const octree_detail::LassoGrid grid(lasso, rect,
                                            [&](const vec2& p) { return index.inside(p); });
        std::vector<vec2> points;
        const size_t n = lasso.size();
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        const auto lerp = [](float a, float b, float t) { return a + (b - a) * t; };
        for (size_t i = 0; i < n; ++i) {
            const vec2 a = lasso[i], b = lasso[(i + 1) % n];
            points.push_back(a);
            points.push_back((a + b) * 0.5f);
            // At the vertex's height, across the rectangle.
            for (int k = 0; k <= 16; ++k)
                points.emplace_back(lerp(rect.minX, rect.maxX, static_cast<float>(k) / 16), a.y);
        }
        // On cell borders, a hair either side of them, and anywhere.
        for (int k = 0; k <= 64; ++k) {
            const float x = lerp(rect.minX, rect.maxX, static_cast<float>(k) / 64);
            const float y = lerp(rect.minY, rect.maxY, u(rng));
            for (float dx : {-1.0f, 0.0f, 1.0f}) points.emplace_back(std::nextafter(x, x + dx), y);
            points.emplace_back(lerp(rect.minX, rect.maxX, u(rng)),
                                lerp(rect.minY, rect.maxY, static_cast<float>(k) / 64));
        }
        for (int k = 0; k < 20000; ++k)
            points.emplace_back(lerp(rect.minX, rect.maxX, u(rng)),
                                lerp(rect.minY, rect.maxY, u(rng)));

        size_t settled = 0, asked = 0;
        for (const vec2& p : points) {
            if (!(p.x >= rect.minX && p.x <= rect.maxX && p.y >= rect.minY && p.y <= rect.maxY))
                continue;
            ++asked;
            const auto answer = grid.at(p);
            if (answer == octree_detail::LassoGrid::kOpen) continue;
            ++settled;
            ASSERT_EQ(answer == octree_detail::LassoGrid::kInside, isPointInPolygon(p, lasso))
                << n << "-point lasso at " << p.x << ", " << p.y;
        }
        EXPECT_GE(static_cast<double>(settled), leastSettled * static_cast<double>(asked))
            << n << "-point lasso";
        if (&lasso == &cases.back().first) {
            EXPECT_EQ(settled, 0u); // the NaN vertex
        }
    }
}
