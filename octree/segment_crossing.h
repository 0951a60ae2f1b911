// Whether a segment crosses any edge of a closed polygon; used by the lasso selection and kept
// out of the exported interface.
#pragma once

#include <korvex/records.h>

#include <vector>

namespace octree_detail {

// Strict: three collinear points are not counter-clockwise.
inline bool counterClockwise(const vec2& x, const vec2& y, const vec2& z) {
    return (y.x - x.x) * (z.y - x.y) > (z.x - x.x) * (y.y - x.y);
}

// True when a-b and some edge P-Q separate each other's end points. Collinear overlap is no
// crossing, and a touch at an end point counts or not depending on the orientation.
inline bool segmentCrossesPolygon(const std::vector<vec2>& polygon, const vec2& a, const vec2& b) {
    const size_t n = polygon.size();
    for (size_t i = 0; i < n; ++i) {
        const vec2& p = polygon[i];
        const vec2& q = polygon[(i + 1) % n];
        if (counterClockwise(a, p, q) != counterClockwise(b, p, q) &&
            counterClockwise(a, b, p) != counterClockwise(a, b, q))
            return true;
    }
    return false;
}

} // namespace octree_detail
