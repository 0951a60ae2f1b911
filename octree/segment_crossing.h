// Whether a segment crosses any edge of a closed polygon; used by the lasso selection and kept
// out of the exported interface.
#pragma once

#include <korvex/records.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

class LassoSides {
  public:
    explicit LassoSides(const std::vector<vec2>& polygon) : polygon_(polygon) {
        const size_t n = polygon.size();
        const size_t padded = (n + 3) / 4 * 4;
        for (std::vector<float>* v : {&x_, &y_, &nextX_, &nextY_}) v->assign(padded, 0.0f);
        for (size_t i = 0; i < n; ++i) {
            const vec2& next = polygon[i + 1 == n ? 0 : i + 1];
            x_[i] = polygon[i].x;
            y_[i] = polygon[i].y;
            nextX_[i] = next.x;
            nextY_[i] = next.y;
        }
    }

    size_t words() const { return sideWords(polygon_.size()); }

    void of(const vec2& point, uint64_t* sides) const {
        const size_t n = polygon_.size();
        for (size_t w = 0; w < words(); ++w) sides[w] = 0;
#if defined(__SSE2__)
        const __m128 px = _mm_set1_ps(point.x), py = _mm_set1_ps(point.y);
        for (size_t i = 0; i < n; i += 4) {
            // (P.x - p.x) * (Q.y - p.y) > (Q.x - p.x) * (P.y - p.y), four edges at a time.
            const __m128 left = _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(&x_[i]), px),
                                           _mm_sub_ps(_mm_loadu_ps(&nextY_[i]), py));
            const __m128 right = _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(&nextX_[i]), px),
                                            _mm_sub_ps(_mm_loadu_ps(&y_[i]), py));
            uint64_t bits = static_cast<uint64_t>(_mm_movemask_ps(_mm_cmpgt_ps(left, right)));
            if (i + 4 > n) bits &= (uint64_t(1) << (n - i)) - 1; // padding lanes
            sides[i / 64] |= bits << (i % 64);
        }
#else
        for (size_t i = 0; i < n; ++i)
            if (counterClockwise(point, polygon_[i], polygon_[i + 1 == n ? 0 : i + 1]))
                sides[i / 64] |= uint64_t(1) << (i % 64);
#endif
    }

    // segmentCrossesPolygon(polygon, a, b), given the sides of a and of b: only the edges whose
    // first halves differ need the second half.
    bool crosses(const vec2& a, const vec2& b, const uint64_t* sidesA,
                 const uint64_t* sidesB) const {
        const size_t n = polygon_.size();
        for (size_t w = 0; w < words(); ++w) {
            for (uint64_t differ = sidesA[w] ^ sidesB[w]; differ; differ &= differ - 1) {
                const size_t i = w * 64 + static_cast<size_t>(__builtin_ctzll(differ));
                if (counterClockwise(a, b, polygon_[i]) !=
                    counterClockwise(a, b, polygon_[i + 1 == n ? 0 : i + 1]))
                    return true;
            }
        }
        return false;
    }

  private:
    const std::vector<vec2>& polygon_;
    std::vector<float> x_, y_, nextX_, nextY_;
};

// The sides of recent mesh vertices, in a small direct-mapped cache keyed by vertex number: a
// vertex's screen point is the same for every triangle around it within one call.
class SideCache {
  public:
    explicit SideCache(const LassoSides& sides)
        : sides_(sides), words_(sides.words()), vertex_(kSize, ~0u), bits_(kSize * words_) {}

    // Copies the sides of vertex v, whose screen point is `point`, into `out`.
    void of(unsigned int v, const vec2& point, uint64_t* out) {
        const size_t slot = v & (kSize - 1);
        uint64_t* bits = bits_.data() + slot * words_; // no words for an empty polygon
        if (vertex_[slot] != v) {
            sides_.of(point, bits);
            vertex_[slot] = v;
        }
        for (size_t w = 0; w < words_; ++w) out[w] = bits[w];
    }

  private:
    static constexpr size_t kSize = 4096;

    const LassoSides& sides_;
    size_t words_;
    std::vector<unsigned int> vertex_;
    std::vector<uint64_t> bits_;
};

} // namespace octree_detail
