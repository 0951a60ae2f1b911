// The arithmetic of the octree's ray hit, restated for speed: the same operations in the same
// order as transformAABB, RayIntersectsAABB and RayIntersectsTriangle (GLM's mat4 * vec4 is
// (m0 * x + m1 * y) + (m2 * z + m3 * w), its dot (x + y) + z, its cross the usual three
// differences), so every result is bit for bit what those functions give. Only work that does
// not depend on the node is hoisted out: the ray's normalisation and the matrix columns.
#pragma once

#include <korvex/ray.h>
#include <korvex/records.h>

#include "ray/moller_trumbore_lanes.h"

#include <cmath>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace octree_detail {

#if defined(__SSE2__)
using korvex_detail::cross3;
using korvex_detail::dot3;
using korvex_detail::hitFour;
using korvex_detail::Lanes3;
using korvex_detail::lanesOf;
using korvex_detail::splat;
using korvex_detail::sub3;
#endif

// A node's box after the model matrix, and where the ray enters it.
struct PlacedBox {
    float lo[4], hi[4]; // x, y, z (and an unused fourth lane)
    float entry;        // tNear of the slab test, along the unit direction
};

#if defined(__SSE2__)

// transformAABB followed by RayIntersectsAABB, for one ray and one matrix.
class BoxProbe {
  public:
    BoxProbe(const Ray& ray, const mat4& m) : identity_(isIdentity(m)) {
        for (int c = 0; c < 4; ++c) column_[c] = _mm_loadu_ps(&m[c][0]);
        column_[3] = _mm_mul_ps(column_[3], _mm_set1_ps(1.0f)); // w = 1
        const float length = glm::length(ray.direction);
        usable_ = !(length < 1e-6f); // shorter directions miss every box
        const vec3 d = ray.direction * (1.0f / length);
        float inverse[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        for (int i = 0; i < 3; ++i)
            inverse[i] =
                std::fabs(d[i]) > 1e-6f ? 1.0f / d[i] : std::numeric_limits<float>::infinity();
        inverse_ = _mm_loadu_ps(inverse);
        origin_ = _mm_setr_ps(ray.origin.x, ray.origin.y, ray.origin.z, 0.0f);
        steady_ = usable_;
        for (int i = 0; i < 3; ++i) {
            inverseLanes_[i] = _mm_set1_ps(inverse[i]);
            originLanes_[i] = _mm_set1_ps(ray.origin[i]);
            for (int r = 0; r < 4; ++r) matrix_[r][i] = _mm_set1_ps(m[r][i]);
            matrix_[3][i] = _mm_mul_ps(matrix_[3][i], _mm_set1_ps(1.0f)); // w = 1
            steady_ = steady_ && std::isfinite(inverse[i]) && std::isfinite(ray.origin[i]);
            lowerIsNear_[i] = inverse[i] >= 0.0f;
        }
    }

    // The same test on four boxes given as lanes, boxLo[axis] and boxHi[axis]: a bit per lane
    // whose box is hit, with every lane's placed box and entry. `finite` promises that no
    // coordinate of the four boxes is NaN or infinite.
    int hitsFour(const __m128 boxLo[3], const __m128 boxHi[3], bool finite, __m128 lo[3],
                 __m128 hi[3], __m128& entry) const {
        if (identity_ && finite) {
            const __m128 zero = _mm_setzero_ps();
            for (int i = 0; i < 3; ++i) {
                const __m128 a = _mm_add_ps(boxLo[i], zero), b = _mm_add_ps(boxHi[i], zero);
                lo[i] = _mm_min_ps(b, _mm_min_ps(a, _mm_set1_ps(kFloatMax)));
                hi[i] = _mm_max_ps(b, _mm_max_ps(a, _mm_set1_ps(-kFloatMax)));
            }
        } else {
            for (int r = 0; r < 3; ++r) placeCornerLanes(boxLo, boxHi, r, lo[r], hi[r]);
        }
        if (!usable_) return 0;
        __m128 nearT[3], farT[3];
        for (int i = 0; i < 3; ++i) {
            const __m128 t1 = _mm_mul_ps(_mm_sub_ps(lo[i], originLanes_[i]), inverseLanes_[i]);
            const __m128 t2 = _mm_mul_ps(_mm_sub_ps(hi[i], originLanes_[i]), inverseLanes_[i]);
            nearT[i] = _mm_min_ps(t2, t1);
            farT[i] = _mm_max_ps(t2, t1);
        }
        entry = _mm_max_ps(nearT[2], _mm_max_ps(nearT[1], nearT[0]));
        const __m128 exit = _mm_min_ps(farT[2], _mm_min_ps(farT[1], farT[0]));
        const __m128 miss =
            _mm_or_ps(_mm_cmpgt_ps(entry, exit), _mm_cmplt_ps(exit, _mm_setzero_ps()));
        const __m128 ahead = _mm_or_ps(originInside(lo, hi), _mm_cmpgt_ps(entry, _mm_setzero_ps()));
        return _mm_movemask_ps(_mm_andnot_ps(miss, ahead));
    }

    // Under the identity, a usable ray from a finite origin that moves along every axis.
    bool steadyUnderIdentity() const { return identity_ && steady_; }

    // hitsFour for boxes that are finite with min <= max on every axis, under the identity: the
    // fold over the corners then gives each box's own corners plus +0, and when the ray moves
    // along every axis from a finite origin, no crossing is NaN, so the nearer crossing of an
    // axis is the one of the side the ray comes from. The same values, with fewer operations.
    int hitsFourOrdered(const __m128 boxLo[3], const __m128 boxHi[3], __m128 lo[3], __m128 hi[3],
                        __m128& entry) const {
        if (!identity_ || !steady_) return hitsFour(boxLo, boxHi, true, lo, hi, entry);
        const __m128 zero = _mm_setzero_ps();
        __m128 nearT[3], farT[3];
        for (int i = 0; i < 3; ++i) {
            lo[i] = _mm_add_ps(boxLo[i], zero);
            hi[i] = _mm_add_ps(boxHi[i], zero);
            const __m128 t1 = _mm_mul_ps(_mm_sub_ps(lo[i], originLanes_[i]), inverseLanes_[i]);
            const __m128 t2 = _mm_mul_ps(_mm_sub_ps(hi[i], originLanes_[i]), inverseLanes_[i]);
            nearT[i] = lowerIsNear_[i] ? t1 : t2;
            farT[i] = lowerIsNear_[i] ? t2 : t1;
        }
        entry = _mm_max_ps(nearT[2], _mm_max_ps(nearT[1], nearT[0]));
        const __m128 exit = _mm_min_ps(farT[2], _mm_min_ps(farT[1], farT[0]));
        const int met =
            _mm_movemask_ps(_mm_or_ps(_mm_cmpgt_ps(entry, exit), _mm_cmplt_ps(exit, zero))) ^ 15;
        const int ahead = _mm_movemask_ps(_mm_cmpgt_ps(entry, zero));
        if (!(met & ~ahead)) return met & ahead;
        // A box the line is in at t = 0 counts only if the origin lies in it.
        return met & (ahead | _mm_movemask_ps(originInside(lo, hi)));
    }

    // Lanes whose placed box holds the origin, faces included.
    __m128 originInside(const __m128 lo[3], const __m128 hi[3]) const {
        __m128 inside = _mm_castsi128_ps(_mm_set1_epi32(-1));
        for (int i = 0; i < 3; ++i)
            inside = _mm_and_ps(inside, _mm_and_ps(_mm_cmpge_ps(originLanes_[i], lo[i]),
                                                   _mm_cmple_ps(originLanes_[i], hi[i])));
        return inside;
    }

    bool hits(const AABB& box, PlacedBox& placed) const {
        __m128 lo, hi;
        const __m128 boxMin = _mm_setr_ps(box.min.x, box.min.y, box.min.z, 0.0f);
        const __m128 boxMax = _mm_setr_ps(box.max.x, box.max.y, box.max.z, 0.0f);
        if (identity_ && allFinite(boxMin, boxMax)) {
            // Through the identity every finite coordinate comes out as itself plus +0 (the
            // zero products add nothing but turn -0 into +0), and the fold over the corners
            // keeps the lesser and the greater of the two values per axis.
            const __m128 a = _mm_add_ps(boxMin, _mm_setzero_ps());
            const __m128 b = _mm_add_ps(boxMax, _mm_setzero_ps());
            lo = _mm_min_ps(b, _mm_min_ps(a, _mm_set1_ps(kFloatMax)));
            hi = _mm_max_ps(b, _mm_max_ps(a, _mm_set1_ps(-kFloatMax)));
        } else {
            placeCorners(box, lo, hi);
        }
        return slab(lo, hi, placed);
    }

    // True when every lane of both is finite.
    static bool allFinite(__m128 a, __m128 b) {
        const __m128 zero = _mm_setzero_ps();
        return _mm_movemask_ps(_mm_and_ps(_mm_cmpeq_ps(_mm_sub_ps(a, a), zero),
                                          _mm_cmpeq_ps(_mm_sub_ps(b, b), zero))) == 15;
    }

    static bool isIdentity(const mat4& m) {
        const mat4 identity(1.0f);
        return std::memcmp(&m, &identity, sizeof(mat4)) == 0;
    }

  private:
    // The eight corners, corner c taking max on x for bit 0, y for bit 1, z for bit 2, folded
    // in corner order from the empty box.
    void placeCorners(const AABB& box, __m128& lo, __m128& hi) const {
        const __m128 x[2] = {_mm_mul_ps(column_[0], _mm_set1_ps(box.min.x)),
                             _mm_mul_ps(column_[0], _mm_set1_ps(box.max.x))};
        const __m128 y[2] = {_mm_mul_ps(column_[1], _mm_set1_ps(box.min.y)),
                             _mm_mul_ps(column_[1], _mm_set1_ps(box.max.y))};
        const __m128 zw[2] = {
            _mm_add_ps(_mm_mul_ps(column_[2], _mm_set1_ps(box.min.z)), column_[3]),
            _mm_add_ps(_mm_mul_ps(column_[2], _mm_set1_ps(box.max.z)), column_[3])};
        foldCorners(x, y, zw, lo, hi);
    }

    // The corners' sums (x + y) + (z + w) folded in corner order from the empty box.
    static void foldCorners(const __m128 x[2], const __m128 y[2], const __m128 zw[2], __m128& lo,
                            __m128& hi) {
        const __m128 xy[4] = {_mm_add_ps(x[0], y[0]), _mm_add_ps(x[1], y[0]),
                              _mm_add_ps(x[0], y[1]), _mm_add_ps(x[1], y[1])};
        lo = _mm_set1_ps(std::numeric_limits<float>::infinity());
        hi = _mm_set1_ps(-std::numeric_limits<float>::infinity());
        for (int corner = 0; corner < 8; ++corner) {
            const __m128 q = _mm_add_ps(xy[corner & 3], zw[corner >> 2]);
            lo = _mm_min_ps(q, lo); // q < lo ? q : lo, as glm::min(lo, q)
            hi = _mm_max_ps(q, hi); // q > hi ? q : hi, as glm::max(hi, q)
        }
    }

    // placeCorners for four boxes at once, output row r only.
    void placeCornerLanes(const __m128 boxLo[3], const __m128 boxHi[3], int r, __m128& lo,
                          __m128& hi) const {
        const __m128 x[2] = {_mm_mul_ps(matrix_[0][r], boxLo[0]),
                             _mm_mul_ps(matrix_[0][r], boxHi[0])};
        const __m128 y[2] = {_mm_mul_ps(matrix_[1][r], boxLo[1]),
                             _mm_mul_ps(matrix_[1][r], boxHi[1])};
        const __m128 zw[2] = {_mm_add_ps(_mm_mul_ps(matrix_[2][r], boxLo[2]), matrix_[3][r]),
                              _mm_add_ps(_mm_mul_ps(matrix_[2][r], boxHi[2]), matrix_[3][r])};
        foldCorners(x, y, zw, lo, hi);
    }

    bool slab(__m128 lo, __m128 hi, PlacedBox& placed) const {
        _mm_storeu_ps(placed.lo, lo);
        _mm_storeu_ps(placed.hi, hi);
        if (!usable_) return false;

        // The slab test: near = min(t2, t1), far = max(t2, t1) per axis, a NaN operand giving
        // the second; then tNear = max(z, max(y, x)) and tFar = min(z, min(y, x)).
        const __m128 t1 = _mm_mul_ps(_mm_sub_ps(lo, origin_), inverse_);
        const __m128 t2 = _mm_mul_ps(_mm_sub_ps(hi, origin_), inverse_);
        const __m128 nearT = _mm_min_ps(t2, t1), farT = _mm_max_ps(t2, t1);
        const __m128 ny = _mm_shuffle_ps(nearT, nearT, 1), nz = _mm_shuffle_ps(nearT, nearT, 2);
        const __m128 fy = _mm_shuffle_ps(farT, farT, 1), fz = _mm_shuffle_ps(farT, farT, 2);
        const float tNear = _mm_cvtss_f32(_mm_max_ss(nz, _mm_max_ss(ny, nearT)));
        const float tFar = _mm_cvtss_f32(_mm_min_ss(fz, _mm_min_ss(fy, farT)));
        placed.entry = tNear;
        if (tNear > tFar || tFar < 0.0f) return false;
        const int inside =
            _mm_movemask_ps(_mm_and_ps(_mm_cmpge_ps(origin_, lo), _mm_cmple_ps(origin_, hi)));
        return (inside & 7) == 7 || tNear > 0.0f;
    }

    __m128 column_[4];
    __m128 inverse_;
    __m128 origin_;
    // The same, one coordinate splatted over four lanes: matrix_[column][row].
    __m128 matrix_[4][3];
    __m128 inverseLanes_[3];
    __m128 originLanes_[3];
    bool usable_;
    bool identity_;
    bool steady_;         // usable, finite origin, and the ray moves along every axis
    bool lowerIsNear_[3]; // per axis, the ray meets a box's lower side first
};

// The model matrix applied to four points: (m0 * x + m1 * y) + (m2 * z + m3 * 1), first three
// rows.
class LaneMatrix {
  public:
    explicit LaneMatrix(const mat4& model) : identity_(BoxProbe::isIdentity(model)) {
        for (int c = 0; c < 4; ++c)
            for (int r = 0; r < 3; ++r) m_[c][r] = _mm_set1_ps(model[c][r]);
        for (int r = 0; r < 3; ++r) m_[3][r] = _mm_mul_ps(m_[3][r], _mm_set1_ps(1.0f));
    }

