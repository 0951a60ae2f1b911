// Whether a segment crosses any edge of a closed polygon; used by the lasso selection and kept
// out of the exported interface.
#pragma once

#include <korvex/records.h>

#include <cstddef>
#include <cstdint>
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

// The same test split in two, for many segments sharing end points. Bit i of a point's sides
// is counterClockwise(point, vertex i, vertex i + 1), the first half of the test for edge i;
// it depends on the point alone, so it can be worked out once per point. At most
// kMaxSideWords * 64 polygon vertices.
constexpr size_t kMaxSideWords = 4;

inline size_t sideWords(size_t polygonSize) {
    return (polygonSize + 63) / 64;
}

inline void sidesOfPoint(const std::vector<vec2>& polygon, const vec2& point, uint64_t* sides) {
    const size_t n = polygon.size();
    for (size_t w = 0; w < sideWords(n); ++w) sides[w] = 0;
    for (size_t i = 0; i < n; ++i)
        if (counterClockwise(point, polygon[i], polygon[(i + 1) % n]))
            sides[i / 64] |= uint64_t(1) << (i % 64);
}

// segmentCrossesPolygon(polygon, a, b), given the sides of a and of b: only the edges whose
// first halves differ need the second half.
inline bool segmentCrossesPolygon(const std::vector<vec2>& polygon, const vec2& a, const vec2& b,
                                  const uint64_t* sidesA, const uint64_t* sidesB) {
    const size_t n = polygon.size();
    for (size_t w = 0; w < sideWords(n); ++w) {
        for (uint64_t differ = sidesA[w] ^ sidesB[w]; differ; differ &= differ - 1) {
            const size_t i = w * 64 + static_cast<size_t>(__builtin_ctzll(differ));
            if (counterClockwise(a, b, polygon[i]) != counterClockwise(a, b, polygon[(i + 1) % n]))
                return true;
        }
    }
    return false;
}

} // namespace octree_detail
