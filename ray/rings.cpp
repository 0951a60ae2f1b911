#include <korvex/rings.h>

#include <cmath>

namespace {

inline vec3 normalizedByInverseLength(const vec3& v) {
    return v * (1.0f / glm::length(v));
}

} // namespace

bool IntersectRayWithCircle(vec3 origin, vec3 direction, vec3 center, vec3 normal,
                            float innerRadius, float outerRadius) {
    direction = normalizedByInverseLength(direction);
    normal = normalizedByInverseLength(normal);
    const float denom = glm::dot(direction, normal);
    if (std::fabs(denom) < 0.0001f) return false;
    float t = glm::dot(center - origin, normal) / denom;
    // A plane behind the origin is folded forward rather than rejected.
    if (t < 0.0f) t = std::fabs(t);
    const vec3 p = origin + direction * t - center;
    const float r = glm::length(p);
    return innerRadius <= r && r <= outerRadius;
}

bool IntersectRayWithCirclePrecise(const vec3& origin, const vec3& direction, const vec3& center,
                                   const vec3& normal, float innerRadius, float outerRadius,
                                   float* distance) {
    const vec3 n = normalizedByInverseLength(normal);
    const float denom = glm::dot(direction, n);
    if (std::fabs(denom) < 1e-6f) return false;
    if (denom > 0.0f) return false; // only from the side the normal faces
    const float t = glm::dot(center - origin, n) / denom;
    if (t < 0.0f) return false;
    const vec3 p = origin + direction * t - center;
    const float r = glm::length(p);
    if (!(innerRadius <= r && r <= outerRadius)) return false;
    if (distance) *distance = t;
    return true;
}

bool IntersectRayWithTorusApprox(const vec3& origin, const vec3& direction, const vec3& center,
                                 const vec3& axis, float ringRadius, float tolerance,
                                 float* score) {
    const vec3 n = normalizedByInverseLength(axis);
    const float denom = glm::dot(direction, n);
    if (std::fabs(denom) < 1e-6f) return false;
    const float t = glm::dot(center - origin, n) / denom;
    if (t < 0.0f) return false;
    const vec3 p = origin + direction * t - center;
    // Distance from the axis: the part of p along the axis removed.
    const float h = glm::dot(p, n);
    const float r = glm::length(p - n * h);
    const float offRing = std::fabs(r - ringRadius);
    if (!(offRing <= tolerance)) return false;
    // Off the ring counts in full, along the ray one hundredth.
    if (score) *score = t * 0.01f + offRing;
    return true;
}

bool IntersectRayWithArc(const vec3& origin, const vec3& direction, const vec3& center,
                         const vec3& normal, const vec3& startDirection, float sweepAngle,
                         float ringRadius, float halfWidth, float* distance) {
    const float denom = glm::dot(direction, normal);
    if (std::fabs(denom) < 1e-6f) return false;
    const float t = glm::dot(center - origin, normal) / denom;
    if (t < 0.0f) return false;
    const vec3 p = origin + direction * t - center;
    const float r = glm::length(p);
    if (!(ringRadius - halfWidth <= r && r <= ringRadius + halfWidth)) return false;

    const vec3 u = p / r;
    float cosine = glm::dot(u, startDirection);
    if (cosine < -1.0f) cosine = -1.0f;
    if (cosine > 1.0f) cosine = 1.0f;
    const float a = std::acos(cosine);
    // The side of the start direction, by the right-hand rule about n.
    const float side = glm::dot(glm::cross(startDirection, u), normal);
    const float angle = side < 0.0f ? -a : a;
    if (angle < 0.0f || angle > sweepAngle) return false;
    if (distance) *distance = t;
    return true;
}
