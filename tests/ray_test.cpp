#include <korvex/ray.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {
const float kInf = std::numeric_limits<float>::infinity();
const vec3 kUntouched(123, 456, 789);
} // namespace

TEST(RayTriangle, TwoSidedWithInclusiveEdges) {
    const vec3 p0(0, 0, 0), p1(1, 0, 0), p2(0, 1, 0);
    vec3 hit = kUntouched;
    float t = -1;
    ASSERT_TRUE(
        RayIntersectsTriangle(Ray(vec3(0.25f, 0.25f, 2), vec3(0, 0, -2)), p0, p1, p2, hit, t));
    EXPECT_FLOAT_EQ(t, 1.0f); // in units of the direction's length
    EXPECT_EQ(hit, vec3(0.25f, 0.25f, 0));

    // The back face gives the same t and point.
    vec3 back;
    float tBack;
    ASSERT_TRUE(
        RayIntersectsTriangle(Ray(vec3(0.25f, 0.25f, -2), vec3(0, 0, 2)), p0, p1, p2, back, tBack));
    EXPECT_FLOAT_EQ(tBack, 1.0f);

    // Corners and edges belong to the triangle; two triangles sharing an
    // edge are both hit on it.
    EXPECT_TRUE(RayIntersectsTriangle(Ray(vec3(0, 0, 1), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    EXPECT_TRUE(
        RayIntersectsTriangle(Ray(vec3(0.5f, 0.5f, 1), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    EXPECT_TRUE(RayIntersectsTriangle(Ray(vec3(0.5f, 0.5f, 1), vec3(0, 0, -1)), p1, vec3(1, 1, 0),
                                      p2, hit, t));
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.6f, 0.6f, 1), vec3(0, 0, -1)), p0, p1, p2, hit, t));

    // The overload with the flag answers alike for both values.
    for (bool flag : {false, true}) {
        vec3 h2;
        float t2;
        ASSERT_TRUE(RayIntersectsTriangle(Ray(vec3(0.25f, 0.25f, -2), vec3(0, 0, 2)), p0, p1, p2,
                                          h2, t2, flag));
        EXPECT_EQ(h2, back);
    }
}

TEST(RayTriangle, RejectsParallelBandAndTinyDistances) {
    const vec3 p0(0, 0, 0), p1(1, 0, 0), p2(0, 1, 0);
    vec3 hit = kUntouched;
    float t = -7;
    // The plane through the origin (t = 0) and anything up to 1e-6 miss.
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 0), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 1e-6f), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    EXPECT_TRUE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 1e-5f), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    hit = kUntouched;
    t = -7;
    // |a| = 1e-7 (a tiny direction) is inside the parallel band; 1e-6 exactly is not.
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 1), vec3(0, 0, -1e-7f)), p0, p1, p2, hit, t));
    EXPECT_EQ(hit, kUntouched);
    EXPECT_EQ(t, -7);
    // A tiny triangle whose a = s * s sits on the edge of the band still hits.
    const float s = 1e-3f;
    EXPECT_TRUE(RayIntersectsTriangle(Ray(vec3(0.0001f, 0.0001f, 1), vec3(0, 0, -1)), vec3(0),
                                      vec3(s, 0, 0), vec3(0, s, 0), hit, t));
    // Behind the origin: miss. Zero-area triangle: miss. NaN: miss.
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 1), vec3(0, 0, 1)), p0, p1, p2, hit, t));
    EXPECT_FALSE(RayIntersectsTriangle(Ray(vec3(0.2f, 0, 1), vec3(0, 0, -1)), p0, p1, vec3(2, 0, 0),
                                       hit, t));
    hit = kUntouched;
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(NAN, 0.2f, 1), vec3(0, 0, -1)), p0, p1, p2, hit, t));
    EXPECT_FALSE(
        RayIntersectsTriangle(Ray(vec3(0.2f, 0.2f, 1), vec3(0, NAN, -1)), p0, p1, p2, hit, t));
    EXPECT_EQ(hit, kUntouched);
}

