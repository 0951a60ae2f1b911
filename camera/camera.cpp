#include <korvex/camera.h>

#include <glm/gtc/matrix_transform.hpp>
#include <imgui.h>

namespace {

vec3 normalizeByInverseLength(const vec3& v) {
    return v * (1.0f / glm::length(v));
}

vec2 ndcOfPixel(int x, int y, int width, int height) {
    const float fx = static_cast<float>(x), fy = static_cast<float>(y);
    return vec2((fx + fx) / static_cast<float>(width) - 1.0f,
                1.0f - (fy + fy) / static_cast<float>(height));
}

vec2 projectWithSize(const vec3& point, const mat4& view, const mat4& projection, float width,
                     float height) {
    const vec4 clip = (projection * view) * vec4(point, 1.0f);
    const float sx = (clip.x / clip.w * 0.5f + 0.5f) * width;
    const float sy = (1.0f - (clip.y / clip.w * 0.5f + 0.5f)) * height;
    return vec2(sx, sy);
}

vec3 unprojectMidDepth(float x, float flippedY, const mat4& view, const mat4& projection, int width,
                       int height) {
    const vec4 viewport(0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height));
    return glm::unProjectNO(vec3(x, flippedY, 0.5f), view, projection, viewport);
}

} // namespace

Ray GetRayFromCamera(int x, int y, const mat4& view, const mat4& projection, int width,
                     int height) {
    const vec2 ndc = ndcOfPixel(x, y, width, height);
    const vec4 eye = glm::inverse(projection) * vec4(ndc.x, ndc.y, -1.0f, 1.0f);
    const mat4 invView = glm::inverse(view);
    const vec4 world = invView * vec4(eye.x, eye.y, -1.0f, 0.0f);
    Ray ray;
    ray.direction = normalizeByInverseLength(vec3(world));
    ray.origin = vec3(invView[3]);
    return ray;
}

Ray GetRayFromCamera(double x, double y, const mat4& view, const mat4& projection, int viewportLeft,
                     int viewportTop, int viewportWidth, int viewportHeight, bool flipY) {
    const double u = (x - viewportLeft) / viewportWidth;
    const double v = (y - viewportTop) / viewportHeight;
    const float ndcX = static_cast<float>(u + u - 1.0);
    const float ndcY = static_cast<float>(flipY ? 1.0 - (v + v) : v + v - 1.0);
    const mat4 inv = glm::inverse(projection * view);
    vec4 nearPoint = inv * vec4(ndcX, ndcY, -1.0f, 1.0f);
    vec4 farPoint = inv * vec4(ndcX, ndcY, 1.0f, 1.0f);
    nearPoint /= nearPoint.w;
    farPoint /= farPoint.w;
    Ray ray;
    ray.origin = vec3(nearPoint);
    ray.direction = normalizeByInverseLength(vec3(farPoint) - vec3(nearPoint));
    return ray;
}

vec3 ScreenToWorldRay(int x, int y, const mat4& projection, const mat4& view, int width,
                      int height) {
    const vec2 ndc = ndcOfPixel(x, y, width, height);
    const vec4 eye = glm::inverse(projection) * vec4(ndc.x, ndc.y, -1.0f, 1.0f);
    // eye.w is kept: the camera's translation enters in proportion to it.
    const vec4 world = glm::inverse(view) * vec4(eye.x, eye.y, -1.0f, eye.w);
    return normalizeByInverseLength(vec3(world));
}

namespace meshGeometry {

vec2 projectToScreen(const vec3& point, const mat4& view, const mat4& projection, int width,
                     int height) {
    return projectWithSize(point, view, projection, static_cast<float>(width),
                           static_cast<float>(height));
}

vec2 ProjectWorldToScreen(const vec3& point, const mat4& view, const mat4& projection,
                          const vec2& screenSize) {
    return projectWithSize(point, view, projection, screenSize.x, screenSize.y);
}

vec2 WorldToScreen(const vec3& point, const mat4& view, const mat4& projection,
                   const ImVec2& screenSize) {
    const vec4 clip = (projection * view) * vec4(point, 1.0f);
    if (clip.w == 0.0f) return vec2(-10000.0f, -10000.0f);
    return projectWithSize(point, view, projection, screenSize.x, screenSize.y);
}

vec3 convertScreenToWorld(double x, double y, const mat4& view, const mat4& projection, int width,
                          int height) {
    const float flippedY = static_cast<float>(static_cast<double>(height) - y);
    return unprojectMidDepth(static_cast<float>(x), flippedY, view, projection, width, height);
}

vec3 unProjectToWorld(double x, double y, mat4 projection, mat4 view, int width, int height) {
    const float flippedY = static_cast<float>(height) - static_cast<float>(y);
    return unprojectMidDepth(static_cast<float>(x), flippedY, view, projection, width, height);
}

} // namespace meshGeometry
