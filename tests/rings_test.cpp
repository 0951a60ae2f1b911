// The four ring tests, one difference of theirs at a time.
#include <korvex/rings.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

const vec3 kCentre(0.0f), kUp(0.0f, 0.0f, 1.0f), kStart(1.0f, 0.0f, 0.0f);
constexpr float kPi = 3.14159265358979f;

bool circle(const vec3& o, const vec3& d, float inner, float outer, vec3 n = kUp) {
    return IntersectRayWithCircle(o, d, kCentre, n, inner, outer);
}
bool precise(const vec3& o, const vec3& d, float inner, float outer, float* t = nullptr,
             vec3 n = kUp) {
    return IntersectRayWithCirclePrecise(o, d, kCentre, n, inner, outer, t);
}
bool torus(const vec3& o, const vec3& d, float radius, float tol, float* score = nullptr,
           vec3 n = kUp) {
    return IntersectRayWithTorusApprox(o, d, kCentre, n, radius, tol, score);
}
bool arc(const vec3& o, const vec3& d, float sweep, float radius, float half, float* t = nullptr,
         vec3 n = kUp) {
    return IntersectRayWithArc(o, d, kCentre, n, kStart, sweep, radius, half, t);
}

} // namespace

TEST(Rings, RadialLimitsAreInclusive) {
    // Straight down onto (2, 0, 0): r is exactly 2.
    const vec3 o(2, 0, 5), d(0, 0, -1);
    EXPECT_TRUE(circle(o, d, 2.0f, 3.0f) && circle(o, d, 1.0f, 2.0f));
    EXPECT_FALSE(circle(o, d, 2.001f, 3.0f));
    EXPECT_TRUE(precise(o, d, 2.0f, 3.0f) && precise(o, d, 1.0f, 2.0f));
    EXPECT_FALSE(precise(o, d, 1.0f, 1.999f));
    EXPECT_TRUE(torus(o, d, 2.5f, 0.5f));
    EXPECT_FALSE(torus(o, d, 2.5f, 0.49f));
    EXPECT_TRUE(arc(o, d, 1.0f, 2.5f, 0.5f) && arc(o, d, 1.0f, 1.5f, 0.5f));
    EXPECT_FALSE(arc(o, d, 1.0f, 1.5f, 0.49f));
    // Through the centre along the normal: r = 0.
    const vec3 top(0, 0, 5);
    EXPECT_TRUE(circle(top, d, 0.0f, 1.0f) && precise(top, d, -1.0f, 1.0f));
    EXPECT_FALSE(circle(top, d, 0.1f, 1.0f));
    EXPECT_TRUE(torus(top, d, 0.1f, 0.1f));
    EXPECT_FALSE(torus(top, d, 0.2f, 0.1f));
}

TEST(Rings, OutputsOnAHit) {
    // A direction of length 2: t is in its units, and only the circle
    // normalises it. The circle has no output.
    const vec3 o(2, 0, 10), d(0, 0, -2);
    float t = -1.0f;
    EXPECT_TRUE(precise(o, d, 1.0f, 3.0f, &t));
    EXPECT_EQ(t, 5.0f);
    t = -1.0f;
    EXPECT_TRUE(arc(o, d, 1.0f, 2.0f, 0.5f, &t));
    EXPECT_EQ(t, 5.0f);

    // Torus score: t / 100 plus the distance from the ring.
    float score = -1.0f;
    EXPECT_TRUE(torus(vec3(2, 0, 100), vec3(0, 0, -1), 2.0f, 0.1f, &score));
    EXPECT_FLOAT_EQ(score, 1.0f);
    EXPECT_TRUE(torus(vec3(2.5f, 0, 10), vec3(0, 0, -1), 2.0f, 0.5f, &score));
    EXPECT_FLOAT_EQ(score, 0.6f);
    EXPECT_TRUE(torus(vec3(2.5f, 0, 10), vec3(0, 0, -2), 2.0f, 0.5f, &score));
    EXPECT_FLOAT_EQ(score, 0.55f); // half the t with a doubled direction

    // A miss writes nothing; a null pointer changes nothing.
    t = score = -1.0f;
    EXPECT_FALSE(precise(o, d, 3.0f, 4.0f, &t) || arc(o, d, 1.0f, 4.0f, 0.5f, &t) ||
                 torus(o, d, 4.0f, 0.5f, &score));
    EXPECT_EQ(t, -1.0f);
    EXPECT_EQ(score, -1.0f);
    EXPECT_TRUE(precise(o, d, 1.0f, 3.0f, nullptr) && torus(o, d, 2.0f, 0.5f, nullptr) &&
                arc(o, d, 1.0f, 2.0f, 0.5f, nullptr));
}

