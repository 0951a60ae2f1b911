// The cap triangulator against brute-force oracles: area, orientation,
// coverage by sample points, and termination on degenerate rings.
#include "text/triangulate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using textgeom::triangulateRings;
using Rings = std::vector<std::vector<vec2>>;

namespace {

double shoelace(const std::vector<vec2>& ring) {
    double s = 0.0;
    for (size_t i = 0, n = ring.size(); i < n; ++i) {
        const vec2& a = ring[i];
        const vec2& b = ring[(i + 1) % n];
        s += double(a.x) * b.y - double(a.y) * b.x;
    }
    return 0.5 * s;
}

std::vector<vec2> flatten(const Rings& rings) {
    std::vector<vec2> points;
    for (const auto& ring : rings) points.insert(points.end(), ring.begin(), ring.end());
    return points;
}

double triangleArea(const vec2& a, const vec2& b, const vec2& c) {
    return 0.5 *
           ((double(b.x) - a.x) * (double(c.y) - a.y) - (double(b.y) - a.y) * (double(c.x) - a.x));
}

// Even-odd inside test over all rings, by crossing count.
bool insideRings(const Rings& rings, double px, double py) {
    bool inside = false;
    for (const auto& ring : rings)
        for (size_t i = 0, n = ring.size(), j = n - 1; i < n; j = i++) {
            const double xi = ring[i].x, yi = ring[i].y, xj = ring[j].x, yj = ring[j].y;
            if ((yi > py) != (yj > py) && px < (xj - xi) * (py - yi) / (yj - yi) + xi)
                inside = !inside;
        }
    return inside;
}

// Distance from p to the nearest ring edge, to skip ambiguous samples.
double distanceToEdges(const Rings& rings, double px, double py) {
    double best = 1e300;
    for (const auto& ring : rings)
        for (size_t i = 0, n = ring.size(); i < n; ++i) {
            const double ax = ring[i].x, ay = ring[i].y;
            const double bx = ring[(i + 1) % n].x, by = ring[(i + 1) % n].y;
            const double dx = bx - ax, dy = by - ay, len2 = dx * dx + dy * dy;
            double t = len2 > 0 ? ((px - ax) * dx + (py - ay) * dy) / len2 : 0.0;
            t = std::fmax(0.0, std::fmin(1.0, t));
            best = std::fmin(best, std::hypot(px - ax - t * dx, py - ay - t * dy));
        }
    return best;
}

// Checks a triangulation of a simple polygon with holes: valid indices,
// every triangle counter-clockwise with positive area, the areas adding up to
// the polygon's, and each sample point inside the polygon covered exactly
// once (outside: not at all).
void expectExactCover(const Rings& rings, const std::vector<uint32_t>& tri, std::mt19937& rng,
                      const char* what) {
    SCOPED_TRACE(what);
    const std::vector<vec2> pts = flatten(rings);
    ASSERT_EQ(tri.size() % 3, 0u);
    double sum = 0.0;
    for (size_t k = 0; k < tri.size(); k += 3) {
        ASSERT_LT(tri[k], pts.size());
        ASSERT_LT(tri[k + 1], pts.size());
        ASSERT_LT(tri[k + 2], pts.size());
        const double a = triangleArea(pts[tri[k]], pts[tri[k + 1]], pts[tri[k + 2]]);
        EXPECT_GT(a, 0.0) << "triangle " << k / 3 << " is not counter-clockwise";
        sum += a;
    }
    double expected = std::fabs(shoelace(rings[0]));
    for (size_t r = 1; r < rings.size(); ++r) expected -= std::fabs(shoelace(rings[r]));
    EXPECT_NEAR(sum, expected, 1e-6 * std::fabs(expected) + 1e-9);

    float x0 = 1e30f, y0 = 1e30f, x1 = -1e30f, y1 = -1e30f;
    for (const vec2& p : pts) {
        x0 = std::fmin(x0, p.x), y0 = std::fmin(y0, p.y);
        x1 = std::fmax(x1, p.x), y1 = std::fmax(y1, p.y);
    }
    std::uniform_real_distribution<double> ux(x0, x1), uy(y0, y1);
    const double margin = 1e-4 * std::fmax(x1 - x0, y1 - y0);
    for (int s = 0; s < 400; ++s) {
        const double px = ux(rng), py = uy(rng);
        if (distanceToEdges(rings, px, py) < margin) continue;
        int covering = 0;
        for (size_t k = 0; k < tri.size(); k += 3) {
            const vec2 &a = pts[tri[k]], &b = pts[tri[k + 1]], &c = pts[tri[k + 2]];
            const double d1 = (b.x - a.x) * (py - a.y) - (b.y - a.y) * (px - a.x);
            const double d2 = (c.x - b.x) * (py - b.y) - (c.y - b.y) * (px - b.x);
            const double d3 = (a.x - c.x) * (py - c.y) - (a.y - c.y) * (px - c.x);
            if (d1 > 0 && d2 > 0 && d3 > 0) ++covering;
        }
        EXPECT_EQ(covering, insideRings(rings, px, py) ? 1 : 0)
            << "sample (" << px << ", " << py << ")";
    }
}

// A star-shaped ring around (cx, cy): sorted angles, random radii. Always
// simple; counter-clockwise unless `clockwise`.
std::vector<vec2> randomStar(std::mt19937& rng, float cx, float cy, float rMin, float rMax,
                             int count, bool clockwise) {
    std::uniform_real_distribution<float> radius(rMin, rMax), jitter(-0.3f, 0.3f);
    std::vector<vec2> ring;
    for (int i = 0; i < count; ++i) {
        const float angle = (float(i) + jitter(rng)) * 6.2831853f / float(count);
        const float r = radius(rng);
        ring.emplace_back(cx + r * std::cos(angle), cy + r * std::sin(angle));
    }
    if (clockwise) std::reverse(ring.begin(), ring.end());
    return ring;
}

} // namespace

