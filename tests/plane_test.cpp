#include <korvex/plane.h>

#include <gtest/gtest.h>

#include <cmath>

TEST(Plane, ClosestAxisSwitchesAtPointNine) {
    EXPECT_EQ(closestAxis(vec3(0, 1, 0)), vec3(1, 0, 0));
    EXPECT_EQ(closestAxis(vec3(1, 0, 0)), vec3(0, 1, 0));
    EXPECT_EQ(closestAxis(vec3(0, 0.9f, 0)), vec3(1, 0, 0));
    EXPECT_EQ(closestAxis(vec3(0, -0.9f, 0)), vec3(1, 0, 0));
    EXPECT_EQ(closestAxis(vec3(5, 0.89f, 5)), vec3(0, 1, 0));
}

TEST(Plane, BasisIsRightHandedForUnitNormals) {
    vec3 u, v;
    buildPlaneBasis(vec3(0, 0, 1), u, v);
    EXPECT_EQ(u, vec3(1, 0, 0));
    EXPECT_EQ(v, vec3(0, 1, 0));
    buildPlaneBasis(vec3(0, 1, 0), u, v);
    EXPECT_EQ(u, vec3(0, 0, 1));
    EXPECT_EQ(v, vec3(1, 0, 0));
    const vec3 n = glm::normalize(vec3(1, 2, 3));
    buildPlaneBasis(n, u, v);
    EXPECT_NEAR(glm::dot(u, n), 0.0f, 1e-6f);
    EXPECT_NEAR(glm::dot(v, n), 0.0f, 1e-6f);
    EXPECT_NEAR(glm::length(glm::cross(u, v) - n), 0.0f, 1e-6f);

    // The placing and worldToUV are inverses.
    const vec3 origin(1, -2, 0.5f);
    const vec3 p = origin + 3.0f * u - 2.0f * v;
    const vec2 uv = worldToUV(p, origin, u, v);
    EXPECT_NEAR(uv.x, 3.0f, 1e-5f);
    EXPECT_NEAR(uv.y, -2.0f, 1e-5f);
}

TEST(Plane, SegmentCutHandlesEndsOnThePlane) {
    const vec3 p(0, 0, 0), n(0, 0, 1);
    vec3 r(7, 7, 7);
    EXPECT_FALSE(intersectSegmentPlane(vec3(0, 0, 1), vec3(1, 0, 2), p, n, r, 0.0f));
    EXPECT_EQ(r, vec3(7, 7, 7)); // untouched on a miss

    EXPECT_TRUE(intersectSegmentPlane(vec3(0, 0, -1), vec3(2, 0, 3), p, n, r, 0.0f));
    EXPECT_EQ(r, vec3(0.5f, 0, 0));

    // Both ends within tolerance: the midpoint.
    EXPECT_TRUE(intersectSegmentPlane(vec3(0, 0, 0.01f), vec3(2, 0, -0.01f), p, n, r, 0.01f));
    EXPECT_EQ(r, vec3(1, 0, 0));
    // Tolerance 0 and an end exactly on the plane: that end.
    EXPECT_TRUE(intersectSegmentPlane(vec3(4, 0, 1), vec3(3, 1, 0), p, n, r, 0.0f));
    EXPECT_EQ(r, vec3(3, 1, 0));
    EXPECT_TRUE(intersectSegmentPlane(vec3(3, 2, 0), vec3(4, 0, 1), p, n, r, 0.0f));
    EXPECT_EQ(r, vec3(3, 2, 0));
    // A distance of exactly the tolerance is on the plane.
    EXPECT_TRUE(intersectSegmentPlane(vec3(5, 0, 0.5f), vec3(6, 0, 2), p, n, r, 0.5f));
    EXPECT_EQ(r, vec3(5, 0, 0.5f));
    EXPECT_FLOAT_EQ(signedDistToPlane(vec3(0, 0, -3), p, n), -3.0f);
}

TEST(Plane, PolylineDistanceIsOpenAndSkipsRepeats) {
    const float far = 3.4028235e38f;
    EXPECT_EQ(distPointPolylineSq(vec2(0), {}), far);
    EXPECT_EQ(distPointPolylineSq(vec2(0), {vec2(1, 1)}), far);
    EXPECT_EQ(distPointPolylineSq(vec2(0), {vec2(1, 1), vec2(1, 1)}), far);
    const std::vector<vec2> l = {vec2(0, 0), vec2(4, 0), vec2(4, 0), vec2(4, 4)};
    EXPECT_FLOAT_EQ(distPointPolylineSq(vec2(2, 1), l), 1.0f);
    EXPECT_FLOAT_EQ(distPointPolylineSq(vec2(6, 5), l), 5.0f); // clamped to the end
    // Not closed: (0, 4) is 4 away from the open polyline, not 0 from a closing edge.
    EXPECT_FLOAT_EQ(distPointPolylineSq(vec2(0, 4), l), 16.0f);
    EXPECT_FLOAT_EQ(distPointPolylineSq(vec2(0, 2), l), 4.0f);
}

TEST(Plane, PointEqualityAndCanonicalEdges) {
    EXPECT_FALSE(EqualVec3(vec3(1), vec3(1), 0.0f));
    EXPECT_TRUE(EqualVec3(vec3(0), vec3(0.3f, 0.4f, 0), 0.51f));
    EXPECT_FALSE(EqualVec3(vec3(0), vec3(0.3f, 0.4f, 0), 0.5f));
    // Per axis the points are close, but the Euclidean distance is not.
    EXPECT_FALSE(EqualVec3(vec3(0), vec3(0.4f, 0.4f, 0.4f), 0.5f));

    Edge e = MakeEdge(vec3(1, 0, 0), vec3(0, 5, 5));
    EXPECT_EQ(e.a, vec3(0, 5, 5));
    e = MakeEdge(vec3(1, 2, 3), vec3(1, 2, 2));
    EXPECT_EQ(e.a, vec3(1, 2, 2));
    EXPECT_EQ(e.b, vec3(1, 2, 3));
    e = MakeEdge(vec3(1, 1, 0), vec3(1, 2, -5));
    EXPECT_EQ(e.a, vec3(1, 1, 0));
    const Edge kept(vec3(2, 2, 2), vec3(2, 2, 2));
    e = MakeEdge(kept.a, kept.b);
    EXPECT_EQ(e.a, kept.a);
}