TEST(RayBox, LineTestAcceptsBoxesBehindAndUsesNaNRule) {
    const BoundingBox box(vec3(-1), vec3(1));
    EXPECT_TRUE(box.intersects(Ray(vec3(-5, 0, 0), vec3(1, 0, 0))));
    EXPECT_TRUE(box.intersects(Ray(vec3(5, 0, 0), vec3(1, 0, 0)))); // box behind: still a hit
    // Direction exactly (1, 0, 0), origin outside the y range: +-inf limits, miss.
    EXPECT_FALSE(box.intersects(Ray(vec3(-5, 2, 0), vec3(1, 0, 0))));
    // Origin exactly on a y face: a 0/0 limit that does not reject.
    EXPECT_TRUE(box.intersects(Ray(vec3(-5, 1, 0), vec3(1, 0, 0))));
    EXPECT_TRUE(box.intersects(Ray(vec3(-5, -1, 0), vec3(1, 0, 0))));
    EXPECT_FALSE(box.intersects(Ray(vec3(-5, 0, 0), vec3(1, 3, 0))));
    // Any direction length works; no normalising.
    EXPECT_TRUE(box.intersects(Ray(vec3(-5, -5, -5), vec3(1e-3f, 1e-3f, 1e-3f))));
}

TEST(RayBox, ForwardTestsFromInsideAndOutside) {
    const AABB box(vec3(-1), vec3(1));
    for (const vec3 d :
         {vec3(1, 0, 0), vec3(0, -1, 0), vec3(0.3f, -0.2f, 0.9f), vec3(1e-5f, 0, 0)}) {
        EXPECT_TRUE(RayIntersectsAABB(Ray(vec3(0.5f, 0.2f, -0.3f), d), box));
        EXPECT_TRUE(rayIntersectsAABB(Ray(vec3(0.5f, 0.2f, -0.3f), d), box.min, box.max));
    }
    // A direction shorter than 1e-6 misses even from inside.
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(0), vec3(5e-7f, 0, 0)), box));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(0), vec3(0)), box.min, box.max));
    // Box behind the origin: miss, unlike the line test.
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(5, 0, 0), vec3(1, 0, 0)), box));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(5, 0, 0), vec3(1, 0, 0)), box.min, box.max));
    EXPECT_TRUE(RayIntersectsAABB(Ray(vec3(5, 0, 0), vec3(-1, 0, 0)), box));
    // The length of the direction does not matter.
    EXPECT_TRUE(rayIntersectsAABB(Ray(vec3(5, 0.5f, 0), vec3(-100, 0, 0)), box.min, box.max));
    // A near-zero component is parallel: outside that slab, a miss.
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(-5, 2, 0), vec3(1, 1e-7f, 0)), box));
    EXPECT_TRUE(RayIntersectsAABB(Ray(vec3(-5, 0.5f, 0), vec3(1, 1e-7f, 0)), box));
}

TEST(RayBox, RaysInAFaceFollowTheNaNRule) {
    const AABB box(vec3(-1), vec3(1));
    // Along x in the y min face: the y axis drops out, the others decide.
    EXPECT_TRUE(RayIntersectsAABB(Ray(vec3(-5, -1, 0), vec3(1, 0, 0)), box));
    EXPECT_TRUE(rayIntersectsAABB(Ray(vec3(-5, -1, 0), vec3(1, 0, 0)), box.min, box.max));
    // In a max face both forward tests miss.
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(-5, 1, 0), vec3(1, 0, 0)), box));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(-5, 1, 0), vec3(1, 0, 0)), box.min, box.max));
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(0, 1, 0), vec3(1, 0, 0)), box));
    // In the x min face (running along y): the lower-case test rejects the NaN
    // limits; the other hits only from inside the box.
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(-1, 0, 0), vec3(0, 1, 0)), box.min, box.max));
    EXPECT_TRUE(RayIntersectsAABB(Ray(vec3(-1, 0, 0), vec3(0, 1, 0)), box));
    EXPECT_FALSE(RayIntersectsAABB(Ray(vec3(-1, -5, 0), vec3(0, 1, 0)), box));
}

