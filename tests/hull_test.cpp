#include <korvex/hull.h>

#include "loops_test_support.h"

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

bool lexLess(const vec2& a, const vec2& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
}

using DirectedEdges = std::set<std::pair<std::pair<float, float>, std::pair<float, float>>>;

std::pair<float, float> key(const vec2& p) {
    return {p.x, p.y};
}

// Brute force: p -> q is a counter-clockwise hull side when no point lies to
// its right, and the points on its line lie between p and q. Exact for the
// small integer coordinates used with it, and for random floats in general
// position.
DirectedEdges bruteForceHullSides(const std::vector<vec2>& points) {
    DirectedEdges sides;
    for (const vec2& p : points) {
        for (const vec2& q : points) {
            if (p == q) continue;
            bool side = true;
            for (const vec2& r : points) {
                const double t = turn(p, q, r);
                if (t < 0.0) side = false;
                if (t == 0.0 && glm::dot(r - p, q - p) > glm::dot(q - p, q - p)) side = false;
                if (t == 0.0 && glm::dot(r - p, q - p) < 0.0f) side = false;
                if (!side) break;
            }
            if (side) sides.insert({key(p), key(q)});
        }
    }
    return sides;
}

void expectIsTheHullOf(const std::vector<vec2>& hull, const std::vector<vec2>& points) {
    ASSERT_GE(hull.size(), 3u);
    DirectedEdges sides;
    for (size_t i = 0; i < hull.size(); ++i) {
        const vec2 a = hull[i], b = hull[(i + 1) % hull.size()], c = hull[(i + 2) % hull.size()];
        EXPECT_GT(turn(a, b, c), 0.0) << "corner " << i + 1 << " is not a strict left turn";
        sides.insert({key(a), key(b)});
    }
    EXPECT_EQ(sides.size(), hull.size()) << "a corner repeats";
    EXPECT_EQ(sides, bruteForceHullSides(points));
    EXPECT_EQ(hull.front(), *std::min_element(points.begin(), points.end(), lexLess));
}

} // namespace

TEST(ConvexHull2D, MatchesBruteForceOnRandomPoints) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<float> coordinate(-10.0f, 10.0f);
    for (int n : {3, 4, 10, 50, 300}) {
        for (int round = 0; round < 4; ++round) {
            std::vector<vec2> points(n);
            for (vec2& p : points) p = vec2(coordinate(random), coordinate(random));
            SCOPED_TRACE(testing::Message() << n << " points, round " << round);
            expectIsTheHullOf(convexHull2D(points), points);
        }
    }
}

TEST(ConvexHull2D, GridPointsWithDuplicatesAndCollinearSides) {
    // Small integers: many repeats and many points on the hull's sides, all
    // of which must go.
    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(-3, 3);
    for (int round = 0; round < 30; ++round) {
        std::vector<vec2> points(40);
        for (vec2& p : points) p = vec2(float(coordinate(random)), float(coordinate(random)));
        SCOPED_TRACE(round);
        expectIsTheHullOf(convexHull2D(points), points);
    }
    // The full 4 x 4 grid has its four corners as hull.
    std::vector<vec2> grid;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) grid.emplace_back(x, y);
    EXPECT_EQ(convexHull2D(grid),
              (std::vector<vec2>{vec2(0, 0), vec2(3, 0), vec2(3, 3), vec2(0, 3)}));
}

TEST(ConvexHull2D, FewDistinctPointsAndDegenerateSets) {
    EXPECT_TRUE(convexHull2D({}).empty());
    const vec2 p(1, 2), q(-3, 5);
    EXPECT_EQ(convexHull2D({p}), std::vector<vec2>{p});
    EXPECT_EQ(convexHull2D({p, p, p}), std::vector<vec2>{p});
    // +0 and -0 are one point.
    EXPECT_EQ(convexHull2D({vec2(0, 0), vec2(-0.0f, 0), vec2(0, -0.0f)}).size(), 1u);
    EXPECT_EQ(convexHull2D({p, q, p, q}), (std::vector<vec2>{q, p}));
    // All on one line: the two ends.
    EXPECT_EQ(convexHull2D({vec2(2, 2), vec2(0, 0), vec2(1, 1), vec2(3, 3), vec2(1, 1)}),
              (std::vector<vec2>{vec2(0, 0), vec2(3, 3)}));
    EXPECT_EQ(convexHull2D({vec2(0, 5), vec2(0, -1), vec2(0, 2)}),
              (std::vector<vec2>{vec2(0, -1), vec2(0, 5)}));
}

