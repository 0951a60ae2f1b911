// Engraved slabs: contours laid on a plane, each ring filled by itself.
#include <korvex/carve.h>
#include <korvex/plane.h>

#include <gtest/gtest.h>

#include <cmath>

using Ring = std::vector<vec2>;
using Vertices = std::vector<kvx::nsVertex>;
using Indices = std::vector<unsigned>;

namespace {

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
