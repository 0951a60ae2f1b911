#include <korvex/loops.h>

#include "loops_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

using meshGeometry::triangulatePolygon;

namespace {

// Twice the signed area, in double; negative for clockwise.
double signedArea2(const std::vector<vec2>& polygon) {
    double sum = 0.0;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const vec2 p = polygon[i], q = polygon[(i + 1) % polygon.size()];
        sum += double(p.x) * q.y - double(q.x) * p.y;
    }
    return sum;
}

double triangleArea2(const std::vector<vec2>& polygon, const ivec3& t) {
    return signedArea2({polygon[t.x], polygon[t.y], polygon[t.z]});
}

// Every triangle clockwise with real area, indices valid, and the areas
// summing to the polygon's: with one orientation throughout, that leaves no
// room for overlaps or gaps.
void expectClockwiseCover(const std::vector<vec2>& polygon, const std::vector<ivec3>& triangles) {
    ASSERT_EQ(triangles.size(), polygon.size() - 2);
    double sum = 0.0;
    for (const ivec3& t : triangles) {
        for (int k = 0; k < 3; ++k) {
            ASSERT_GE(t[k], 0);
            ASSERT_LT(t[k], int(polygon.size()));
        }
        const double area = triangleArea2(polygon, t);
        EXPECT_LT(area, 0.0);
        sum += area;
    }
    EXPECT_NEAR(sum, signedArea2(polygon), 1e-5 * std::fabs(signedArea2(polygon)));
}

} // namespace

TEST(TriangulatePolygon, SmallCasesFollowTheScanOrder) {
    EXPECT_TRUE(triangulatePolygon({}).empty());
    EXPECT_TRUE(triangulatePolygon({vec2(0, 0), vec2(1, 0)}).empty());

    // Clockwise triangle: corner 0 is tested first, its predecessor is 2.
    const std::vector<vec2> cw{vec2(0, 0), vec2(0, 1), vec2(1, 0)};
    EXPECT_EQ(triangulatePolygon(cw), std::vector<ivec3>{ivec3(2, 0, 1)});
    // Counter-clockwise input has no ears at all.
    EXPECT_TRUE(triangulatePolygon({cw[0], cw[2], cw[1]}).empty());
    std::vector<vec2> hexagon;
    for (int i = 0; i < 6; ++i) hexagon.emplace_back(std::cos(i * 1.047f), std::sin(i * 1.047f));
    EXPECT_TRUE(triangulatePolygon(hexagon).empty());

    // Clockwise square: (3, 0, 1), then from the list 1, 2, 3 the ear (3, 1, 2).
    const std::vector<vec2> square{vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0)};
    EXPECT_EQ(triangulatePolygon(square), (std::vector<ivec3>{ivec3(3, 0, 1), ivec3(3, 1, 2)}));
}

TEST(TriangulatePolygon, ContainmentCountsSidesFromTheFirstCorner) {
    // A square notched to its centre (1, 1), which lies exactly on the side
    // AC of the first candidate ear (4, 0, 1): that counts as inside, so
    // corners 0 and 1 are passed over and the first ear is (1, 2, 3).
    const std::vector<vec2> notched{vec2(0, 0), vec2(0, 2), vec2(2, 2), vec2(1, 1), vec2(2, 0)};
    const std::vector<ivec3> result = triangulatePolygon(notched);
    ASSERT_FALSE(result.empty());
    EXPECT_EQ(result.front(), ivec3(1, 2, 3));
    expectClockwiseCover(notched, result);

    // A corner touching the side BC of the first candidate, (0, 1) on the
    // side from (0, 0) to (0, 2), counts as outside: corner 0 is an ear.
    const std::vector<vec2> touching{vec2(0, 0), vec2(0, 2), vec2(2, 2), vec2(0, 1), vec2(2, 0)};
    const std::vector<ivec3> touched = triangulatePolygon(touching);
    ASSERT_FALSE(touched.empty());
    EXPECT_EQ(touched.front(), ivec3(4, 0, 1));

    // A collinear corner on the closing side serves as the apex of a fan.
    const std::vector<vec2> withMid{vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0), vec2(0.5f, 0)};
    EXPECT_EQ(triangulatePolygon(withMid),
              (std::vector<ivec3>{ivec3(4, 0, 1), ivec3(4, 1, 2), ivec3(4, 2, 3)}));
}

