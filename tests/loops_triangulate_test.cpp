#include <korvex/loops.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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

// n - 2 clockwise triangles of real area whose areas sum to the polygon's: with one
// orientation throughout, that leaves no room for overlaps or gaps.
void expectClockwiseCover(const std::vector<vec2>& polygon, const std::vector<ivec3>& triangles) {
    ASSERT_EQ(triangles.size(), polygon.size() - 2);
    double sum = 0.0;
    for (const ivec3& t : triangles) {
        ASSERT_TRUE(glm::all(glm::greaterThanEqual(t, ivec3(0))) &&
                    glm::all(glm::lessThan(t, ivec3(int(polygon.size())))));
        const double area = signedArea2({polygon[t.x], polygon[t.y], polygon[t.z]});
        EXPECT_LT(area, 0.0);
        sum += area;
    }
    EXPECT_NEAR(sum, signedArea2(polygon), 1e-5 * std::fabs(signedArea2(polygon)));
}

} // namespace

TEST(TriangulatePolygon, ScanOrderAndContainmentEdges) {
    EXPECT_TRUE(triangulatePolygon({vec2(0, 0), vec2(1, 0)}).empty());
    // Clockwise triangle: corner 0 is tested first, its predecessor is 2. Counter-clockwise
    // input has no ears at all.
    const std::vector<vec2> cw{vec2(0, 0), vec2(0, 1), vec2(1, 0)};
    EXPECT_EQ(triangulatePolygon(cw), std::vector<ivec3>{ivec3(2, 0, 1)});
    EXPECT_TRUE(triangulatePolygon({cw[0], cw[2], cw[1]}).empty());
    // Clockwise square: (3, 0, 1), then from the list 1, 2, 3 the ear (3, 1, 2).
    EXPECT_EQ(triangulatePolygon({vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0)}),
              (std::vector<ivec3>{ivec3(3, 0, 1), ivec3(3, 1, 2)}));

    // The notch's corner (1, 1) lies exactly on the side AC of the first candidate (4, 0, 1):
    // inside, so the first ear is (1, 2, 3).
    const std::vector<vec2> notched{vec2(0, 0), vec2(0, 2), vec2(2, 2), vec2(1, 1), vec2(2, 0)};
    const std::vector<ivec3> result = triangulatePolygon(notched);
    ASSERT_FALSE(result.empty());
    EXPECT_EQ(result.front(), ivec3(1, 2, 3));
    expectClockwiseCover(notched, result);
    // A corner on the side BC, (0, 1) between (0, 0) and (0, 2), is outside: corner 0 is an ear.
    const std::vector<vec2> touching{vec2(0, 0), vec2(0, 2), vec2(2, 2), vec2(0, 1), vec2(2, 0)};
    EXPECT_EQ(triangulatePolygon(touching).at(0), ivec3(4, 0, 1));
    // A collinear corner is passed over and ends up the apex of a fan.
    EXPECT_EQ(triangulatePolygon({vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0), vec2(0.5f, 0)}),
              (std::vector<ivec3>{ivec3(4, 0, 1), ivec3(4, 1, 2), ivec3(4, 2, 3)}));
}

TEST(TriangulatePolygon, ConcaveStarAndRealCrossSectionAreCoveredExactly) {
    std::vector<vec2> star;
    for (int i = 0; i < 80; ++i) {
        const double a = -2.0 * M_PI * i / 80, r = i % 2 ? 0.4 : 1.0; // clockwise
        star.emplace_back(r * std::cos(a), r * std::sin(a));
    }
    expectClockwiseCover(star, triangulatePolygon(star));

    // The bunny's outline at y = 0.1 seen in (x, z), turned clockwise if needed.
    std::vector<vec3> loop;
    {
        testmesh::LogCapture quiet;
        ASSERT_TRUE(meshGeometry::orderLoop(testmesh::sliceEdges(testmesh::bunny(), 0.1f), loop));
    }
    std::vector<vec2> outline;
    for (const vec3& p : loop) outline.emplace_back(p.x, p.z);
    if (signedArea2(outline) > 0.0) std::reverse(outline.begin(), outline.end());
    ASSERT_GT(outline.size(), 50u);
    expectClockwiseCover(outline, triangulatePolygon(outline));
}

TEST(TriangulatePolygon, BadPolygonsStopWithoutHanging) {
    // A bow tie: the scan stops at the first full pass without an ear.
    EXPECT_LT(triangulatePolygon({vec2(0, 0), vec2(1, 1), vec2(1, 0), vec2(0, 1)}).size(), 2u);
    // All points equal, all on a line, or NaN: no corner turns.
    EXPECT_TRUE(triangulatePolygon(std::vector<vec2>(5, vec2(1, 1))).empty());
    EXPECT_TRUE(triangulatePolygon({vec2(0, 0), vec2(1, 1), vec2(2, 2), vec2(3, 3)}).empty());
    const float nan = std::nanf("");
    EXPECT_TRUE(triangulatePolygon({vec2(nan, 0), vec2(0, nan), vec2(nan, nan)}).empty());
    // A NaN corner poisons only its own turns.
    const std::vector<vec2> withNan{vec2(0, 0), vec2(0, 1), vec2(1, 1), vec2(1, 0), vec2(nan)};
    for (const ivec3& t : triangulatePolygon(withNan))
        EXPECT_LT(signedArea2({withNan[t.x], withNan[t.y], withNan[t.z]}), 0.0);
}
