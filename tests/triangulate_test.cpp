// The cap triangulator against brute-force checks: input points only,
// counter-clockwise triangles, total area, exact coverage of sample points,
// and termination on degenerate rings.
#include "text/triangulate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using textgeom::triangulateRings;
using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;
using Triangles = std::vector<uint32_t>;

namespace {

Ring flatten(const Rings& rings) {
    Ring points;
    for (const auto& ring : rings) points.insert(points.end(), ring.begin(), ring.end());
    return points;
}

double cross(const glm::dvec2& a, const glm::dvec2& b, const glm::dvec2& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

double area(const Ring& ring) {
    double s = 0.0;
    for (size_t i = 1; i + 1 < ring.size(); ++i) s += 0.5 * cross(ring[0], ring[i], ring[i + 1]);
    return std::fabs(s);
}

double triangleAreaSum(const Rings& rings, const Triangles& tri) {
    const Ring pts = flatten(rings);
    double sum = 0.0;
    for (size_t k = 0; k + 2 < tri.size(); k += 3)
        sum += 0.5 * cross(pts[tri[k]], pts[tri[k + 1]], pts[tri[k + 2]]);
    return sum;
}

// Even-odd inside test by crossing count; -1 within `margin` of an edge,
// where the answer is ambiguous.
int insideRings(const Rings& rings, const glm::dvec2& p, double margin) {
    bool inside = false;
    for (const auto& ring : rings)
        for (size_t i = 0, n = ring.size(); i < n; ++i) {
            const glm::dvec2 a(ring[i]), b(ring[(i + 1) % n]), d = b - a;
            const double t =
                glm::clamp(glm::dot(p - a, d) / std::max(glm::dot(d, d), 1e-300), 0.0, 1.0);
            if (glm::length(p - a - t * d) < margin) return -1;
            if ((a.y > p.y) != (b.y > p.y) && p.x < a.x + d.x * (p.y - a.y) / d.y) inside = !inside;
        }
    return inside;
}

// Checks a triangulation of the polygon `rings` (outer ring first): indices
// of input points, every triangle counter-clockwise, areas adding up to the
// polygon's, and sample points covered once inside, not at all outside.
void expectExactCover(const Rings& rings, const Triangles& tri, std::mt19937& rng,
                      const std::string& what) {
    SCOPED_TRACE(what);
    const Ring pts = flatten(rings);
    ASSERT_EQ(tri.size() % 3, 0u);
    for (uint32_t index : tri) ASSERT_LT(index, pts.size());
    for (size_t k = 0; k < tri.size(); k += 3)
        EXPECT_GT(cross(pts[tri[k]], pts[tri[k + 1]], pts[tri[k + 2]]), 0.0)
            << "triangle " << k / 3;
    double expected = area(rings[0]);
    for (size_t r = 1; r < rings.size(); ++r) expected -= area(rings[r]);
    EXPECT_NEAR(triangleAreaSum(rings, tri), expected, 1e-6 * expected + 1e-9);

    glm::dvec2 lo(1e300), hi(-1e300);
    for (const vec2& p : pts) lo = glm::min(lo, glm::dvec2(p)), hi = glm::max(hi, glm::dvec2(p));
    std::uniform_real_distribution<double> ux(lo.x, hi.x), uy(lo.y, hi.y);
    for (int s = 0; s < 200; ++s) {
        const glm::dvec2 p(ux(rng), uy(rng));
        const int inside = insideRings(rings, p, 1e-4 * std::max(hi.x - lo.x, hi.y - lo.y));
        if (inside < 0) continue;
        int covering = 0;
        for (size_t k = 0; k < tri.size(); k += 3) {
            const glm::dvec2 a(pts[tri[k]]), b(pts[tri[k + 1]]), c(pts[tri[k + 2]]);
            covering += cross(a, b, p) > 0 && cross(b, c, p) > 0 && cross(c, a, p) > 0;
        }
        EXPECT_EQ(covering, inside) << "sample (" << p.x << ", " << p.y << ")";
    }
}

// A star-shaped ring around c: sorted angles, random radii; always simple.
Ring randomStar(std::mt19937& rng, vec2 c, float rMin, float rMax, int count, bool clockwise) {
    std::uniform_real_distribution<float> radius(rMin, rMax), jitter(-0.3f, 0.3f);
    Ring ring;
    for (int i = 0; i < count; ++i) {
        const float angle = (float(i) + jitter(rng)) * 6.2831853f / float(count);
        ring.push_back(c + radius(rng) * vec2(std::cos(angle), std::sin(angle)));
    }
    if (clockwise) std::reverse(ring.begin(), ring.end());
    return ring;
}

} // namespace

TEST(Triangulate, RandomStarsWithHolesAreCoveredExactly) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pointCount(3, 60), holeCount(0, 5);
    std::uniform_real_distribution<float> turn(0.0f, 6.3f), distance(25.0f, 35.0f);
    for (int trial = 0; trial < 80; ++trial) {
        // Small and large rings, so that both the plain and the z-ordered ear
        // test run. 12 outer points or more keep the outer ring beyond 54
        // from the centre, clear of the holes (up to 10 around points spread
        // 25 to 35 from it, a fifth of a turn or more apart).
        const int outerCount = trial % 4 == 0 ? 300 + trial * 3 : 12 + pointCount(rng);
        Rings rings{randomStar(rng, vec2(0), 60, 100, outerCount, rng() % 2)};
        const int holes = holeCount(rng);
        const float start = turn(rng);
        for (int h = 0; h < holes; ++h) {
            const float a = start + 6.2831853f * float(h) / float(holes);
            const vec2 c = distance(rng) * vec2(std::cos(a), std::sin(a));
            rings.push_back(randomStar(rng, c, 3, 10, pointCount(rng), rng() % 2));
        }
        Triangles tri{99, 99}; // replaced, not appended to
        triangulateRings(rings, tri);
        const size_t total = flatten(rings).size();
        EXPECT_EQ(tri.size(), 3 * (total + 2 * (rings.size() - 1) - 2)) << "trial " << trial;
        expectExactCover(rings, tri, rng, "trial " + std::to_string(trial));
    }
}

