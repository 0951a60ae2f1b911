// Extrusion of contour lists into closed meshes, and alignment.
#include "text_mesh_check.h"

#include <korvex/extrude.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <set>

using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;
using textcheck::Indices;
using textcheck::Vertices;

namespace {

const std::function<float(float, float)> flat = [](float, float) { return 0.0f; };

Ring square(float x0, float y0, float side, bool ccw = true) {
    Ring r{{x0, y0}, {x0 + side, y0}, {x0 + side, y0 + side}, {x0, y0 + side}};
    if (!ccw) std::reverse(r.begin(), r.end());
    return r;
}

// Extrudes `rings` with a constant height and checks the solid; returns its
// front cap area.
double solidArea(const Rings& rings, float depth = 1.5f) {
    Vertices v;
    Indices idx;
    extrudeWithContours(rings, depth, 0.0f, 0.0f, v, idx, [](float, float) { return 2.0f; });
    double area = 0.0;
    EXPECT_FALSE(idx.empty());
    EXPECT_EQ(textcheck::solidProblem(v, idx, depth, area), "");
    return area;
}

// Exact even-odd area of axis-aligned rectangles (x0, y0, x1, y1), by
// coordinate compression.
double evenOddRectArea(const std::vector<glm::ivec4>& rects) {
    std::set<int> xs, ys;
    for (const auto& r : rects) xs.insert({r.x, r.z}), ys.insert({r.y, r.w});
    const std::vector<int> X(xs.begin(), xs.end()), Y(ys.begin(), ys.end());
    double area = 0.0;
    for (size_t i = 0; i + 1 < X.size(); ++i)
        for (size_t j = 0; j + 1 < Y.size(); ++j) {
            const double cx = 0.5 * (X[i] + X[i + 1]), cy = 0.5 * (Y[j] + Y[j + 1]);
            int cover = 0;
            for (const auto& r : rects) cover += cx > r.x && cx < r.z && cy > r.y && cy < r.w;
            if (cover % 2) area += double(X[i + 1] - X[i]) * (Y[j + 1] - Y[j]);
        }
    return area;
}

} // namespace

TEST(TextExtrude, UnitSquareLayout) {
    Vertices v;
    Indices idx;
    std::vector<vec2> calls;
    extrudeWithContours({square(0, 0, 1)}, 2.0f, 10.0f, 20.0f, v, idx, [&](float x, float y) {
        calls.emplace_back(x, y);
        return x * 0.25f;
    });
    ASSERT_EQ(v.size(), 8u);
    ASSERT_EQ(idx.size(), 36u);
    ASSERT_EQ(calls.size(), 4u); // once per ring point, in vertex order, shifted
    for (size_t i = 0; i < 4; ++i) {
        const kvx::nsVertex &f = v[i], &b = v[i + 4];
        EXPECT_EQ(vec2(f.position), calls[i]);
        EXPECT_TRUE(
            glm::all(glm::equal(glm::abs(vec2(f.position) - vec2(10.5f, 20.5f)), vec2(0.5f))));
        EXPECT_EQ(f.position.z, f.position.x * 0.25f);
        EXPECT_EQ(f.normal, vec3(0, 0, 1));
        EXPECT_EQ(f.uv, vec2(0, 0));
        EXPECT_EQ(f.color, vec4(1.0f)); // the constructor's defaults stay
        EXPECT_EQ(b.position, f.position - vec3(0, 0, 2));
        EXPECT_EQ(b.normal, vec3(0, 0, -1));
        EXPECT_TRUE(std::signbit(b.normal.x) && std::signbit(b.normal.y)); // negated zeros
    }
    // Front cap over 0..3, back cap the same triangles over 4..7 reversed.
    for (size_t t = 0; t < 6; t += 3) {
        for (size_t k = 0; k < 3; ++k) EXPECT_LT(idx[t + k], 4u);
        EXPECT_EQ(Indices(idx.begin() + 6 + long(t), idx.begin() + 9 + long(t)),
                  Indices({idx[t] + 4, idx[t + 2] + 4, idx[t + 1] + 4}));
    }
    // Walls: a, a2, b, b, a2, b2 along the ring.
    for (unsigned a = 0; a < 4; ++a) {
        const unsigned b = (a + 1) % 4;
        EXPECT_EQ(Indices(idx.begin() + 12 + 6 * a, idx.begin() + 18 + 6 * a),
                  Indices({a, a + 4, b, b, a + 4, b + 4}));
    }
    double capArea;
    EXPECT_EQ(textcheck::solidProblem(v, idx, 2.0, capArea), "");
    EXPECT_DOUBLE_EQ(capArea, 1.0);

    // A second call appends a block based on the vertex count at its start.
    extrudeWithContours({square(5, 5, 1, false)}, 2.0f, 0, 0, v, idx, flat);
    ASSERT_EQ(v.size(), 16u);
    ASSERT_EQ(idx.size(), 72u);
    EXPECT_GE(*std::min_element(idx.begin() + 36, idx.end()), 8u);
}

