// Carving text out of a surface outline (non-zero difference, integer
// conversion truncating in single precision) and engraved slabs (contours
// laid on a plane, each ring filled by itself).
#include "text_mesh_check.h"

#include <korvex/carve.h>
#include <korvex/plane.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;
using textcheck::Indices;
using textcheck::Vertices;

namespace {

Ring rect(float x0, float y0, float x1, float y1, bool ccw = true) {
    Ring r{{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
    if (!ccw) std::reverse(r.begin(), r.end());
    return r;
}

// A capital O as a font gives it: each ring closed on a repeat of its first
// point, the counter running against the outer ring unless `sameWay`.
Rings letterO(float x, float y, bool sameWay = false) {
    Rings o{rect(x, y, x + 4, y + 6, false), rect(x + 1, y + 1, x + 3, y + 5, !sameWay)};
    for (Ring& r : o) r.push_back(r.front());
    return o;
}

// Signed areas of what is left of the square [0, 10]^2 after cutting `text`.
std::vector<double> areasLeft(const Rings& text) {
    std::vector<double> areas;
    for (const Ring& r : CarveTextFromSurface(rect(0, 0, 10, 10), text)) {
        EXPECT_NE(r.front(), r.back()); // no closing repeat
        areas.push_back(textcheck::shoelace(r));
    }
    std::sort(areas.begin(), areas.end());
    return areas;
}

bool samePoints(Ring a, Ring b) {
    auto less = [](const vec2& p, const vec2& q) { return p.x < q.x || (p.x == q.x && p.y < q.y); };
    std::sort(a.begin(), a.end(), less);
    std::sort(b.begin(), b.end(), less);
    return a == b;
}

const Ring unitSquare{{0, 0}, {1, 0}, {1, 1}, {0, 1}};

// The plane x = 1 seen from +x: u along +y, v along +z, normal cross(u, v).
const vec3 origin(1, 2, 3), axisU(0, 1, 0), axisV(0, 0, 1), normal(1, 0, 0);

vec3 onPlane(const vec2& p) {
    return origin + p.x * axisU + p.y * axisV;
}

// Vertex and index counts of an engraving of `rings` at depth 1.
std::pair<size_t, size_t> counts(const std::vector<Ring>& rings, Vertices& v) {
    Indices idx;
    GenerateEngravedMeshFromContours(rings, origin, axisU, axisV, normal, 1.0f, v, idx);
    return {v.size(), idx.size()};
}

} // namespace

TEST(Carve, WithoutTextTheOutlineMakesTheTripThroughTheIntegers) {
    // Truncation in single precision: 0.7f * 100000 is exactly 70000 in
    // float (69999.9988 in double), 5.7f likewise gives 570000, and 1562.5
    // truncates to 1562 on either side of zero.
    const Rings result = CarveTextFromSurface(rect(-0.7f, -0.015625f, 10.015625f, 5.7f, false), {});
    ASSERT_EQ(result.size(), 1u);
    EXPECT_TRUE(samePoints(result[0], rect(-0.7f, -0.01562f, 10.01562f, 5.7f)));
    EXPECT_GT(textcheck::shoelace(result[0]), 0.0); // direction as the clipper delivers it
    EXPECT_TRUE(CarveTextFromSurface({}, letterO(0, 0)).empty());
}

TEST(Carve, RingDirectionDecidesWhatIsCut) {
    using Areas = std::vector<double>;
    EXPECT_EQ(areasLeft(letterO(20, 0)), Areas({100.0})); // wholly outside
    // The counter of an O runs against its outer ring: winding 0, so its
    // island stays. Running the same way, both are cut.
    EXPECT_EQ(areasLeft(letterO(3, 2)), Areas({-24.0, 8.0, 100.0}));
    EXPECT_EQ(areasLeft(letterO(3, 2, true)), Areas({-24.0, 100.0}));
    // Overlapping glyphs running the same way are cut as their union.
    EXPECT_EQ(areasLeft({rect(1, 1, 5, 5), rect(3, 3, 7, 7)}), Areas({-28.0, 100.0}));
    EXPECT_EQ(areasLeft({rect(8, 2, 12, 4)}), Areas({96.0})); // across the edge: a notch
    // Short rings enclose nothing and cut nothing.
    EXPECT_EQ(areasLeft({{}, {{1, 1}}, {{1, 1}, {2, 2}}}), Areas({100.0}));
}

TEST(Carve, BadInputGivesAnEmptyResult) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(areasLeft({{{1, 1}, {nan, 1}, {2, 2}}}).empty());
    EXPECT_TRUE(CarveTextFromSurface({{0, 0}, {1e30f, 0}, {0, 1}}, {}).empty());
    EXPECT_TRUE(CarveTextFromSurface({{0, 0}, {1, 1}}, {}).empty()); // no area
}

TEST(Engrave, UnitSquareLayout) {
    Vertices v(3);
    Indices idx{1, 2, 3};
    GenerateEngravedMeshFromContours({unitSquare}, origin, axisU, axisV, normal, 0.5f, v, idx);
    ASSERT_EQ(v.size(), 4u + 4u + 16u);
    ASSERT_EQ(idx.size(), 6u + 6u + 24u);
    // Top: the first ear is position 0; bottom: the same, reversed.
    EXPECT_EQ(Indices(idx.begin(), idx.begin() + 12),
              Indices({3, 0, 1, 3, 1, 2, 7, 5, 4, 7, 6, 5}));
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(v[i].position, onPlane(unitSquare[i]));
        EXPECT_EQ(v[i].normal, normal);
        EXPECT_EQ(v[4 + i].position, onPlane(unitSquare[i]) - 0.5f * normal);
        EXPECT_EQ(v[4 + i].normal, -normal);
        EXPECT_EQ(v[i].color, vec4(1.0f)); // the constructor's defaults stay
    }
    // Walls: A, B, B', A' per edge, six indices, the outward normal, the
    // triangles winding against it.
    for (unsigned e = 0; e < 4; ++e) {
        const unsigned i0 = 8 + 4 * e;
        const vec3 a = onPlane(unitSquare[e]), b = onPlane(unitSquare[(e + 1) % 4]);
        const vec3 back = -0.5f * normal;
        EXPECT_EQ(v[i0].position, a);
        EXPECT_EQ(v[i0 + 1].position, b);
        EXPECT_EQ(v[i0 + 2].position, b + back);
        EXPECT_EQ(v[i0 + 3].position, a + back);
        EXPECT_EQ(Indices(idx.begin() + 12 + 6 * e, idx.begin() + 18 + 6 * e),
                  Indices({i0, i0 + 1, i0 + 2, i0, i0 + 2, i0 + 3}));
        const vec3 outward = 0.5f * (a + b) - onPlane(vec2(0.5f));
        EXPECT_NEAR(glm::distance(v[i0].normal, 2.0f * outward), 0.0f, 1e-6f);
        EXPECT_LT(glm::dot(glm::cross(b - a, b + back - a), v[i0].normal), 0.0f);
    }
    GenerateEngravedMeshFromContours({}, origin, axisU, axisV, normal, 0.5f, v, idx);
    EXPECT_TRUE(v.empty()); // replaced, not appended to
    EXPECT_TRUE(idx.empty());
}

