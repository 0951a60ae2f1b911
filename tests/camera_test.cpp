#include <korvex/camera.h>

#include <gtest/gtest.h>

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>

namespace {

struct Camera {
    mat4 view;
    mat4 projection;
    vec3 eye;
};

Camera lookingDownMinusZ(vec3 eye) {
    return {glm::lookAt(eye, eye + vec3(0, 0, -1), vec3(0, 1, 0)),
            glm::perspective(glm::radians(60.0f), 4.0f / 3.0f, 0.1f, 100.0f), eye};
}

void expectNear(const vec3& a, const vec3& b, float eps) {
    EXPECT_NEAR(a.x, b.x, eps);
    EXPECT_NEAR(a.y, b.y, eps);
    EXPECT_NEAR(a.z, b.z, eps);
}

} // namespace

TEST(Camera, CentrePixelLooksAlongTheViewDirection) {
    const Camera c = lookingDownMinusZ(vec3(1, 2, 3));
    const Ray a = GetRayFromCamera(400, 300, c.view, c.projection, 800, 600);
    expectNear(a.direction, vec3(0, 0, -1), 1e-6f);
    expectNear(a.origin, c.eye, 1e-5f); // starts at the camera

    const Ray b = GetRayFromCamera(400.0, 300.0, c.view, c.projection, 0, 0, 800, 600, true);
    expectNear(b.direction, vec3(0, 0, -1), 1e-5f);
    expectNear(b.origin, c.eye + vec3(0, 0, -0.1f), 1e-4f); // starts on the near plane
    EXPECT_NEAR(glm::length(b.direction), 1.0f, 1e-6f);
}

TEST(Camera, CornerPixelsAndTheFlip) {
    const Camera c = lookingDownMinusZ(vec3(0));
    const mat4 viewProj = c.projection * c.view;
    // Pixel (0, 0) is the top left in the int overload: ndc (-1, 1).
    const Ray topLeft = GetRayFromCamera(0, 0, c.view, c.projection, 800, 600);
    const vec4 clip = viewProj * vec4(topLeft.origin + topLeft.direction * 10.0f, 1.0f);
    EXPECT_NEAR(clip.x / clip.w, -1.0f, 1e-4f);
    EXPECT_NEAR(clip.y / clip.w, 1.0f, 1e-4f);
    EXPECT_NEAR(glm::length(topLeft.direction), 1.0f, 1e-6f);

    // The double overload relative to a viewport at (100, 50); flip decides
    // whether its top row is ndc y 1 or -1.
    for (bool flip : {true, false}) {
        const Ray r = GetRayFromCamera(100.0, 50.0, c.view, c.projection, 100, 50, 400, 300, flip);
        const vec4 q = viewProj * vec4(r.origin + r.direction * 10.0f, 1.0f);
        EXPECT_NEAR(q.x / q.w, -1.0f, 1e-4f);
        EXPECT_NEAR(q.y / q.w, flip ? 1.0f : -1.0f, 1e-4f);
    }
}

TEST(Camera, ScreenToWorldRayTakesProjectionFirst) {
    // With the camera at the world origin both formulas agree.
    const Camera c = lookingDownMinusZ(vec3(0));
    const mat4 turn = glm::rotate(mat4(1.0f), 0.7f, vec3(0, 1, 0)) * c.view;
    const vec3 d = ScreenToWorldRay(123, 456, c.projection, turn, 800, 600);
    const Ray r = GetRayFromCamera(123, 456, turn, c.projection, 800, 600);
    expectNear(d, r.direction, 1e-5f);
    // Swapping the matrices gives another answer.
    const vec3 swapped = ScreenToWorldRay(123, 456, turn, c.projection, 800, 600);
    EXPECT_GT(glm::length(swapped - d), 1e-3f);
    // Away from the origin the camera's translation leaks in through eye.w.
    const Camera moved = lookingDownMinusZ(vec3(5, 0, 0));
    const vec3 m = ScreenToWorldRay(400, 300, moved.projection, moved.view, 800, 600);
    EXPECT_GT(glm::length(m - vec3(0, 0, -1)), 1e-3f);
}

TEST(Camera, ProjectionRoundTripsAndTheWGuard) {
    const Camera c = lookingDownMinusZ(vec3(0.5f, -1, 4));
    const vec3 world = meshGeometry::unProjectToWorld(200.0, 150.0, c.projection, c.view, 800, 600);
    const vec2 back = meshGeometry::projectToScreen(world, c.view, c.projection, 800, 600);
    EXPECT_NEAR(back.x, 200.0f, 1e-2f);
    EXPECT_NEAR(back.y, 150.0f, 1e-2f);
    const vec3 same =
        meshGeometry::convertScreenToWorld(200.0, 150.0, c.view, c.projection, 800, 600);
    expectNear(same, world, 1e-4f);

    const vec3 p(1, 1, -2);
    const vec2 a = meshGeometry::ProjectWorldToScreen(p, c.view, c.projection, vec2(800, 600));
    const vec2 b = meshGeometry::WorldToScreen(p, c.view, c.projection, ImVec2(800, 600));
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, meshGeometry::projectToScreen(p, c.view, c.projection, 800, 600));

    // A point on the camera plane has clip.w = 0: only WorldToScreen guards it.
    const vec3 onPlane = c.eye + vec3(1, 0, 0);
    EXPECT_EQ(meshGeometry::WorldToScreen(onPlane, c.view, c.projection, ImVec2(800, 600)),
              vec2(-10000.0f));
    const vec2 raw =
        meshGeometry::ProjectWorldToScreen(onPlane, c.view, c.projection, vec2(800, 600));
    EXPECT_FALSE(std::isfinite(raw.x));
}

TEST(Camera, ScreenToWorldFlipsYFromTheTop) {
    // height - y in double versus float: both flip y from the top.
    const Camera c = lookingDownMinusZ(vec3(0));
    const vec3 top = meshGeometry::convertScreenToWorld(400.0, 0.0, c.view, c.projection, 800, 600);
    const vec3 bottom =
        meshGeometry::convertScreenToWorld(400.0, 600.0, c.view, c.projection, 800, 600);
    EXPECT_GT(top.y, bottom.y);
}