TEST(TextExtrude, DepthSignAndZero) {
    Vertices pos, neg, zero;
    Indices ip, in, iz;
    extrudeWithContours({square(0, 0, 2)}, 0.5f, 0, 0, pos, ip, flat);
    extrudeWithContours({square(0, 0, 2)}, -0.5f, 0, 0, neg, in, flat);
    extrudeWithContours({square(0, 0, 2)}, 0.0f, 0, 0, zero, iz, flat);
    EXPECT_EQ(ip, in); // the triangle order does not depend on the sign
    EXPECT_EQ(ip, iz);
    EXPECT_EQ(neg[0].normal, vec3(0, 0, -1));
    EXPECT_EQ(neg[4].normal, vec3(0, 0, 1));
    EXPECT_EQ(neg[4].position.z, 0.5f);       // the back cap lies in front
    EXPECT_EQ(zero[0].normal, vec3(0, 0, 1)); // 0 counts as positive
    EXPECT_EQ(zero[4].normal, vec3(0, 0, -1));
    EXPECT_EQ(zero[4].position, zero[0].position);
}

TEST(TextExtrude, EmptyInputAndEmptyHeightFunction) {
    Vertices v(1);
    Indices idx{7};
    const std::function<float(float, float)> none;
    // Nothing survives the clean-up: nothing appended, the function unused.
    extrudeWithContours({}, 1.0f, 0, 0, v, idx, none);
    extrudeWithContours({square(0, 0, 0.3f), {{0, 0}, {1, 1}}}, 1.0f, 0, 0, v, idx, none);
    EXPECT_EQ(v.size(), 1u);
    EXPECT_EQ(idx.size(), 1u);
    // With something to build, the empty function throws before anything is
    // appended.
    EXPECT_THROW(extrudeWithContours({square(0, 0, 1)}, 1.0f, 0, 0, v, idx, none),
                 std::bad_function_call);
    EXPECT_EQ(v.size(), 1u);
    EXPECT_EQ(idx, Indices({7}));
    // Not a number first in a ring fails the union: nothing appended. Later
    // in a ring the clean-up passes it over (no distance to it is above the
    // limit).
    extrudeWithContours({{{NAN, 0}, {0, 0}, {1, 1}}, square(0, 0, 1)}, 1.0f, 0, 0, v, idx, flat);
    EXPECT_EQ(v.size(), 1u);
    extrudeWithContours({{{0, 0}, {NAN, 0}, {1, 0}, {1, 1}, {0, 1}}}, 1.0f, 0, 0, v, idx, flat);
    EXPECT_EQ(v.size(), 9u);
}

TEST(TextExtrude, HolesOverlapsAndTouchingRingsMakeClosedSolids) {
    Vertices v;
    Indices idx;
    extrudeWithContours({square(0, 0, 4), square(1, 1, 2)}, 1.0f, 0, 0, v, idx, flat);
    EXPECT_EQ(v.size(), 16u); // one polygon: both rings, twice
    EXPECT_EQ(idx.size(), 3u * (8 + 8 + 16));

    const struct {
        Rings rings;
        double area;
        const char* what;
    } cases[] = {
        {{square(0, 0, 4), square(1, 1, 2)}, 12.0, "square with hole"},
        {{square(0, 0, 2), square(1, 1, 2)}, 6.0, "overlap left open"},
        {{square(0, 0, 10), {{0, 5}, {3, 3}, {3, 7}}}, 94.0, "hole touching an edge"},
        {{square(0, 0, 10), {{0, 0}, {3, 1}, {1, 3}}}, 96.0, "hole touching a corner"},
        {{square(0, 0, 2), square(2, 2, 2)}, 8.0, "squares meeting at a corner"},
    };
    for (const auto& c : cases) EXPECT_NEAR(solidArea(c.rings), c.area, 1e-4 * c.area) << c.what;
}

TEST(TextExtrude, RandomOverlapsMatchTheEvenOddArea) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> corner(0, 16), extent(1, 8), count(1, 7);
    for (int trial = 0; trial < 40; ++trial) {
        std::vector<glm::ivec4> rects;
        Rings rings;
        for (int k = count(rng); k > 0; --k) {
            const int x = corner(rng), y = corner(rng);
            rects.emplace_back(x, y, x + extent(rng), y + extent(rng));
            const auto& r = rects.back();
            rings.push_back({{r.x, r.y}, {r.z, r.y}, {r.z, r.w}, {r.x, r.w}});
            if (rng() % 2) std::reverse(rings.back().begin(), rings.back().end());
        }
        EXPECT_NEAR(solidArea(rings, 1.0f), evenOddRectArea(rects), 1e-6) << "trial " << trial;
    }
}

TEST(TextExtrude, AlignTextBottomCenter) {
    auto aligned = [](const std::vector<vec3>& positions) {
        Vertices v(positions.size());
        for (size_t i = 0; i < v.size(); ++i) v[i].position = positions[i];
        alignTextBottomCenter(v);
        std::vector<vec3> out;
        for (const kvx::nsVertex& vertex : v) out.push_back(vertex.position);
        return out;
    };
    EXPECT_TRUE(aligned({}).empty());
    EXPECT_EQ(aligned({{5, -3, 7}}), std::vector<vec3>({{0, 0, 7}}));
    // z and max y play no part.
    EXPECT_EQ(aligned({{2, 5, 1}, {10, 9, 2}, {4, 3, -40}}),
              std::vector<vec3>({{-4, 2, 1}, {4, 6, 2}, {-2, 0, -40}}));
}