TEST(Engrave, EachRingIsFilledByItself) {
    Vertices v;
    // A convex ring of negative area gets walls but no fill.
    EXPECT_EQ(counts({Ring(unitSquare.rbegin(), unitSquare.rend())}, v),
              std::make_pair(24ul, 24ul));
    // A repeated first point blocks the ears at the first point: one
    // triangle. Its closing wall has zero length: a zero normal, not NaN.
    Ring repeated = unitSquare;
    repeated.push_back(repeated.front());
    EXPECT_EQ(counts({repeated}, v), std::make_pair(10ul + 20ul, 3ul + 3ul + 30ul));
    EXPECT_EQ(v[10 + 16].normal, vec3(0.0f));
    // A hole is no hole: the outer square is filled across it.
    const Ring outer{{0, 0}, {4, 0}, {4, 4}, {0, 4}}, hole{{1, 1}, {1, 3}, {3, 3}, {3, 1}};
    EXPECT_EQ(counts({outer, hole}, v), std::make_pair(16ul + 32ul, 6ul + 6ul + 48ul));
    // Rings of one and two points: walls only, the two-point ring's two quads
    // on top of each other.
    EXPECT_EQ(counts({{{5, 5}}, {{0, 0}, {2, 0}}}, v), std::make_pair(4ul + 8ul, 6ul + 12ul));
    EXPECT_EQ(v[4].position, v[9].position);
}

TEST(Engrave, NonConvexRingsAndDepth) {
    // An L: the ear clipper must not cut across the notch.
    const Ring ell{{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}};
    Vertices v;
    Indices idx;
    GenerateEngravedMeshFromContours({ell}, vec3(0), vec3(1, 0, 0), vec3(0, 1, 0), vec3(0, 0, 1),
                                     0.0f, v, idx);
    ASSERT_EQ(idx.size(), 3u * 4u + 3u * 4u + 6u * 6u);
    double area = 0.0;
    for (size_t k = 0; k < 12; k += 3) {
        const vec3 &a = v[idx[k]].position, &b = v[idx[k + 1]].position,
                   &c = v[idx[k + 2]].position;
        EXPECT_GT(glm::cross(b - a, c - a).z, 0.0f);
        area += 0.5 * glm::cross(b - a, c - a).z;
    }
    EXPECT_DOUBLE_EQ(area, 3.0);
    // Depth 0: both layers in the plane, walls of zero height.
    EXPECT_EQ(v[6].position, v[0].position);
    EXPECT_EQ(v[12].position, v[15].position);

    // A basis from buildPlaneBasis, and a normal of length 2: the layers lie
    // depth times its length apart, and worldToUV undoes the mapping.
    vec3 first, second;
    const vec3 n = glm::normalize(vec3(1, 2, 3));
    buildPlaneBasis(n, first, second);
    GenerateEngravedMeshFromContours({unitSquare}, vec3(0), first, second, 2.0f * n, 0.25f, v, idx);
    EXPECT_NEAR(glm::distance(v[0].position, v[4].position), 0.5f, 1e-6f);
    EXPECT_NEAR(worldToUV(v[2].position, vec3(0), first, second).x, 1.0f, 1e-6f);
}
