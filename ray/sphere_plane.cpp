#include <korvex/ray.h>

#include <cmath>

bool RayIntersectsSphere(const Ray& ray, const vec3& center, float radius, float& hitDistance) {
    const vec3 oc = ray.origin - center;
    const vec3& d = ray.direction;
    const float a = glm::dot(d, d);
    const float b = 2.0f * glm::dot(oc, d);
    const float c = glm::dot(oc, oc) - radius * radius;
    const float disc = b * b - 4.0f * a * c;
    if (disc < 0.0f) return false;
    const float root = std::sqrt(disc);
    const float tNear = (-b - root) / (2.0f * a);
    const float tFar = (-b + root) / (2.0f * a);
    // From inside the sphere the near root is behind: report the exit.
    if (tNear > 0.001f) {
        hitDistance = tNear;
        return true;
    }
    if (tFar > 0.001f) {
        hitDistance = tFar;
        return true;
    }
    return false;
}

bool IntersectRayWithPlane(const Ray& ray, const vec3& planeNormal, const vec3& planePoint,
                           vec3& hitPoint) {
    const float denom = glm::dot(planeNormal, ray.direction);
    if (!(std::fabs(denom) > 1e-6f)) return false;
    const float t = glm::dot(planePoint - ray.origin, planeNormal) / denom;
    if (!(t >= 0.0f)) return false;
    hitPoint = ray.origin + ray.direction * t;
    return true;
}

bool IntersectWithPlane(const vec3& origin, const vec3& direction, const vec3& planePoint,
                        const vec3& planeNormal, vec3& hitPoint) {
    const float denom = glm::dot(direction, planeNormal);
    if (std::fabs(denom) < 1e-6f) return false;
    const float t = glm::dot(planePoint - origin, planeNormal) / denom;
    if (t < 0.0f || t > 1000.0f) return false;
    hitPoint = origin + direction * t;
    return true;
}
