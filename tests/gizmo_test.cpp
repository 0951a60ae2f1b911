// Gizmo handles: the cube table and its order, the ring scoring.
#include <korvex/gizmo.h>
#include <korvex/rings.h>

#include <gtest/gtest.h>

#include <random>

namespace {
const vec3 kCamera200(0, 0, 200); // 200 from the origin: one gizmo unit is 1
}

TEST(GizmoCubes, TableOfOffsetsOneSizeForAllAndTableOrder) {
    const vec3 down(0, 0, -1), left(-1, 0, 0), o(0.0f);
    const std::pair<Ray, int> cases[] = {
        // The x cube: centre (20, 0, 0), x 17.5..22.5, y -5..5.
        {Ray(vec3(17.6f, 4.9f, 100), down), 0},
        {Ray(vec3(17.4f, 0, 100), down), -1},
        {Ray(vec3(20, 5.1f, 100), down), -1},
        // The y cube is not turned: x -2.5..2.5, y 17.5..22.5.
        {Ray(vec3(2.4f, 22.4f, 100), down), 1},
        {Ray(vec3(2.6f, 20, 100), down), -1},
        // The z cube seen from the side, y reaching 5.
        {Ray(vec3(100, 4.9f, 20), left), 2},
        {Ray(vec3(100, 4.9f, 17.4f), left), -1},
        // Through the y cube and then the x cube: x, first in the table; through z, then y: y.
        {Ray(vec3(-10, 30, 0), glm::normalize(vec3(1, -1, 0))), 0},
        {Ray(vec3(0, -10, 30), glm::normalize(vec3(0, 1, -1))), 1},
        // A ray starting inside a cube picks it, whatever its direction.
        {Ray(vec3(0, 0, 20), vec3(0, 1, 0)), 2},
    };
    for (const auto& [ray, code] : cases)
        EXPECT_EQ(traceGuizmoCubes(ray, o, kCamera200), code)
            << ray.origin.x << "," << ray.origin.y << "," << ray.origin.z;
    // Moved with the gizmo centre; sized with the camera distance (unit 2: x 35..45); with the
    // camera at the centre every box collapses to the centre point.
    const vec3 c(100, -50, 3);
    EXPECT_EQ(traceGuizmoCubes(Ray(c + vec3(20, 0, 100), down), c, c + vec3(0, 200, 0)), 0);
    EXPECT_EQ(traceGuizmoCubes(Ray(vec3(39, 0, 100), down), o, kCamera200), -1);
    EXPECT_EQ(traceGuizmoCubes(Ray(vec3(39, 0, 100), down), o, vec3(0, 0, 400)), 0);
    EXPECT_EQ(traceGuizmoCubes(Ray(vec3(1, 1, 5), down), o, o), -1);
}

TEST(GizmoRings, LowestScoreWinsAndTiesKeepTheEarlierAxis) {
    const bool all[3] = {true, true, true};
    // Along (-1, -1, 0) at height 1: both the x and y planes are met at
    // (0, 0, 1), exactly on both rings, at the same t: a tie.
    const Ray diagonal(vec3(3, 3, 1), glm::normalize(vec3(-1, -1, 0)));
    EXPECT_EQ(traceRotateGuizmoRings(diagonal, vec3(0.0f), 1.0f, 0.1f, all), 0);
    const bool noX[3] = {false, true, true};
    EXPECT_EQ(traceRotateGuizmoRings(diagonal, vec3(0.0f), 1.0f, 0.1f, noX), 1);
    const bool none[3] = {false, false, false};
    EXPECT_EQ(traceRotateGuizmoRings(diagonal, vec3(0.0f), 1.0f, 0.1f, none), -1);
    EXPECT_EQ(traceRotateGuizmoRings(diagonal, vec3(0.0f), 1.0f, 0.1f, nullptr), -1);

    // A score of 99999 or more never counts.
    const Ray far(vec3(1, 0, 1e7f), vec3(0, 0, -1));
    EXPECT_EQ(traceRotateGuizmoRings(far, vec3(0.0f), 1.0f, 0.1f, all), -1);
    EXPECT_EQ(
        traceRotateGuizmoRings(Ray(vec3(1, 0, 1e5f), vec3(0, 0, -1)), vec3(0.0f), 1.0f, 0.1f, all),
        2);
}

TEST(GizmoRings, AgreesWithTheTorusScoresOnRandomRays) {
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const vec3 centre(0.5f, -1.0f, 2.0f);
    const vec3 axes[3] = {vec3(1, 0, 0), vec3(0, 1, 0), vec3(0, 0, 1)};
    int picked[4] = {0, 0, 0, 0};
    for (int i = 0; i < 3000; ++i) {
        const vec3 from = centre + glm::normalize(vec3(unit(rng), unit(rng), unit(rng))) * 5.0f;
        const vec3 to = centre + vec3(unit(rng), unit(rng), unit(rng)) * 1.2f;
        const Ray ray(from, glm::normalize(to - from));
        const bool enabled[3] = {rng() % 4 != 0, rng() % 4 != 0, rng() % 4 != 0};
        int expected = -1;
        float best = 99999.0f;
        for (int a = 0; a < 3; ++a) {
            float score;
            if (enabled[a] &&
                IntersectRayWithTorusApprox(ray.origin, ray.direction, centre, axes[a], 1.0f, 0.15f,
                                            &score) &&
                score < best) {
                best = score;
                expected = a;
            }
        }
        const int got = traceRotateGuizmoRings(ray, centre, 1.0f, 0.15f, enabled);
        ASSERT_EQ(got, expected) << i;
        ++picked[got + 1];
    }
    for (int count : picked) EXPECT_GT(count, 50);
}
