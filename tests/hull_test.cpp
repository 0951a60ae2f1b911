#include <korvex/hull.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

using meshGeometry::convexHull2D;
using meshGeometry::convexHullProjected;

namespace {

double turn(const vec2& o, const vec2& a, const vec2& b) {
    return (double(a.x) - o.x) * (double(b.y) - o.y) - (double(a.y) - o.y) * (double(b.x) - o.x);
}

using Side = std::pair<std::pair<float, float>, std::pair<float, float>>;

// Brute force: p -> q is a counter-clockwise hull side when no point lies to its right and the
// points on its line lie between p and q. Exact for small integers and for random floats.
std::set<Side> bruteForceHullSides(const std::vector<vec2>& points) {
    std::set<Side> sides;
    for (const vec2& p : points)
        for (const vec2& q : points) {
            if (p == q) continue;
            const bool side = std::all_of(points.begin(), points.end(), [&](const vec2& r) {
                const double t = turn(p, q, r), along = glm::dot(r - p, q - p);
                return t > 0.0 || (t == 0.0 && along >= 0.0f && along <= glm::dot(q - p, q - p));
            });
            if (side) sides.insert({{p.x, p.y}, {q.x, q.y}});
        }
    return sides;
}

// Strictly convex, counter-clockwise, starting at the lowest x (then y), the brute-force sides.
void expectIsTheHullOf(const std::vector<vec2>& hull, const std::vector<vec2>& points) {
    ASSERT_GE(hull.size(), 3u);
    std::set<Side> sides;
    for (size_t i = 0; i < hull.size(); ++i) {
        const vec2 a = hull[i], b = hull[(i + 1) % hull.size()], c = hull[(i + 2) % hull.size()];
        EXPECT_GT(turn(a, b, c), 0.0) << "corner " << i + 1 << " is not a strict left turn";
        sides.insert({{a.x, a.y}, {b.x, b.y}});
    }
    EXPECT_EQ(sides, bruteForceHullSides(points));
    EXPECT_EQ(hull.front(), *std::min_element(points.begin(), points.end(), [](vec2 a, vec2 b) {
                  return a.x < b.x || (a.x == b.x && a.y < b.y);
              }));
}

// The projected hull checked without the library's basis: corners on the plane through the
// mean across n, each the shadow of an input point, counter-clockwise about n, strictly
// convex, and every shadow inside or on the outline.
void expectProjectedHull(const std::vector<vec3>& hull, const std::vector<vec3>& points,
                         const vec3& direction, float tolerance) {
    const vec3 n = glm::normalize(direction);
    glm::dvec3 sum(0.0);
    for (const vec3& p : points) sum += glm::dvec3(p);
    const vec3 c(sum / double(points.size()));
    std::vector<vec3> shadows;
    for (const vec3& p : points) shadows.push_back(p - glm::dot(p - c, n) * n);
    ASSERT_GE(hull.size(), 3u);
    for (size_t i = 0; i < hull.size(); ++i) {
        const vec3 a = hull[i], b = hull[(i + 1) % hull.size()], d = hull[(i + 2) % hull.size()];
        EXPECT_NEAR(glm::dot(a - c, n), 0.0f, tolerance);
        EXPECT_GT(glm::dot(glm::cross(b - a, d - b), n), 0.0f) << "corner " << i + 1;
        float nearest = std::numeric_limits<float>::max();
        for (const vec3& s : shadows) {
            nearest = std::min(nearest, glm::distance(s, a));
            ASSERT_GE(glm::dot(glm::cross(b - a, s - a), n), -tolerance * glm::distance(a, b));
        }
        EXPECT_LT(nearest, tolerance) << "corner " << i << " is no input point's shadow";
    }
}

} // namespace

TEST(ConvexHull2D, MatchesBruteForceOnRandomAndGridPoints) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<float> coordinate(-10.0f, 10.0f);
    for (int n : {3, 10, 300}) {
        std::vector<vec2> points(n);
        for (vec2& p : points) p = vec2(coordinate(random), coordinate(random));
        SCOPED_TRACE(n);
        expectIsTheHullOf(convexHull2D(points), points);
    }
    // Small integers: many repeats and many points on the hull's sides, all of which must go.
    std::uniform_int_distribution<int> small(-3, 3);
    for (int round = 0; round < 20; ++round) {
        std::vector<vec2> points(40);
        for (vec2& p : points) p = vec2(float(small(random)), float(small(random)));
        SCOPED_TRACE(round);
        expectIsTheHullOf(convexHull2D(points), points);
    }
}

