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
using Vertices = std::vector<kvx::nsVertex>;
using Indices = std::vector<unsigned>;

namespace {

const std::function<float(float, float)> flat = [](float, float) { return 0.0f; };

Ring square(float x0, float y0, float side, bool ccw = true) {
    Ring r{{x0, y0}, {x0 + side, y0}, {x0 + side, y0 + side}, {x0, y0 + side}};
    if (!ccw) std::reverse(r.begin(), r.end());
    return r;
}

Ring closed(Ring r) {
    r.push_back(r.front()); // as rings come from a font
    return r;
}

// xy area of the triangles made only of front vertices (normal +z); wall
// triangles always mix front and back.
double frontCapArea(const Vertices& v, const Indices& idx) {
    double sum = 0.0;
    for (size_t t = 0; t < idx.size() / 3; ++t) {
        bool front = true;
        for (int k = 0; k < 3; ++k) front = front && v[idx[3 * t + k]].normal.z > 0.0f;
        if (front) sum += textcheck::capArea(v, idx, t, t + 1);
    }
    return sum;
}

// The solid of `rings` must be closed, hold cap area × depth, and its cap
// must have the given area.
void expectSolid(const Rings& rings, double expectedArea, const char* what) {
    SCOPED_TRACE(what);
    Vertices v;
    Indices idx;
    const float depth = 1.5f;
    extrudeWithContours(rings, depth, 0.0f, 0.0f, v, idx, [](float, float) { return 2.0f; });
    ASSERT_FALSE(idx.empty());
    EXPECT_EQ(textcheck::closedMeshProblem(v, idx), "");
    const double area = frontCapArea(v, idx);
    EXPECT_NEAR(area, expectedArea, 1e-4 * expectedArea);
    EXPECT_NEAR(textcheck::volume(v, idx), area * depth, 1e-4 * area * depth);
}

// Exact even-odd area of axis-aligned rectangles, by coordinate compression.
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
    ASSERT_EQ(calls.size(), 4u); // once per ring point, in vertex order
    for (int i = 0; i < 4; ++i) {
        const kvx::nsVertex &f = v[i], &b = v[i + 4];
        EXPECT_EQ(vec2(f.position), calls[i]);
        EXPECT_TRUE(f.position.x == 10.0f || f.position.x == 11.0f);
        EXPECT_TRUE(f.position.y == 20.0f || f.position.y == 21.0f);
        EXPECT_EQ(f.position.z, f.position.x * 0.25f);
        EXPECT_EQ(f.normal, vec3(0, 0, 1));
        EXPECT_EQ(f.uv, vec2(0, 0));
        EXPECT_EQ(f.color, vec4(1.0f)); // the constructor's defaults stay
        EXPECT_EQ(b.position, f.position - vec3(0, 0, 2));
        EXPECT_EQ(b.normal, vec3(0, 0, -1));
        EXPECT_TRUE(std::signbit(b.normal.x) && std::signbit(b.normal.y)); // negated zeros
    }
    // Front cap over 0..3 winding to +z, back cap over 4..7 reversed.
    for (int t = 0; t < 2; ++t) {
        for (int k = 0; k < 3; ++k) EXPECT_LT(idx[3 * t + k], 4u);
        for (int k = 0; k < 3; ++k) EXPECT_GE(idx[6 + 3 * t + k], 4u);
        EXPECT_EQ(idx[6 + 3 * t], idx[3 * t] + 4);
        EXPECT_EQ(idx[6 + 3 * t + 1], idx[3 * t + 2] + 4);
        EXPECT_EQ(idx[6 + 3 * t + 2], idx[3 * t + 1] + 4);
    }
    EXPECT_DOUBLE_EQ(textcheck::capArea(v, idx, 0, 2), 1.0);
    // Walls: a, a2, b, b, a2, b2 along the ring.
    for (unsigned j = 0; j < 4; ++j) {
        const unsigned a = j, b = (j + 1) % 4;
        const Indices wall(idx.begin() + 12 + 6 * j, idx.begin() + 18 + 6 * j);
        EXPECT_EQ(wall, Indices({a, a + 4, b, b, a + 4, b + 4}));
    }
    EXPECT_EQ(textcheck::closedMeshProblem(v, idx), "");

