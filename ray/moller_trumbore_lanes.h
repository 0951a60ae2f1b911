// Moller-Trumbore on four triangles at once, for the traversals' leaf loops.
// The same operations in the same order as the one-triangle test (GLM's dot
// is (x + y) + z, its cross the usual three differences), so each lane's
// answer is bit for bit what RayIntersectsTriangle gives.
#pragma once

#include <korvex/records.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>

namespace korvex_detail {

// Four lanes of one coordinate each.
struct Lanes3 {
    __m128 x, y, z;
};

inline Lanes3 splat(const vec3& v) {
    return {_mm_set1_ps(v.x), _mm_set1_ps(v.y), _mm_set1_ps(v.z)};
}

inline __m128 dot3(const Lanes3& a, const Lanes3& b) {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y)), _mm_mul_ps(a.z, b.z));
}

inline Lanes3 cross3(const Lanes3& a, const Lanes3& b) {
    return {_mm_sub_ps(_mm_mul_ps(a.y, b.z), _mm_mul_ps(b.y, a.z)),
            _mm_sub_ps(_mm_mul_ps(a.z, b.x), _mm_mul_ps(b.z, a.x)),
            _mm_sub_ps(_mm_mul_ps(a.x, b.y), _mm_mul_ps(b.x, a.y))};
}

inline Lanes3 sub3(const Lanes3& a, const Lanes3& b) {
    return {_mm_sub_ps(a.x, b.x), _mm_sub_ps(a.y, b.y), _mm_sub_ps(a.z, b.z)};
}

// RayIntersectsTriangle on four triangles: a bit per lane that hits, and each lane's t. The
// comparisons are ordered ones, so NaN falls through every rejection but the last, as in the
// one-triangle test.
inline int hitFour(const Lanes3& origin, const Lanes3& direction, const Lanes3& p0,
                   const Lanes3& p1, const Lanes3& p2, __m128& t) {
    const __m128 epsilon = _mm_set1_ps(1e-6f), one = _mm_set1_ps(1.0f);
    const __m128 zero = _mm_setzero_ps();
    const Lanes3 e1 = sub3(p1, p0), e2 = sub3(p2, p0);
    const Lanes3 h = cross3(direction, e2);
    const __m128 a = dot3(e1, h);
    __m128 miss = _mm_and_ps(_mm_cmpgt_ps(a, _mm_set1_ps(-1e-6f)), _mm_cmplt_ps(a, epsilon));
    const __m128 f = _mm_div_ps(one, a);
    const Lanes3 s = sub3(origin, p0);
    const __m128 u = _mm_mul_ps(f, dot3(s, h));
    miss = _mm_or_ps(miss, _mm_or_ps(_mm_cmplt_ps(u, zero), _mm_cmpgt_ps(u, one)));
    const Lanes3 q = cross3(s, e1);
    const __m128 v = _mm_mul_ps(f, dot3(direction, q));
    miss = _mm_or_ps(miss, _mm_or_ps(_mm_cmplt_ps(v, zero), _mm_cmpgt_ps(_mm_add_ps(u, v), one)));
    t = _mm_mul_ps(f, dot3(e2, q));
    return _mm_movemask_ps(_mm_andnot_ps(miss, _mm_cmpgt_ps(t, epsilon)));
}

// Positions of four vertices (x, y, z of each; the fourth float read is ignored) as lanes.
inline Lanes3 lanesOf(__m128 r0, __m128 r1, __m128 r2, __m128 r3) {
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    return {r0, r1, r2};
}

} // namespace korvex_detail

#endif