TEST(ConvexHull2D, DegenerateAndNonFiniteSets) {
    EXPECT_TRUE(convexHull2D({}).empty());
    const vec2 p(1, 2), q(-3, 5);
    EXPECT_EQ(convexHull2D({p, p, p}), std::vector<vec2>{p});
    EXPECT_EQ(convexHull2D({vec2(0, 0), vec2(-0.0f, 0), vec2(0, -0.0f)}).size(), 1u);
    EXPECT_EQ(convexHull2D({p, q, p, q}), (std::vector<vec2>{q, p}));
    // All on one line: the two ends.
    EXPECT_EQ(convexHull2D({vec2(2, 2), vec2(0, 0), vec2(1, 1), vec2(3, 3), vec2(1, 1)}),
              (std::vector<vec2>{vec2(0, 0), vec2(3, 3)}));
    // Non-finite points are left out.
    const float nan = std::nanf(""), inf = std::numeric_limits<float>::infinity();
    const std::vector<vec2> square{vec2(0, 0), vec2(1, 0), vec2(1, 1), vec2(0, 1)};
    std::vector<vec2> points = square;
    points.insert(points.begin() + 2, {vec2(nan, 0.5f), vec2(0.5f, inf), vec2(-inf), vec2(0.5f)});
    EXPECT_EQ(convexHull2D(points), square);
    EXPECT_TRUE(convexHull2D({vec2(nan), vec2(nan, 1), vec2(inf, 0)}).empty());
}

TEST(ConvexHullProjected, CubeAlongEachAxisAndTheBunny) {
    std::vector<vec3> cube;
    for (int i = 0; i < 8; ++i) cube.emplace_back(i & 1 ? 3 : 1, i & 2 ? 2 : -2, i & 4 ? 5 : 4);
    // Along y, in either sense, the second reference axis takes over.
    for (const vec3& direction :
         {vec3(0, 1, 0), vec3(0, -7, 0), vec3(1, 0, 0), vec3(0, 0, -2), vec3(0, 1e-4f, 0)}) {
        const std::vector<vec3> hull = convexHullProjected(cube, direction);
        EXPECT_EQ(hull.size(), 4u);
        expectProjectedHull(hull, cube, direction, 1e-5f);
    }
    const std::vector<vec3>& bunny = testmesh::bunny().positions;
    for (const vec3& direction : {vec3(0, -1, 0), vec3(1, 1, 1)})
        expectProjectedHull(convexHullProjected(bunny, direction), bunny, direction, 1e-4f);
}

TEST(ConvexHullProjected, FewPointsZeroNaNAndExtremeDirections) {
    // Fewer than three points come back as given, whatever the direction.
    const std::vector<vec3> two{vec3(1, 2, 3), vec3(-1, 0, 4)};
    for (const vec3& direction : {vec3(0), vec3(std::nanf(""))}) {
        EXPECT_TRUE(convexHullProjected({}, direction).empty());
        EXPECT_EQ(convexHullProjected(two, direction), two);
    }
    const std::vector<vec3> triangle{vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)};
    const float inf = std::numeric_limits<float>::infinity();
    for (const vec3& direction : {vec3(0), vec3(std::nanf(""), 0, 1), vec3(0, 0, inf)})
        EXPECT_TRUE(convexHullProjected(triangle, direction).empty());
    // Only the direction's sense matters, not its length, however extreme.
    const std::vector<vec3> unit = convexHullProjected(triangle, vec3(0, 0, 1));
    ASSERT_EQ(unit.size(), 3u);
    for (float scale : {1e-30f, 3e38f}) {
        const std::vector<vec3> scaled = convexHullProjected(triangle, vec3(0, 0, scale));
        ASSERT_EQ(scaled.size(), 3u);
        for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(glm::distance(scaled[i], unit[i]), 0, 1e-6);
    }
    // A NaN point spoils the mean, and with it every plane coordinate.
    EXPECT_TRUE(
        convexHullProjected({vec3(0), vec3(1, 0, 0), vec3(std::nanf(""), 1, 0)}, vec3(0, 0, 1))
            .empty());
}