    // A second call appends a block based on the vertex count at its start.
    extrudeWithContours({square(5, 5, 1, false)}, 2.0f, 0, 0, v, idx, flat);
    ASSERT_EQ(v.size(), 16u);
    ASSERT_EQ(idx.size(), 72u);
    for (size_t k = 36; k < 72; ++k) EXPECT_GE(idx[k], 8u);
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
    EXPECT_NEAR(textcheck::volume(pos, ip), 2.0, 1e-9);
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
    // With something to build, the empty function throws before anything
    // is appended.
    EXPECT_THROW(extrudeWithContours({square(0, 0, 1)}, 1.0f, 0, 0, v, idx, none),
                 std::bad_function_call);
    EXPECT_EQ(v.size(), 1u);
    EXPECT_EQ(idx, Indices({7}));
    // Not a number first in a ring fails the union: nothing appended. (Later
    // in a ring, the clean-up passes it over, since no distance to it is
    // above the limit.)
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

    expectSolid({square(0, 0, 4), square(1, 1, 2)}, 12.0, "square with hole");
    expectSolid({square(0, 0, 2), square(1, 1, 2)}, 6.0, "overlap left open");
    // A hole touching the outer ring in the middle of an edge, and one
    // touching it at a corner.
    expectSolid({square(0, 0, 10), {{0, 5}, {3, 3}, {3, 7}}}, 94.0, "touching an edge");
    expectSolid({square(0, 0, 10), {{0, 0}, {3, 1}, {1, 3}}}, 96.0, "touching a corner");
    // Two squares meeting at one corner.
    expectSolid({square(0, 0, 2), square(2, 2, 2)}, 8.0, "meeting at a corner");
}

TEST(TextExtrude, HandDrawnLettersAreClosedSolids) {
    auto octagon = [](float r, bool ccw) {
        Ring ring;
        for (int i = 0; i < 8; ++i) {
            const float a = 0.785398163f * float(ccw ? i : 8 - i);
            ring.emplace_back(5 + r * std::cos(a), 5 + r * std::sin(a));
        }
        return ring;
    };
    // Outer rings one way, counters the other, each ending on a repeat of
    // its first point, as a font delivers them.
    const Rings letterO{closed(octagon(5, true)), closed(octagon(3, false))};
    const Rings letterA{closed({{0, 0}, {2, 0}, {3, 3}, {5, 3}, {6, 0}, {8, 0}, {5, 10}, {3, 10}}),
                        closed({{3.5f, 5}, {4, 7}, {4.5f, 5}})};
    const Rings letterB{
        closed({{0, 0}, {5, 0}, {7, 2}, {7, 4}, {6, 5}, {7, 6}, {7, 8}, {5, 10}, {0, 10}}),
        closed({{2, 2}, {2, 4}, {5, 4}, {5, 2}}), closed({{2, 6}, {2, 8}, {5, 8}, {5, 6}})};
    const Rings letterE{closed({{0, 0},
                                {6, 0},
                                {6, 2},
                                {2, 2},
                                {2, 4},
                                {5, 4},
                                {5, 6},
                                {2, 6},
                                {2, 8},
                                {6, 8},
                                {6, 10},
                                {0, 10}})};
    const Rings letterI{closed(square(0, 0, 1.5f)), closed(square(0, 3, 1.5f)),
                        closed({{0, 2}, {1.5f, 2}, {1.5f, 2.5f}, {0, 2.5f}})};
    auto area = [](const Rings& rings, int outers) {
        double a = 0.0;
        for (size_t r = 0; r < rings.size(); ++r)
            a += (int(r) < outers ? 1 : -1) * std::fabs(textcheck::shoelace(rings[r]));
        return a;
    };
    expectSolid(letterO, area(letterO, 1), "O");
    expectSolid(letterA, area(letterA, 1), "A");
    expectSolid(letterB, area(letterB, 1), "B");
    expectSolid(letterE, area(letterE, 1), "E");
    expectSolid(letterI, area(letterI, 3), "i");
    // A word: the letters side by side, shifted along x.
    Rings word;
    float pen = 0.0f;
    for (const Rings* letter : {&letterA, &letterB, &letterO, &letterE}) {
        for (Ring ring : *letter) {
            for (vec2& p : ring) p.x += pen;
            word.push_back(ring);
        }
        pen += 11.0f;
    }
    expectSolid(word, area(letterA, 1) + area(letterB, 1) + area(letterO, 1) + area(letterE, 1),
                "word");
}

