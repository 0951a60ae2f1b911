#include <korvex/hull.h>

#include <cmath>

namespace meshGeometry {

namespace {

// Below this length the cross product with the y axis is too short to give a
// direction: the view direction lies along y.
constexpr float kParallelLimit = 0.001f;

vec3 scaledToUnit(const vec3& v) {
    return v * (1.0f / glm::length(v));
}

bool isFinite(const vec3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace

std::vector<vec3> convexHullProjected(const std::vector<vec3>& points, const vec3& direction) {
    if (points.size() < 3) return points;

    if (!isFinite(direction)) return {};
    vec3 d = direction;
    float length = glm::length(d);
    if (length == 0.0f || !std::isfinite(length)) {
        // The squares under- or overflowed: bring the largest component to 1
        // first. A direction that is truly zero has no view to give.
        const float largest = glm::max(glm::max(std::fabs(d.x), std::fabs(d.y)), std::fabs(d.z));
        if (largest == 0.0f) return {};
        d /= largest;
        length = glm::length(d);
    }
    const vec3 n = d * (1.0f / length);

    vec3 u = glm::cross(n, vec3(0.0f, 1.0f, 0.0f));
    if (glm::length(u) < kParallelLimit) u = glm::cross(n, vec3(1.0f, 0.0f, 0.0f));
    u = scaledToUnit(u);
    const vec3 v = scaledToUnit(glm::cross(n, u));
    if (!isFinite(u) || !isFinite(v)) return {};

    vec3 c(0.0f);
    for (const vec3& p : points) c += p;
    c /= static_cast<float>(points.size());

    std::vector<vec2> flat;
    flat.reserve(points.size());
    for (const vec3& p : points) flat.emplace_back(glm::dot(p - c, u), glm::dot(p - c, v));

    std::vector<vec3> hull;
    for (const vec2& q : convexHull2D(flat)) hull.push_back(c + q.x * u + q.y * v);
    return hull;
}

} // namespace meshGeometry
