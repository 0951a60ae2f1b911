// The library's one ray-triangle test, inline so that the BVH's leaf loop can
// run it without a call per triangle. RayIntersectsTriangle is this function.
#pragma once

#include <korvex/records.h>

namespace korvex_detail {

// Moller-Trumbore, two-sided. The comparisons are written so that a NaN
// anywhere falls through to the final t test and misses there.
inline bool mollerTrumbore(const Ray& ray, const vec3& p0, const vec3& p1, const vec3& p2,
                           vec3& hitPoint, float& hitDistance) {
    const vec3& d = ray.direction;
    const vec3 e1 = p1 - p0;
    const vec3 e2 = p2 - p0;
    const vec3 h = glm::cross(d, e2);
    const float a = glm::dot(e1, h);
    if (a > -1e-6f && a < 1e-6f) return false; // parallel to the plane
    const float f = 1.0f / a;
    const vec3 s = ray.origin - p0;
    const float u = f * glm::dot(s, h);
    if (u < 0.0f || u > 1.0f) return false;
    const vec3 q = glm::cross(s, e1);
    const float v = f * glm::dot(d, q);
    if (v < 0.0f || u + v > 1.0f) return false;
    const float t = f * glm::dot(e2, q);
    if (!(t > 1e-6f)) return false;
    hitDistance = t;
    hitPoint = ray.origin + d * t;
    return true;
}

} // namespace korvex_detail