TEST(RayBox, NonFiniteInput) {
    const AABB box(vec3(-1), vec3(1));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(NAN, 0, -5), vec3(0, 0, 1)), box.min, box.max));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(0, 0, -5), vec3(0, 0, 1)), vec3(-kInf), vec3(kInf)));
    EXPECT_FALSE(rayIntersectsAABB(Ray(vec3(0, 0, -5), vec3(0, NAN, 1)), box.min, box.max));
    // The upper-case test has no such guard, and an infinite box around the
    // origin contains it.
    EXPECT_TRUE(
        RayIntersectsAABB(Ray(vec3(0, 0, -5), vec3(0, 0, 1)), AABB(vec3(-kInf), vec3(kInf))));
    // Neither hangs or crashes on NaN everywhere.
    RayIntersectsAABB(Ray(vec3(NAN), vec3(NAN)), AABB(vec3(NAN), vec3(NAN)));
    BoundingBox(vec3(NAN), vec3(NAN)).intersects(Ray(vec3(NAN), vec3(NAN)));
}

TEST(RaySphere, NearRootThenFarRootAboveFloor) {
    float t = -1;
    ASSERT_TRUE(RayIntersectsSphere(Ray(vec3(0, 0, -5), vec3(0, 0, 1)), vec3(0), 1.0f, t));
    EXPECT_FLOAT_EQ(t, 4.0f);
    ASSERT_TRUE(RayIntersectsSphere(Ray(vec3(0, 0, -5), vec3(0, 0, 2)), vec3(0), 1.0f, t));
    EXPECT_FLOAT_EQ(t, 2.0f); // units of the direction's length
    ASSERT_TRUE(RayIntersectsSphere(Ray(vec3(0), vec3(0, 0, 1)), vec3(0), 1.0f, t));
    EXPECT_FLOAT_EQ(t, 1.0f); // from inside: the exit
    t = -1;
    EXPECT_FALSE(RayIntersectsSphere(Ray(vec3(0, 0, 5), vec3(0, 0, 1)), vec3(0), 1.0f, t));
    EXPECT_FALSE(RayIntersectsSphere(Ray(vec3(0, 2, -5), vec3(0, 0, 1)), vec3(0), 1.0f, t));
    // From inside, an exit nearer than the 0.001 floor does not count.
    EXPECT_FALSE(RayIntersectsSphere(Ray(vec3(0, 0, 0.5f - 0.0009765625f), vec3(0, 0, 1)), vec3(0),
                                     0.5f, t));
    EXPECT_EQ(t, -1);
    EXPECT_TRUE(
        RayIntersectsSphere(Ray(vec3(0, 0, 0.5f - 0.001953125f), vec3(0, 0, 1)), vec3(0), 0.5f, t));
}

TEST(RayPlane, TwoPlaneTestsDifferInOrderAndLimits) {
    const vec3 n(0, 0, 1), p(0, 0, 0);
    vec3 hit = kUntouched;
    ASSERT_TRUE(IntersectRayWithPlane(Ray(vec3(1, 2, 1001), vec3(0, 0, -1)), n, p, hit));
    EXPECT_EQ(hit, vec3(1, 2, 0));
    // t of 1000 hits, 1001 misses in the point-first variant.
    EXPECT_TRUE(IntersectWithPlane(vec3(1, 2, 1000), vec3(0, 0, -1), p, n, hit));
    hit = kUntouched;
    EXPECT_FALSE(IntersectWithPlane(vec3(1, 2, 1001), vec3(0, 0, -1), p, n, hit));
    EXPECT_EQ(hit, kUntouched);
    // Behind: miss in both. Parallel: miss.
    EXPECT_FALSE(IntersectRayWithPlane(Ray(vec3(0, 0, 1), vec3(0, 0, 1)), n, p, hit));
    EXPECT_FALSE(IntersectWithPlane(vec3(0, 0, 1), vec3(0, 0, 1), p, n, hit));
    EXPECT_FALSE(IntersectRayWithPlane(Ray(vec3(0, 0, 1), vec3(1, 0, 0)), n, p, hit));
    // |denom| of exactly 1e-6: the point-first test goes on, the other rejects.
    const vec3 d(0, 0, -1e-6f);
    EXPECT_FALSE(IntersectRayWithPlane(Ray(vec3(0, 0, 1e-4f), d), n, p, hit));
    EXPECT_TRUE(IntersectWithPlane(vec3(0, 0, 1e-4f), d, p, n, hit));
    // A ray starting on the plane hits at t = 0.
    EXPECT_TRUE(IntersectRayWithPlane(Ray(vec3(3, 3, 0), vec3(0, 1, 1)), n, p, hit));
    EXPECT_EQ(hit, vec3(3, 3, 0));
}

