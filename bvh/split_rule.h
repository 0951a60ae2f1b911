// The arithmetic that decides the tree's shape, shared by splitTriangles and
// the builder so that both place every triangle identically, bit for bit.
#pragma once

#include <korvex/records.h>

namespace korvex_detail {

// Folds a point into a box. Only a strictly smaller or larger value replaces
// the current one, so NaN corners never enter a box and, among equal values
// (0 and -0), the first one folded stays.
inline void foldPoint(vec3& lo, vec3& hi, const vec3& p) {
    for (int i = 0; i < 3; ++i) {
        if (p[i] < lo[i]) lo[i] = p[i];
        if (p[i] > hi[i]) hi[i] = p[i];
    }
}

// Folding boxes in order gives the same bits as folding their corners in order.
inline void foldBox(vec3& lo, vec3& hi, const vec3& boxLo, const vec3& boxHi) {
    for (int i = 0; i < 3; ++i) {
        if (boxLo[i] < lo[i]) lo[i] = boxLo[i];
        if (boxHi[i] > hi[i]) hi[i] = boxHi[i];
    }
}

// x only if strictly the largest, y only if strictly larger than z: a tie
// goes to the later axis.
inline int longestAxis(const vec3& size) {
    if (size.x > size.y) return size.x > size.z ? 0 : 2;
    return size.y > size.z ? 1 : 2;
}

// The centre of the box on the axis, not a median.
inline float splitPosition(const BoundingBox& box, int axis) {
    return (box.min[axis] + box.max[axis]) * 0.5f;
}

// The centroid by a true division by 3, summed in corner order.
inline vec3 centroidOf(const Triangle& t) {
    return (t.p0 + t.p1 + t.p2) / 3.0f;
}

// Lower side only when the split position is strictly greater: a centroid on
// the split, or a NaN one, goes to the upper side.
inline bool goesLower(float splitPos, float centroid) {
    return splitPos > centroid;
}

// The box surface that stops the recursion below 1e-5.
inline float boxSurface(const BoundingBox& box) {
    const vec3 s = box.max - box.min;
    return 2.0f * (s.x * s.y + s.y * s.z + s.x * s.z);
}

} // namespace korvex_detail