TEST(Triangulate, SquareAndSquareWithHole) {
    std::vector<uint32_t> tri{99, 99};
    triangulateRings({{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}, tri);
    ASSERT_EQ(tri.size(), 6u); // replaced, not appended to
    std::mt19937 rng(1);
    expectExactCover({{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}, tri, rng, "square");

    // A hole in either direction: n + 2 * holes - 2 triangles.
    const Rings holed{{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, {{1, 1}, {1, 3}, {3, 3}, {3, 1}}};
    triangulateRings(holed, tri);
    EXPECT_EQ(tri.size(), 3u * 8u);
    expectExactCover(holed, tri, rng, "square with hole");
    Rings flipped = holed;
    std::reverse(flipped[0].begin(), flipped[0].end());
    std::reverse(flipped[1].begin(), flipped[1].end());
    triangulateRings(flipped, tri);
    expectExactCover(flipped, tri, rng, "both rings clockwise");
}

TEST(Triangulate, RandomStarsWithHolesAreCoveredExactly) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pointCount(3, 60), holeCount(0, 5);
    std::bernoulli_distribution coin(0.5);
    for (int trial = 0; trial < 120; ++trial) {
        // Small and large rings, so both the plain and the hashed ear test run.
        // At least 12 outer points keep every hole (within 50 of the centre)
        // inside the outer ring.
        const int outerCount = trial % 4 == 0 ? 300 + trial * 3 : 12 + pointCount(rng);
        Rings rings{randomStar(rng, 0, 0, 60, 100, outerCount, coin(rng))};
        std::vector<vec2> centres;
        const int holes = holeCount(rng);
        std::uniform_real_distribution<float> place(-35.0f, 35.0f);
        for (int h = 0, attempts = 0; h < holes && attempts < 100; ++attempts) {
            const vec2 c(place(rng), place(rng));
            bool clear = glm::length(c) < 40.0f;
            for (const vec2& other : centres) clear = clear && glm::length(c - other) > 22.0f;
            if (!clear) continue;
            centres.push_back(c);
            rings.push_back(randomStar(rng, c.x, c.y, 3, 10, pointCount(rng), coin(rng)));
            ++h;
        }
        std::vector<uint32_t> tri;
        triangulateRings(rings, tri);
        size_t total = 0;
        for (const auto& ring : rings) total += ring.size();
        EXPECT_EQ(tri.size(), 3 * (total + 2 * (rings.size() - 1) - 2)) << "trial " << trial;
        expectExactCover(rings, tri, rng, ("trial " + std::to_string(trial)).c_str());
    }
}

TEST(Triangulate, ManyReflexCorners) {
    std::mt19937 rng(3);
    // A comb: 40 teeth, every valley a reflex corner.
    std::vector<vec2> comb{{0, 0}, {81, 0}};
    for (int t = 40; t >= 0; --t) {
        comb.emplace_back(2.0f * t + 1.0f, 10.0f);
        comb.emplace_back(2.0f * t, 10.0f);
        if (t > 0) comb.emplace_back(2.0f * t - 0.5f, 2.0f);
    }
    std::vector<uint32_t> tri;
    triangulateRings({comb}, tri);
    expectExactCover({comb}, tri, rng, "comb");

    // A square spiral, 2000 points: long, mostly reflex, hashed.
    std::vector<vec2> inner, outer;
    for (int i = 0; i < 1000; ++i) {
        const float a = 0.05f * float(i), r = 10.0f + 1.0f * a;
        inner.emplace_back(r * std::cos(a), r * std::sin(a));
        outer.emplace_back((r + 0.6f) * std::cos(a), (r + 0.6f) * std::sin(a));
    }
    std::vector<vec2> spiral(outer.begin(), outer.end());
    spiral.insert(spiral.end(), inner.rbegin(), inner.rend());
    triangulateRings({spiral}, tri);
    EXPECT_EQ(tri.size(), 3u * (spiral.size() - 2));
    expectExactCover({spiral}, tri, rng, "spiral");
}

TEST(Triangulate, DegenerateRingsGiveValidOutputAndNeverHang) {
    std::vector<uint32_t> tri{1, 2, 3};
    triangulateRings({}, tri);
    EXPECT_TRUE(tri.empty());
    triangulateRings({{{0, 0}, {1, 1}}}, tri);
    EXPECT_TRUE(tri.empty());
    triangulateRings({{}, {{0, 0}, {1, 0}, {0, 1}}}, tri); // empty outer ring
    EXPECT_TRUE(tri.empty());
    triangulateRings({{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {1.5f, 0}}}, tri); // all collinear
    EXPECT_TRUE(tri.empty());
    triangulateRings({{{2, 2}, {2, 2}, {2, 2}, {2, 2}}}, tri); // one point, repeated
    EXPECT_TRUE(tri.empty());

    std::mt19937 rng(5);
    // Duplicated points, a repeated closing point, collinear points on edges.
    const Rings dup{{{0, 0}, {0, 0}, {1, 0}, {2, 0}, {2, 0}, {2, 2}, {2, 2}, {0, 2}, {0, 0}}};
    triangulateRings(dup, tri);
    expectExactCover(dup, tri, rng, "duplicates");
    // A ring that touches itself at (1, 1): two squares corner to corner.
    const Rings touching{{{0, 0}, {1, 0}, {1, 1}, {2, 1}, {2, 2}, {1, 2}, {1, 1}, {0, 1}}};
    triangulateRings(touching, tri);
    expectExactCover(touching, tri, rng, "self-touching");
    // A hole touching the outer ring at a vertex, and one touching an edge.
    const Rings holeAtCorner{{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, {{0, 0}, {2, 1}, {1, 2}}};
    triangulateRings(holeAtCorner, tri);
    expectExactCover(holeAtCorner, tri, rng, "hole at a corner");
    const Rings holeOnEdge{{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, {{2, 0}, {3, 1}, {1, 1}}};
    triangulateRings(holeOnEdge, tri);
    expectExactCover(holeOnEdge, tri, rng, "hole on an edge");
    // A hole of one point and one of two points add no area.
    const Rings pointHoles{{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, {{2, 2}}, {{1, 1}, {3, 1}}};
    triangulateRings(pointHoles, tri);
    double sum = 0.0;
    const auto pts = flatten(pointHoles);
    for (size_t k = 0; k < tri.size(); k += 3)
        sum += triangleArea(pts[tri[k]], pts[tri[k + 1]], pts[tri[k + 2]]);
    EXPECT_NEAR(sum, 16.0, 1e-9);

    // Not a number, or not finite, anywhere: no triangles.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    triangulateRings({{{0, 0}, {1, 0}, {nan, 1}, {0, 1}}}, tri);
    EXPECT_TRUE(tri.empty());
    triangulateRings({{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, {{1, 1}, {inf, 1}, {1, 2}}}, tri);
    EXPECT_TRUE(tri.empty());

    // Garbage: random self-intersecting rings with random holes, on a coarse
    // grid so that collinear and coincident points are common. Only validity
    // and termination can be asked for.
    std::uniform_int_distribution<int> grid(0, 6), size(0, 40);
    for (int trial = 0; trial < 400; ++trial) {
        Rings rings(1 + trial % 3);
        for (auto& ring : rings)
            for (int i = size(rng); i > 0; --i) ring.emplace_back(grid(rng), grid(rng));
        triangulateRings(rings, tri);
        const size_t total = flatten(rings).size();
        ASSERT_EQ(tri.size() % 3, 0u);
        for (uint32_t index : tri) ASSERT_LT(index, total);
    }
    // Huge and tiny magnitudes.
    triangulateRings({{{-3e38f, -3e38f}, {3e38f, -3e38f}, {3e38f, 3e38f}, {-3e38f, 3e38f}}}, tri);
    EXPECT_EQ(tri.size(), 6u);
    triangulateRings({{{0, 0}, {1e-30f, 0}, {1e-30f, 1e-30f}, {0, 1e-30f}}}, tri);
    EXPECT_EQ(tri.size(), 6u);
}