TEST(TextExtrude, RandomOverlapsMatchTheEvenOddArea) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> corner(0, 16), extent(1, 8), count(1, 7);
    std::bernoulli_distribution coin(0.5);
    for (int trial = 0; trial < 40; ++trial) {
        std::vector<glm::ivec4> rects;
        Rings rings;
        for (int k = count(rng); k > 0; --k) {
            const int x = corner(rng), y = corner(rng);
            rects.emplace_back(x, y, x + extent(rng), y + extent(rng));
            const auto& r = rects.back();
            Ring ring{{r.x, r.y}, {r.z, r.y}, {r.z, r.w}, {r.x, r.w}};
            if (coin(rng)) std::reverse(ring.begin(), ring.end());
            rings.push_back(ring);
        }
        const double expected = evenOddRectArea(rects);
        Vertices v;
        Indices idx;
        extrudeWithContours(rings, 1.0f, 0, 0, v, idx, flat);
        SCOPED_TRACE("trial " + std::to_string(trial));
        EXPECT_EQ(textcheck::closedMeshProblem(v, idx, true), "");
        EXPECT_NEAR(frontCapArea(v, idx), expected, 1e-6);
        EXPECT_NEAR(textcheck::volume(v, idx), expected, 1e-4);
    }
    // Overlapping stars of many points, the curved case.
    for (int trial = 0; trial < 10; ++trial) {
        Rings rings;
        std::uniform_real_distribution<float> centre(0.0f, 10.0f), radius(2.0f, 6.0f);
        for (int k = 0; k < 3; ++k) {
            const vec2 c(centre(rng), centre(rng));
            Ring ring;
            for (int i = 0; i < 40; ++i) {
                const float a = 6.2831853f * float(i) / 40.0f;
                ring.push_back(c + radius(rng) * vec2(std::cos(a), std::sin(a)));
            }
            rings.push_back(ring);
        }
        Vertices v;
        Indices idx;
        extrudeWithContours(rings, 0.75f, 0, 0, v, idx, flat);
        SCOPED_TRACE("star trial " + std::to_string(trial));
        EXPECT_EQ(textcheck::closedMeshProblem(v, idx, true), "");
        const double area = frontCapArea(v, idx);
        EXPECT_NEAR(textcheck::volume(v, idx), area * 0.75, 1e-4 * area);
    }
}

TEST(TextExtrude, AlignTextBottomCenter) {
    Vertices none;
    alignTextBottomCenter(none);
    EXPECT_TRUE(none.empty());
    Vertices one(1);
    one[0].position = vec3(5, -3, 7);
    alignTextBottomCenter(one);
    EXPECT_EQ(one[0].position, vec3(0, 0, 7));

    Vertices v(3);
    v[0].position = vec3(2, 5, 1);
    v[1].position = vec3(10, 9, 2);
    v[2].position = vec3(4, 3, -40); // z and max y play no part
    v[2].normal = vec3(0, 0, 1);
    alignTextBottomCenter(v);
    EXPECT_EQ(v[0].position, vec3(-4, 2, 1));
    EXPECT_EQ(v[1].position, vec3(4, 6, 2));
    EXPECT_EQ(v[2].position, vec3(-2, 0, -40));
    EXPECT_EQ(v[2].normal, vec3(0, 0, 1));
}