TEST(ConvexHull2D, NonFinitePointsAreLeftOut) {
    const float nan = std::nanf(""), inf = std::numeric_limits<float>::infinity();
    const std::vector<vec2> square{vec2(0, 0), vec2(1, 0), vec2(1, 1), vec2(0, 1)};
    std::vector<vec2> points = square;
    points.insert(points.begin() + 2, {vec2(nan, 0.5f), vec2(0.5f, inf), vec2(-inf, -inf),
                                       vec2(0.5f, 0.5f), vec2(nan, nan)});
    EXPECT_EQ(convexHull2D(points), square);
    EXPECT_TRUE(convexHull2D({vec2(nan, nan), vec2(nan, 1), vec2(inf, 0)}).empty());
}

namespace {

// Projection of p onto the plane through c across the unit normal n.
vec3 ontoPlane(const vec3& p, const vec3& c, const vec3& n) {
    return p - glm::dot(p - c, n) * n;
}

vec3 meanOf(const std::vector<vec3>& points) {
    glm::dvec3 sum(0.0);
    for (const vec3& p : points) sum += glm::dvec3(p);
    return vec3(sum / double(points.size()));
}

// The projected hull, checked without the library's basis: corners on the
// plane, counter-clockwise seen from the tip of n, convex, each the shadow
// of an input point, and every shadow inside or on the outline.
void expectProjectedHull(const std::vector<vec3>& hull, const std::vector<vec3>& points,
                         const vec3& direction, float tolerance) {
    const vec3 n = glm::normalize(direction);
    const vec3 c = meanOf(points);
    ASSERT_GE(hull.size(), 3u);
    std::vector<vec3> shadows;
    for (const vec3& p : points) shadows.push_back(ontoPlane(p, c, n));
    for (size_t i = 0; i < hull.size(); ++i) {
        const vec3 a = hull[i], b = hull[(i + 1) % hull.size()], d = hull[(i + 2) % hull.size()];
        EXPECT_NEAR(glm::dot(a - c, n), 0.0f, tolerance);
        EXPECT_GT(glm::dot(glm::cross(b - a, d - b), n), 0.0f) << "corner " << i + 1;
        float nearest = std::numeric_limits<float>::max();
        for (const vec3& s : shadows) nearest = std::min(nearest, glm::distance(s, a));
        EXPECT_LT(nearest, tolerance) << "corner " << i << " is no input point's shadow";
        for (const vec3& s : shadows) {
            ASSERT_GE(glm::dot(glm::cross(b - a, s - a), n), -tolerance * glm::distance(a, b));
        }
    }
}

} // namespace

TEST(ConvexHullProjected, FewPointsComeBackAsGivenWhateverTheDirection) {
    const std::vector<vec3> two{vec3(1, 2, 3), vec3(-1, 0, 4)};
    for (const vec3& direction : {vec3(0), vec3(0, 0, 1), vec3(std::nanf(""))}) {
        EXPECT_TRUE(convexHullProjected({}, direction).empty());
        EXPECT_EQ(convexHullProjected({two[0]}, direction), std::vector<vec3>{two[0]});
        EXPECT_EQ(convexHullProjected(two, direction), two);
    }
}