TEST(BoxSphere, TouchingCountsAndRadiusSignIgnored) {
    const AABB box(vec3(0), vec3(1));
    EXPECT_TRUE(AABBIntersectsSphere(box, vec3(0.5f), 0.0f));          // centre inside
    EXPECT_TRUE(AABBIntersectsSphere(box, vec3(1, 0.5f, 0.5f), 0.0f)); // on the surface
    EXPECT_TRUE(AABBIntersectsSphere(box, vec3(2, 0.5f, 0.5f), 1.0f)); // grazing
    EXPECT_FALSE(AABBIntersectsSphere(box, vec3(2, 0.5f, 0.5f), 0.99f));
    EXPECT_TRUE(AABBIntersectsSphere(box, vec3(2, 2, 0.5f), -1.5f));
    EXPECT_FALSE(AABBIntersectsSphere(box, vec3(2, 2, 2), 1.7f)); // sqrt(3) = 1.732
}

TEST(TransformBox, EightCornersWithoutDivide) {
    const AABB box(vec3(0), vec3(1, 2, 3));
    mat4 rotate(0.0f); // 90 degrees about z: x -> y, y -> -x
    rotate[0] = vec4(0, 1, 0, 0);
    rotate[1] = vec4(-1, 0, 0, 0);
    rotate[2] = vec4(0, 0, 1, 0);
    rotate[3] = vec4(10, 0, 0, 1);
    const AABB out = transformAABB(box, rotate);
    EXPECT_EQ(out.min, vec3(8, 0, 0));
    EXPECT_EQ(out.max, vec3(10, 1, 3));
    mat4 projective(1.0f);
    projective[3][3] = 2.0f; // w = 2 is ignored
    EXPECT_EQ(transformAABB(box, projective).max, vec3(1, 2, 3));

    // The extremes of the corners themselves, also where every corner overflows to infinity.
    const float inf = std::numeric_limits<float>::infinity();
    mat4 huge(1e30f);
    huge[3][3] = 1.0f;
    const AABB overflow = transformAABB(AABB(vec3(1e10f), vec3(2e10f)), huge);
    EXPECT_EQ(overflow.min, vec3(inf));
    EXPECT_EQ(overflow.max, vec3(inf));
    const AABB below = transformAABB(AABB(vec3(-2e10f), vec3(-1e10f)), huge);
    EXPECT_EQ(below.min, vec3(-inf));
    EXPECT_EQ(below.max, vec3(-inf));
}

TEST(RayMesh, NearestWinsAndEarliestKeepsATie) {
    std::vector<kvx::nsVertex> v;
    for (vec3 p : {vec3(-1, -1, 0), vec3(1, -1, 0), vec3(0, 1, 0), vec3(-1, -1, -2),
                   vec3(1, -1, -2), vec3(0, 1, -2)})
        v.emplace_back(p, vec3(0, 0, 1));
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    vec3 hit = kUntouched;
    // The far triangle first, then the near one: the near one wins.
    ASSERT_TRUE(IntersectRayWithMesh(ray, v, {3, 4, 5, 0, 1, 2}, mat4(1.0f), hit));
    EXPECT_EQ(hit, vec3(0, 0, 0));
    // The model matrix moves the mesh; the ray stays in world space.
    mat4 lift(1.0f);
    lift[3] = vec4(0, 0, 1, 1);
    ASSERT_TRUE(IntersectRayWithMesh(ray, v, {3, 4, 5, 0, 1, 2}, lift, hit));
    EXPECT_EQ(hit, vec3(0, 0, 1));
    // 5 entries test one triangle; 2 or none test nothing.
    hit = kUntouched;
    ASSERT_TRUE(IntersectRayWithMesh(ray, v, {3, 4, 5, 0, 1}, mat4(1.0f), hit));
    EXPECT_EQ(hit, vec3(0, 0, -2));
    hit = kUntouched;
    EXPECT_FALSE(IntersectRayWithMesh(ray, v, {0, 1}, mat4(1.0f), hit));
    EXPECT_FALSE(IntersectRayWithMesh(ray, v, {}, mat4(1.0f), hit));
    EXPECT_FALSE(
        IntersectRayWithMesh(Ray(vec3(5, 5, 5), vec3(0, 0, -1)), v, {0, 1, 2}, mat4(1.0f), hit));
    EXPECT_EQ(hit, kUntouched);
}
