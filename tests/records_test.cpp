#include <korvex/records.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

// The records are the arrays host and library share: no hidden gaps, and
// copyable as bytes.
TEST(Records, LayoutMatchesTheSharedArrays) {
    static_assert(std::is_trivially_copyable_v<kvx::nsVertex>);
    static_assert(std::is_trivially_copyable_v<Triangle>);
    static_assert(std::is_trivially_copyable_v<Edge>);
    static_assert(std::is_trivially_copyable_v<AABB>);
    static_assert(std::is_trivially_copyable_v<BoundingBox>);
    static_assert(std::is_trivially_copyable_v<Ray>);
    EXPECT_EQ(sizeof(kvx::nsVertex), 4u * (3 * 4 + 2 + 2 + 4 + 8));
    EXPECT_EQ(offsetof(kvx::nsVertex, uv), 48u);
    EXPECT_EQ(offsetof(kvx::nsVertex, color), 64u);
    EXPECT_EQ(offsetof(kvx::nsVertex, extra), 80u);
    EXPECT_EQ(sizeof(Ray), 24u);
    EXPECT_EQ(sizeof(AABB), 24u);
    EXPECT_EQ(sizeof(BoundingBox), 24u);
    EXPECT_EQ(offsetof(Plane, normal), 4u);
    EXPECT_EQ(sizeof(ScreenRect), 16u);
    EXPECT_EQ(offsetof(Triangle, hostData), 36u);
}

TEST(Records, VertexConstructorsSetTheLibraryDefaults) {
    kvx::nsVertex v;
    EXPECT_EQ(v.uv2, vec2(0.0f));
    EXPECT_EQ(v.color, vec4(1.0f));
    for (uint32_t word : v.extra) EXPECT_EQ(word, 0u);
    kvx::nsVertex w(vec3(1, 2, 3), vec3(0, 0, 1));
    EXPECT_EQ(w.position, vec3(1, 2, 3));
    EXPECT_EQ(w.normal, vec3(0, 0, 1));
    EXPECT_EQ(w.color, vec4(1.0f));
    Vertex small(vec3(1, 2, 3), vec3(4, 5, 6));
    EXPECT_EQ(small.normal, vec3(4, 5, 6));
}

TEST(Records, Vector3Arithmetic) {
    Vector3 zero;
    EXPECT_EQ(zero.x, 0.0f);
    Vector3 a(1, 2, 3), b(4, 6, 8);
    Vector3 s = a + b;
    EXPECT_EQ(s.z, 11.0f);
    Vector3 d = b - a;
    EXPECT_EQ(d.y, 4.0f);
    a += b;
    EXPECT_EQ(a.x, 5.0f);
    a -= b;
    EXPECT_EQ(a.x, 1.0f);
    EXPECT_EQ((b * 0.5f).z, 4.0f);
    EXPECT_FLOAT_EQ(Vector3(3, 4, 0).length(), 5.0f);
    const Vector3 n = Vector3(0, 3, 4).normalize();
    EXPECT_FLOAT_EQ(n.y, 0.6f);
    const Vector3 z = Vector3().normalize();
    EXPECT_EQ(z.x, 0.0f); // not NaN
    EXPECT_EQ(z.y, 0.0f);
    EXPECT_EQ(z.z, 0.0f);
}

TEST(Records, TriangleEqualityComparesCornersInPlaceOnly) {
    Triangle t(vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0));
    Triangle u = t;
    u.hostTag = 7;
    u.hostData = vec4(1.0f);
    EXPECT_TRUE(t == u);
    EXPECT_EQ(t.hostTag, 0u);
    EXPECT_FALSE(t.hostData.has_value());
    Triangle rotated(t.p1, t.p2, t.p0);
    EXPECT_FALSE(t == rotated);
    Triangle withNan(vec3(NAN, 0, 0), t.p1, t.p2);
    EXPECT_FALSE(withNan == withNan);
    Triangle negZero(vec3(-0.0f, 0, 0), t.p1, t.p2);
    EXPECT_TRUE(t == negZero);
}

TEST(Records, BoundingBoxInvalidStateAndExpansion) {
    BoundingBox box;
    box.invalidate();
    EXPECT_EQ(box.min, vec3(3.4028235e38f));
    EXPECT_EQ(box.max, vec3(-3.4028235e38f));
    EXPECT_EQ(box.GetCenter(), vec3(0.0f));
    EXPECT_TRUE(std::isinf(box.getSize().x) && box.getSize().x < 0);

    const BoundingBox valid(vec3(-1, 0, 2), vec3(1, 3, 4));
    box.expand(valid);
    EXPECT_EQ(box.min, valid.min);
    EXPECT_EQ(box.max, valid.max);

    BoundingBox kept = valid;
    BoundingBox invalid;
    invalid.invalidate();
    kept.expand(invalid);
    EXPECT_EQ(kept.min, valid.min);
    EXPECT_EQ(kept.max, valid.max);
    EXPECT_EQ(valid.getSize(), vec3(2, 3, 2));
    EXPECT_EQ(valid.GetCenter(), vec3(0, 1.5f, 3));
}

TEST(Records, PositiveVertexTakesMaxOnZeroAndMinOnNaN) {
    const BoundingBox box(vec3(-1, -2, -3), vec3(1, 2, 3));
    EXPECT_EQ(box.getPositiveVertex(Plane(0, vec3(0.0f, -0.0f, -1.0f))), vec3(1, 2, -3));
    EXPECT_EQ(box.getPositiveVertex(Plane(0, vec3(NAN, 1.0f, -0.5f))), vec3(-1, 2, -3));
}

TEST(Records, AabbKeepsItsCornersUnsorted) {
    const AABB box(vec3(1, 1, 1), vec3(0, 0, 0));
    EXPECT_EQ(box.min, vec3(1));
    EXPECT_EQ(box.max, vec3(0));
}
