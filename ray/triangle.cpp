#include <korvex/ray.h>

#include "ray/moller_trumbore.h"

using korvex_detail::mollerTrumbore;

bool RayIntersectsTriangle(const Ray& ray, const vec3& p0, const vec3& p1, const vec3& p2,
                           vec3& hitPoint, float& hitDistance) {
    return mollerTrumbore(ray, p0, p1, p2, hitPoint, hitDistance);
}

bool RayIntersectsTriangle(const Ray& ray, const vec3& p0, const vec3& p1, const vec3& p2,
                           vec3& hitPoint, float& hitDistance, bool /*flag*/) {
    return mollerTrumbore(ray, p0, p1, p2, hitPoint, hitDistance);
}