TEST(Rings, ParallelLimits) {
    // |denom| 5e-5, half the circle's limit: the hit lies at (20, 0, 0).
    const vec3 o(0, 0, 1e-3f), d(1.0f, 0, -5e-5f);
    EXPECT_FALSE(circle(o, d, 19.0f, 21.0f));
    EXPECT_TRUE(precise(o, d, 19.0f, 21.0f));
    EXPECT_TRUE(torus(o, d, 20.0f, 1.0f));
    EXPECT_TRUE(arc(o, d, 0.5f, 20.0f, 1.0f));
    // Exactly at the circle's limit it goes on (1 + 1e-8 rounds to 1, so the
    // direction is unit already).
    EXPECT_TRUE(circle(vec3(0, 0, 2e-3f), vec3(1.0f, 0, -1e-4f), 19.0f, 21.0f));

    // Exactly 1e-6 goes on, just below misses, in the three others.
    const vec3 far(0, 0, 1e-5f), at(1, 0, -1e-6f), below(1, 0, -0.9e-6f);
    EXPECT_TRUE(precise(far, at, 9.0f, 11.0f) && torus(far, at, 10.0f, 1.0f) &&
                arc(far, at, 0.5f, 10.0f, 1.0f));
    EXPECT_FALSE(precise(far, below, 9.0f, 12.0f) || torus(far, below, 11.0f, 2.0f) ||
                 arc(far, below, 0.5f, 11.0f, 2.0f));
    // In the plane, and with a zero direction: a miss everywhere.
    for (const vec3& dir : {vec3(1, 0, 0), vec3(0.0f)})
        EXPECT_FALSE(
            circle(vec3(0.0f), dir, 0.0f, 100.0f) || precise(vec3(0.0f), dir, 0.0f, 100.0f) ||
            torus(vec3(0.0f), dir, 0.0f, 100.0f) || arc(vec3(0.0f), dir, 7.0f, 0.0f, 100.0f));
}

TEST(Rings, OnlyTheArcUsesItsNormalUnnormalised) {
    // A short normal shrinks the arc's denominator below 1e-6; the others
    // normalise it first.
    const vec3 o(2, 0, 5), d(0, 0, -5e-4f), shortNormal(0, 0, 1e-3f);
    EXPECT_FALSE(arc(o, d, 1.0f, 2.0f, 0.5f, nullptr, shortNormal));
    EXPECT_TRUE(torus(o, d, 2.0f, 0.5f, nullptr, shortNormal));
    EXPECT_TRUE(precise(o, d, 1.0f, 3.0f, nullptr, shortNormal));
    EXPECT_TRUE(circle(o, d, 1.0f, 3.0f, shortNormal));
    // A long normal does not change where the arc's ray meets the plane.
    float t = 0.0f;
    EXPECT_TRUE(arc(o, d, 1.0f, 2.0f, 0.5f, &t, vec3(0, 0, 4)));
    EXPECT_EQ(t, 10000.0f);
}

TEST(Rings, SideOfThePlaneAndPlanesBehind) {
    // From below, running along the normal: only the precise circle refuses.
    const vec3 below(2, 0, -5), up(0, 0, 1);
    EXPECT_TRUE(circle(below, up, 1.0f, 3.0f));
    EXPECT_FALSE(precise(below, up, 1.0f, 3.0f));
    EXPECT_TRUE(precise(below, up, 1.0f, 3.0f, nullptr, -kUp));
    EXPECT_TRUE(torus(below, up, 2.0f, 0.1f));
    EXPECT_TRUE(arc(below, up, 1.0f, 2.0f, 0.1f));

    // The plane behind the origin: t = -5. The circle folds it to +5 and
    // tests the mirrored point (3, 0, 10), r = sqrt(109), not the plane's (3, 0, 0).
    const vec3 o(3, 0, 5), away(0, 0, 1);
    EXPECT_TRUE(circle(o, away, 10.4f, 10.5f));
    EXPECT_FALSE(circle(o, away, 2.9f, 3.1f));
    EXPECT_FALSE(precise(o, away, 0.0f, 100.0f, nullptr, -kUp));
    EXPECT_FALSE(torus(o, away, 3.0f, 100.0f));
    EXPECT_FALSE(arc(o, away, 7.0f, 3.0f, 100.0f));
}

TEST(Rings, ArcAngles) {
    const vec3 down(0, 0, -1);
    // Exactly at the start direction: angle 0, a hit even for sweep 0.
    EXPECT_TRUE(arc(vec3(2, 0, 5), down, 0.0f, 2.0f, 0.1f));
    // A quarter turn positive about +z is (0, 2, 0).
    EXPECT_TRUE(arc(vec3(0, 2, 5), down, kPi / 2.0f, 2.0f, 0.1f));
    EXPECT_FALSE(arc(vec3(0, 2, 5), down, kPi / 2.0f - 0.01f, 2.0f, 0.1f));
    // A quarter turn negative misses whatever the sweep.
    EXPECT_FALSE(arc(vec3(0, -2, 5), down, 2.0f * kPi, 2.0f, 0.1f));
    // Flipping the normal flips the turn.
    EXPECT_TRUE(arc(vec3(0, -2, 5), vec3(0, 0, 1) * -1.0f, kPi / 2.0f, 2.0f, 0.1f, nullptr, -kUp));
    // Beyond the half turn the angle is negative: a sweep of 2 pi stops at pi.
    const float c = std::cos(1.2f * kPi) * 2.0f, s = std::sin(1.2f * kPi) * 2.0f;
    EXPECT_FALSE(arc(vec3(c, s, 5), down, 2.0f * kPi, 2.0f, 0.1f));
    const float c2 = std::cos(0.8f * kPi) * 2.0f, s2 = std::sin(0.8f * kPi) * 2.0f;
    EXPECT_TRUE(arc(vec3(c2, s2, 5), down, 2.0f * kPi, 2.0f, 0.1f));
    EXPECT_FALSE(arc(vec3(c2, s2, 5), down, 0.7f * kPi, 2.0f, 0.1f));
}
