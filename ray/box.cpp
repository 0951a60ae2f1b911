#include <korvex/ray.h>

#include <cmath>
#include <limits>
#include <utility>

namespace {

// min and max with the operand order fixed: a NaN operand yields the second.
inline float minOf(float p, float q) {
    return p < q ? p : q;
}
inline float maxOf(float p, float q) {
    return p > q ? p : q;
}

inline bool isFinite(float v) {
    return !std::isnan(v) && !std::isinf(v);
}

// The slab test shared by the two normalising box tests.
inline bool forwardRayHitsBox(const Ray& ray, const vec3& boxMin, const vec3& boxMax,
                              bool rejectNonFinite) {
    const float len = glm::length(ray.direction);
    if (len < 1e-6f) return false;
    const vec3 d = ray.direction * (1.0f / len);
    const vec3& o = ray.origin;

    float nearT[3], farT[3];
    for (int i = 0; i < 3; ++i) {
        // A component this small is treated as parallel: +inf, whatever its sign.
        const float inv =
            std::fabs(d[i]) > 1e-6f ? 1.0f / d[i] : std::numeric_limits<float>::infinity();
        const float t1 = (boxMin[i] - o[i]) * inv;
        const float t2 = (boxMax[i] - o[i]) * inv;
        nearT[i] = minOf(t2, t1);
        farT[i] = maxOf(t2, t1);
    }
    const float tNear = maxOf(nearT[2], maxOf(nearT[1], nearT[0]));
    const float tFar = minOf(farT[2], minOf(farT[1], farT[0]));
    if (rejectNonFinite && (!isFinite(tNear) || !isFinite(tFar))) return false;
    if (tNear > tFar || tFar < 0.0f) return false;
    const bool inside = o.x >= boxMin.x && o.x <= boxMax.x && o.y >= boxMin.y && o.y <= boxMax.y &&
                        o.z >= boxMin.z && o.z <= boxMax.z;
    if (inside) return true;
    return tNear > 0.0f;
}

} // namespace

bool rayIntersectsAABB(const Ray& ray, const vec3& boxMin, const vec3& boxMax) {
    return forwardRayHitsBox(ray, boxMin, boxMax, true);
}

bool RayIntersectsAABB(const Ray& ray, const AABB& box) {
    return forwardRayHitsBox(ray, box.min, box.max, false);
}

bool BoundingBox::intersects(const Ray& ray) const {
    const vec3& o = ray.origin;
    const vec3& d = ray.direction;
    float tx1 = (min.x - o.x) / d.x, tx2 = (max.x - o.x) / d.x;
    if (tx1 > tx2) std::swap(tx1, tx2);
    float ty1 = (min.y - o.y) / d.y, ty2 = (max.y - o.y) / d.y;
    if (ty1 > ty2) std::swap(ty1, ty2);
    // Comparisons with NaN are false, so a 0/0 axis never rejects the box.
    if (tx1 > ty2 || ty1 > tx2) return false;
    const float tNear = maxOf(ty1, tx1);
    const float tFar = minOf(ty2, tx2);
    float tz1 = (min.z - o.z) / d.z, tz2 = (max.z - o.z) / d.z;
    if (tz1 > tz2) std::swap(tz1, tz2);
    if (tNear > tz2 || tz1 > tFar) return false;
    return true;
}

bool AABBIntersectsSphere(const AABB& box, const vec3& center, float radius) {
    float distSq = 0.0f;
    for (int i = 0; i < 3; ++i) {
        if (center[i] < box.min[i]) {
            const float d = box.min[i] - center[i];
            distSq += d * d;
        } else if (center[i] > box.max[i]) {
            const float d = center[i] - box.max[i];
            distSq += d * d;
        }
    }
    return radius * radius >= distSq;
}

AABB transformAABB(const AABB& box, const mat4& matrix) {
    // Folded from the empty box of infinite bounds, so that corners that all overflow to the same
    // infinity give that infinity.
    constexpr float inf = std::numeric_limits<float>::infinity();
    vec3 lo(inf), hi(-inf);
    for (int corner = 0; corner < 8; ++corner) {
        const vec4 p(corner & 1 ? box.max.x : box.min.x, corner & 2 ? box.max.y : box.min.y,
                     corner & 4 ? box.max.z : box.min.z, 1.0f);
        const vec3 q = vec3(matrix * p);
        lo = glm::min(lo, q);
        hi = glm::max(hi, q);
    }
    return AABB(lo, hi);
}