    // place() for points known to be finite.
    Lanes3 placeFinite(const Lanes3& p) const {
        if (!identity_) return place(p);
        const __m128 zero = _mm_setzero_ps();
        return {_mm_add_ps(p.x, zero), _mm_add_ps(p.y, zero), _mm_add_ps(p.z, zero)};
    }

    Lanes3 place(const Lanes3& p) const {
        if (identity_) {
            // As for boxes: finite coordinates come out as themselves plus +0.
            const __m128 zero = _mm_setzero_ps();
            const __m128 finite = _mm_and_ps(_mm_and_ps(_mm_cmpeq_ps(_mm_sub_ps(p.x, p.x), zero),
                                                        _mm_cmpeq_ps(_mm_sub_ps(p.y, p.y), zero)),
                                             _mm_cmpeq_ps(_mm_sub_ps(p.z, p.z), zero));
            if (_mm_movemask_ps(finite) == 15)
                return {_mm_add_ps(p.x, zero), _mm_add_ps(p.y, zero), _mm_add_ps(p.z, zero)};
        }
        __m128 out[3];
        for (int r = 0; r < 3; ++r)
            out[r] = _mm_add_ps(_mm_add_ps(_mm_mul_ps(m_[0][r], p.x), _mm_mul_ps(m_[1][r], p.y)),
                                _mm_add_ps(_mm_mul_ps(m_[2][r], p.z), m_[3][r]));
        return {out[0], out[1], out[2]};
    }

  private:
    __m128 m_[4][3];
    bool identity_;
};

#else

// Without SSE2 the probe calls the library's own box functions.
class BoxProbe {
  public:
    BoxProbe(const Ray& ray, const mat4& m) : ray_(ray), model_(m) {}

    bool hits(const AABB& box, PlacedBox& placed) const {
        const AABB moved = transformAABB(box, model_);
        for (int i = 0; i < 3; ++i) {
            placed.lo[i] = moved.min[i];
            placed.hi[i] = moved.max[i];
        }
        placed.entry = 0.0f; // only an order of visit: any value is correct
        return RayIntersectsAABB(ray_, moved);
    }

  private:
    Ray ray_;
    mat4 model_;
};

#endif

} // namespace octree_detail
