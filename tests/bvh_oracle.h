// What a BVH query reports, and the plain loop over every triangle that it must agree with.
#pragma once

#include <korvex/ray.h>
#include <korvex/records.h>

#include <cstring>
#include <vector>

namespace bvhtest {

struct Hit {
    bool hit = false;
    vec3 point{-7.0f};
    float distance = kFloatMax;
};

// Bit for bit: the hit point and distance of two answers must be the same floats.
inline bool sameHit(const Hit& a, const Hit& b) {
    return a.hit == b.hit && std::memcmp(&a.point, &b.point, sizeof(vec3)) == 0 &&
           std::memcmp(&a.distance, &b.distance, sizeof(float)) == 0;
}

// The oracle: every triangle, t above 0.001 and strictly below the best.
inline Hit bruteForce(const std::vector<Triangle>& tris, const Ray& ray) {
    Hit best;
    for (const Triangle& t : tris) {
        vec3 p;
        float d;
        if (RayIntersectsTriangle(ray, t.p0, t.p1, t.p2, p, d) && d > 0.001f && d < best.distance)
            best = Hit{true, p, d};
    }
    return best;
}

} // namespace bvhtest
