// BoundingBox::intersects for the traversal's inner loop: the same divisions
// in the same order and the same comparisons, so the same answer for every
// input (NaN and infinite limits included), with the six divisions done as two
// four-lane ones and no call per box.
#pragma once

#include <korvex/records.h>

#include <limits>

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

// Whether the line meets the box, and where: the part of the line inside
// the box runs from `enter` to `exit`, in units of the direction's length.
// Either can be NaN when the line runs in a face of the box.
struct LineSpan {
    bool meets;
    float enter;
    float exit;
};

inline LineSpan lineThroughBox(const LineLanes& line, const BoundingBox& box) {
    const Lanes lo = Lanes{box.min.x, box.min.y, box.min.z, 0.0f};
    const Lanes hi = Lanes{box.max.x, box.max.y, box.max.z, 0.0f};
    const Lanes t1 = (lo - line.origin) / line.direction;
    const Lanes t2 = (hi - line.origin) / line.direction;
    // Exchange where t1 > t2; a NaN comparison is false and leaves them.
    const auto swap = t1 > t2;
    const Lanes near = swap ? t2 : t1;
    const Lanes far = swap ? t1 : t2;
    if (near[0] > far[1] || near[1] > far[0]) return LineSpan{false, 0.0f, 0.0f};
    const float tNear = near[1] > near[0] ? near[1] : near[0];
    const float tFar = far[1] < far[0] ? far[1] : far[0];
    if (tNear > far[2] || near[2] > tFar) return LineSpan{false, 0.0f, 0.0f};
    return LineSpan{true, near[2] > tNear ? near[2] : tNear, far[2] < tFar ? far[2] : tFar};
}

#else

struct LineLanes {
    Ray ray;
};

inline LineLanes lineLanesOf(const Ray& ray) {
    return LineLanes{ray};
}

struct LineSpan {
    bool meets;
    float enter;
    float exit;
};

// Without lane types the span is not worked out, and nothing is skipped.
inline LineSpan lineThroughBox(const LineLanes& line, const BoundingBox& box) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    return LineSpan{box.intersects(line.ray), nan, nan};
}

#endif

} // namespace korvex_detail