TEST(ConvexHullProjected, CubeSeenAlongEachAxisIsASquare) {
    std::vector<vec3> cube;
    for (int i = 0; i < 8; ++i) cube.emplace_back(i & 1 ? 3 : 1, i & 2 ? 2 : -2, i & 4 ? 5 : 4);
    const vec3 centre(2, 0, 4.5f);
    // Along y, in either sense, the second reference axis takes over.
    for (const vec3& direction :
         {vec3(0, 1, 0), vec3(0, -7, 0), vec3(1, 0, 0), vec3(0, 0, -2), vec3(0, 1e-4f, 0)}) {
        SCOPED_TRACE(testing::Message() << direction.x << "," << direction.y << "," << direction.z);
        const std::vector<vec3> hull = convexHullProjected(cube, direction);
        ASSERT_EQ(hull.size(), 4u);
        expectProjectedHull(hull, cube, direction, 1e-5f);
        // The corners are the cube's corners moved onto the plane through its centre.
        const vec3 n = glm::normalize(direction);
        for (const vec3& corner : hull) {
            EXPECT_TRUE(std::isfinite(corner.x) && std::isfinite(corner.y) &&
                        std::isfinite(corner.z));
            EXPECT_NEAR(glm::dot(corner - centre, n), 0.0f, 1e-5f);
        }
    }
}

TEST(ConvexHullProjected, RandomCloudAgainstItsShadowsBruteForce) {
    std::mt19937 random(99);
    std::normal_distribution<float> gauss(0.0f, 3.0f);
    for (int round = 0; round < 6; ++round) {
        std::vector<vec3> cloud(200);
        for (vec3& p : cloud) p = vec3(gauss(random), gauss(random) + 10.0f, gauss(random));
        const vec3 direction(gauss(random), gauss(random), gauss(random));
        const std::vector<vec3> hull = convexHullProjected(cloud, direction);
        SCOPED_TRACE(round);
        expectProjectedHull(hull, cloud, direction, 1e-4f);

        // Brute force in a basis of the test's own choosing: the same corners.
        const vec3 n = glm::normalize(direction);
        const vec3 a =
            glm::normalize(glm::cross(n, std::fabs(n.x) < 0.5f ? vec3(1, 0, 0) : vec3(0, 0, 1)));
        const vec3 b = glm::cross(n, a);
        const vec3 c = meanOf(cloud);
        std::vector<vec2> flat;
        for (const vec3& p : cloud) flat.emplace_back(glm::dot(p - c, a), glm::dot(p - c, b));
        std::set<std::pair<float, float>> corners;
        for (const auto& side : bruteForceHullSides(flat)) corners.insert(side.first);
        EXPECT_EQ(hull.size(), corners.size());
    }
}

TEST(ConvexHullProjected, OutlineOfTheBunny) {
    const loopstest::ObjMesh& bunny = loopstest::bunny();
    for (const vec3& direction : {vec3(0, 0, 1), vec3(0, -1, 0), vec3(1, 1, 1)}) {
        const std::vector<vec3> hull = convexHullProjected(bunny.positions, direction);
        SCOPED_TRACE(testing::Message() << direction.x << "," << direction.y << "," << direction.z);
        ASSERT_GT(hull.size(), 10u);
        expectProjectedHull(hull, bunny.positions, direction, 1e-4f);
    }
}

TEST(ConvexHullProjected, ZeroNaNAndExtremeDirections) {
    const std::vector<vec3> triangle{vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)};
    EXPECT_TRUE(convexHullProjected(triangle, vec3(0)).empty());
    EXPECT_TRUE(convexHullProjected(triangle, vec3(std::nanf(""), 0, 1)).empty());
    EXPECT_TRUE(
        convexHullProjected(triangle, vec3(0, 0, std::numeric_limits<float>::infinity())).empty());
    // Only the direction's sense matters, not its length, however extreme.
    const std::vector<vec3> unit = convexHullProjected(triangle, vec3(0, 0, 1));
    ASSERT_EQ(unit.size(), 3u);
    for (float scale : {1e-30f, 1e30f, 3e38f}) {
        const std::vector<vec3> scaled = convexHullProjected(triangle, vec3(0, 0, scale));
        ASSERT_EQ(scaled.size(), 3u);
        for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(glm::distance(scaled[i], unit[i]), 0, 1e-6);
    }
    // A NaN point spoils the mean, and with it every plane coordinate.
    EXPECT_TRUE(convexHullProjected({vec3(0, 0, 0), vec3(1, 0, 0), vec3(std::nanf(""), 1, 0)},
                                    vec3(0, 0, 1))
                    .empty());
}