TEST(TriangulatePolygon, ConcavePolygonsAreCoveredExactly) {
    // A comb: deep notches make most corners reflex or blocked.
    std::vector<vec2> comb{vec2(0, 0)};
    for (int i = 0; i < 6; ++i) {
        comb.emplace_back(2.0f * i, 5);
        comb.emplace_back(2.0f * i + 1, 5);
        comb.emplace_back(2.0f * i + 1, 1);
        comb.emplace_back(2.0f * i + 2, 1);
    }
    comb.back() = vec2(12, 0);
    ASSERT_LT(signedArea2(comb), 0.0);
    // The comb has collinear corners on its spine; keep only turning ones.
    std::vector<vec2> turning;
    for (size_t i = 0; i < comb.size(); ++i) {
        const vec2 a = comb[(i + comb.size() - 1) % comb.size()], b = comb[i],
                   c = comb[(i + 1) % comb.size()];
        if ((b.x - a.x) * (c.y - b.y) - (c.x - b.x) * (b.y - a.y) != 0.0f) turning.push_back(b);
    }
    expectClockwiseCover(turning, triangulatePolygon(turning));

    // A star with 40 spikes.
    std::vector<vec2> star;
    for (int i = 0; i < 80; ++i) {
        const double a = -2.0 * M_PI * i / 80; // clockwise
        const double r = i % 2 ? 0.4 : 1.0;
        star.emplace_back(r * std::cos(a), r * std::sin(a));
    }
    expectClockwiseCover(star, triangulatePolygon(star));
}

TEST(TriangulatePolygon, RealCrossSectionOfTheBunny) {
    // The bunny's outline at y = 0.1, walked by orderLoop and seen in (x, z),
    // turned clockwise if needed.
    const loopstest::ObjMesh& bunny = loopstest::bunny();
    const float c = 0.1f;
    std::unordered_set<Edge, EdgeHash> cut;
    for (size_t t = 0; t < bunny.indices.size(); t += 3) {
        std::vector<vec3> ends;
        for (int k = 0; k < 3; ++k) {
            unsigned i = bunny.indices[t + k], j = bunny.indices[t + (k + 1) % 3];
            if ((bunny.positions[i].y < c) == (bunny.positions[j].y < c)) continue;
            if (i > j) std::swap(i, j);
            const vec3 p = bunny.positions[i], q = bunny.positions[j];
            ends.push_back(p + (q - p) * ((c - p.y) / (q.y - p.y)));
        }
        if (ends.size() == 2) cut.insert(Edge(ends[0], ends[1]));
    }
    std::vector<vec3> loop;
    {
        loopstest::LogCapture quiet;
        ASSERT_TRUE(meshGeometry::orderLoop(cut, loop));
    }
    std::vector<vec2> outline;
    for (const vec3& p : loop) outline.emplace_back(p.x, p.z);
    if (signedArea2(outline) > 0.0) std::reverse(outline.begin(), outline.end());
    ASSERT_GT(outline.size(), 50u);
    expectClockwiseCover(outline, triangulatePolygon(outline));
}

TEST(TriangulatePolygon, BadPolygonsStopWithoutHanging) {
    // A bow tie crosses itself: the scan stops at the first full pass without
    // an ear, keeping what was cut.
    const std::vector<vec2> bowTie{vec2(0, 0), vec2(1, 1), vec2(1, 0), vec2(0, 1)};
    EXPECT_LT(triangulatePolygon(bowTie).size(), 2u);
    // All points equal, all on a line, or NaN: no corner turns, nothing is cut.
    EXPECT_TRUE(triangulatePolygon(std::vector<vec2>(5, vec2(1, 1))).empty());
    EXPECT_TRUE(triangulatePolygon({vec2(0, 0), vec2(1, 1), vec2(2, 2), vec2(3, 3)}).empty());
    const float nan = std::nanf("");
    EXPECT_TRUE(triangulatePolygon({vec2(nan, 0), vec2(0, nan), vec2(nan, nan)}).empty());
    // A NaN corner poisons only its own turns; the others still triangulate.
    const std::vector<vec2> withNan{vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0), vec2(nan, nan)};
    for (const ivec3& t : triangulatePolygon(withNan)) {
        EXPECT_LT(triangleArea2(withNan, t), 0.0);
    }
}
