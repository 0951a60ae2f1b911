// BoundingBox::intersects for the traversal's inner loop: the same divisions
// in the same order and the same comparisons, so the same answer for every
// input (NaN and infinite limits included), with the six divisions done as two
// four-lane ones and no call per box.
#pragma once

#include <korvex/records.h>

namespace korvex_detail {

#if defined(__GNUC__) || defined(__clang__)

typedef float Lanes __attribute__((vector_size(16)));

struct LineLanes {
    Lanes origin;
    Lanes direction;
};

// The fourth lane divides 0 by 1 and is never read.
inline LineLanes lineLanesOf(const Ray& ray) {
    return LineLanes{Lanes{ray.origin.x, ray.origin.y, ray.origin.z, 0.0f},
                     Lanes{ray.direction.x, ray.direction.y, ray.direction.z, 1.0f}};
}

inline bool lineMeetsBox(const LineLanes& line, const BoundingBox& box) {
    const Lanes lo = Lanes{box.min.x, box.min.y, box.min.z, 0.0f};
    const Lanes hi = Lanes{box.max.x, box.max.y, box.max.z, 0.0f};
    const Lanes t1 = (lo - line.origin) / line.direction;
    const Lanes t2 = (hi - line.origin) / line.direction;
    // Exchange where t1 > t2; a NaN comparison is false and leaves them.
    const auto swap = t1 > t2;
    const Lanes near = swap ? t2 : t1;
    const Lanes far = swap ? t1 : t2;
    if (near[0] > far[1] || near[1] > far[0]) return false;
    const float tNear = near[1] > near[0] ? near[1] : near[0];
    const float tFar = far[1] < far[0] ? far[1] : far[0];
    return !(tNear > far[2] || near[2] > tFar);
}

#else

struct LineLanes {
    Ray ray;
};

inline LineLanes lineLanesOf(const Ray& ray) {
    return LineLanes{ray};
}

inline bool lineMeetsBox(const LineLanes& line, const BoundingBox& box) {
    return box.intersects(line.ray);
}

#endif

} // namespace korvex_detail