TEST(Triangulate, LongSpiralOfReflexCorners) {
    std::mt19937 rng(3);
    // A spiral band of 2000 points: long, mostly reflex.
    Ring spiral(2000);
    for (int i = 0; i < 1000; ++i) {
        const float a = 0.05f * float(i), r = 10.0f + a;
        spiral[size_t(i)] = (r + 0.6f) * vec2(std::cos(a), std::sin(a));
        spiral[size_t(1999 - i)] = r * vec2(std::cos(a), std::sin(a));
    }
    Triangles tri;
    triangulateRings({spiral}, tri);
    EXPECT_EQ(tri.size(), 3u * 1998u);
    expectExactCover({spiral}, tri, rng, "spiral");
}

TEST(Triangulate, DegenerateRingsGiveValidOutputAndNeverHang) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const Ring square{{0, 0}, {4, 0}, {4, 4}, {0, 4}};
    const Rings nothing[] = {
        {},
        {{{0, 0}, {1, 1}}},
        {{}, {{0, 0}, {1, 0}, {0, 1}}},                // empty outer ring
        {{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {1.5f, 0}}}, // all collinear
        {{{2, 2}, {2, 2}, {2, 2}, {2, 2}}},
        {{{0, 0}, {1, 0}, {nan, 1}, {0, 1}}}, // not finite anywhere: nothing
        {square, {{1, 1}, {inf, 1}, {1, 2}}},
    };
    for (const Rings& rings : nothing) {
        Triangles tri{1, 2, 3};
        triangulateRings(rings, tri);
        EXPECT_TRUE(tri.empty()) << testing::PrintToString(rings.size());
    }

    std::mt19937 rng(5);
    const std::pair<Rings, const char*> covered[] = {
        {{{{0, 0}, {0, 0}, {1, 0}, {2, 0}, {2, 0}, {2, 2}, {2, 2}, {0, 2}, {0, 0}}}, "duplicates"},
        {{{{0, 0}, {1, 0}, {1, 1}, {2, 1}, {2, 2}, {1, 2}, {1, 1}, {0, 1}}}, "self-touching"},
        {{square, {{0, 0}, {2, 1}, {1, 2}}}, "hole at a corner"},
        {{square, {{2, 0}, {3, 1}, {1, 1}}}, "hole on an edge"},
        {{{{0, 4}, {4, 4}, {4, 0}, {0, 0}}, {{1, 1}, {3, 1}, {3, 3}, {1, 3}}}, "ring directions"},
    };
    Triangles tri;
    for (const auto& [rings, what] : covered) {
        triangulateRings(rings, tri);
        expectExactCover(rings, tri, rng, what);
    }
    // Holes of one and two points add no area.
    const Rings pointHoles{square, {{2, 2}}, {{1, 1}, {3, 1}}};
    triangulateRings(pointHoles, tri);
    EXPECT_NEAR(triangleAreaSum(pointHoles, tri), 16.0, 1e-9);

    // Garbage: random self-intersecting rings on a coarse grid, so that
    // collinear and coincident points are common. Only validity and
    // termination can be asked for.
    std::uniform_int_distribution<int> grid(0, 6), size(0, 40);
    for (int trial = 0; trial < 400; ++trial) {
        Rings rings(1 + size_t(trial % 3));
        for (auto& ring : rings)
            for (int i = size(rng); i > 0; --i) ring.emplace_back(grid(rng), grid(rng));
        triangulateRings(rings, tri);
        ASSERT_EQ(tri.size() % 3, 0u);
        const size_t total = flatten(rings).size();
        for (uint32_t index : tri) ASSERT_LT(index, total);
    }
    // Huge and tiny magnitudes.
    for (float s : {3e38f, 1e-30f}) {
        triangulateRings({{{-s, -s}, {s, -s}, {s, s}, {-s, s}}}, tri);
        EXPECT_EQ(tri.size(), 6u) << s;
    }
}
