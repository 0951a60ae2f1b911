// traversePacked: the nearest-hit search over a tree's packed copy.
#include "bvh/packed_tree.h"

#if defined(__SSE2__)

#include "bvh/traverse_rules.h"
#include "ray/moller_trumbore_lanes.h"

#include <emmintrin.h>
#include <limits>

namespace korvex_detail {

namespace {

inline __m128 select(__m128 mask, __m128 a, __m128 b) {
    return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
}

struct RayLanes {
    __m128 origin[3], direction[3];
};

// lineThroughBox for four boxes: the same divisions, exchanges and
// comparisons, lane by lane, so each lane meets, enters and leaves exactly
// where the one-box test says.
struct SpanLanes {
    __m128 meets, enter, exit;
};

inline SpanLanes spansOf(const RayLanes& ray, const float lo[3][4], const float hi[3][4]) {
    __m128 near[3], far[3];
    for (int axis = 0; axis < 3; ++axis) {
        const __m128 t1 =
            _mm_div_ps(_mm_sub_ps(_mm_load_ps(lo[axis]), ray.origin[axis]), ray.direction[axis]);
        const __m128 t2 =
            _mm_div_ps(_mm_sub_ps(_mm_load_ps(hi[axis]), ray.origin[axis]), ray.direction[axis]);
        const __m128 swap = _mm_cmpgt_ps(t1, t2);
        near[axis] = select(swap, t2, t1);
        far[axis] = select(swap, t1, t2);
    }
    __m128 miss = _mm_or_ps(_mm_cmpgt_ps(near[0], far[1]), _mm_cmpgt_ps(near[1], far[0]));
    const __m128 tNear = select(_mm_cmpgt_ps(near[1], near[0]), near[1], near[0]);
    const __m128 tFar = select(_mm_cmplt_ps(far[1], far[0]), far[1], far[0]);
    miss = _mm_or_ps(miss, _mm_or_ps(_mm_cmpgt_ps(tNear, far[2]), _mm_cmpgt_ps(near[2], tFar)));
    const __m128 allSet = _mm_castsi128_ps(_mm_set1_epi32(-1));
    return SpanLanes{_mm_xor_ps(miss, allSet), select(_mm_cmpgt_ps(near[2], tNear), near[2], tNear),
                     select(_mm_cmplt_ps(far[2], tFar), far[2], tFar)};
}

inline __m128 absLanes(__m128 v) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), v);
}

struct Pending {
    uint32_t first;
    uint32_t count; // triangles of a leaf; unused for a quad node
    uint32_t leaf;
    float enter;
};

// A built tree has at most 65 levels, so a descent passes at most 32 quad
// nodes, each leaving at most three entries behind.
constexpr int kStack = 128;

inline void prefetchEntry(const PackedTree& tree, uint32_t first, bool leaf) {
    const char* at = leaf ? reinterpret_cast<const char*>(&tree.corners[9 * size_t(first)])
                          : reinterpret_cast<const char*>(&tree.nodes[first]);
    for (int line = 0; line < 4; ++line) __builtin_prefetch(at + 64 * line);
}

} // namespace

bool traversePacked(const PackedTree& tree, const Ray& ray, vec3& hitPoint,
                    float& nearestDistance) {
    RayLanes lanes;
    for (int axis = 0; axis < 3; ++axis) {
        lanes.origin[axis] = _mm_set1_ps(ray.origin[axis]);
        lanes.direction[axis] = _mm_set1_ps(ray.direction[axis]);
    }
    const Lanes3 origin = splat(ray.origin), direction = splat(ray.direction);
    const __m128 slack = _mm_set1_ps(kSpanSlack), floor = _mm_set1_ps(kMinHitDistance);

    float nearest = nearestDistance;
    vec3 point(0.0f);
    bool found = false;
    Pending stack[kStack];
    int size = 0;
    stack[size++] = Pending{0, 0, 0, -std::numeric_limits<float>::infinity()};
    while (size != 0) {
        const Pending pending = stack[--size];
        if (beyondReach(pending.enter, nearest)) continue;
        if (pending.leaf) {
            const float* corners = &tree.corners[9 * size_t(pending.first)];
            for (uint32_t start = 0; start < pending.count; start += 4) {
                const float* c = corners + 9 * size_t(start);
                const Lanes3 p0 = lanesOf(_mm_loadu_ps(c), _mm_loadu_ps(c + 9),
                                          _mm_loadu_ps(c + 18), _mm_loadu_ps(c + 27));
                const Lanes3 p1 = lanesOf(_mm_loadu_ps(c + 3), _mm_loadu_ps(c + 12),
                                          _mm_loadu_ps(c + 21), _mm_loadu_ps(c + 30));
                const Lanes3 p2 = lanesOf(_mm_loadu_ps(c + 6), _mm_loadu_ps(c + 15),
                                          _mm_loadu_ps(c + 24), _mm_loadu_ps(c + 33));
                __m128 tLanes;
                const uint32_t left = pending.count - start;
                const int used = left >= 4 ? 15 : (1 << left) - 1;
                const int hits = hitFour(origin, direction, p0, p1, p2, tLanes) & used;
                if (!hits) continue;
                float t[4];
                _mm_storeu_ps(t, tLanes);
                for (int lane = 0; lane < 4; ++lane) {
                    if (!(hits >> lane & 1) || !(t[lane] > kMinHitDistance && nearest > t[lane]))
                        continue;
                    nearest = t[lane];
                    point = ray.origin + ray.direction * t[lane];
                    found = true;
                }
            }
            continue;
        }
        const QuadNode& quad = tree.nodes[pending.first];
        const SpanLanes own = spansOf(lanes, quad.ownLo, quad.ownHi);
        const SpanLanes gate = spansOf(lanes, quad.gateLo, quad.gateHi);
        const __m128 pastFloor =
            _mm_cmple_ps(_mm_add_ps(own.exit, _mm_mul_ps(slack, absLanes(own.exit))), floor);
        const __m128 pastReach = _mm_cmpge_ps(
            _mm_sub_ps(own.enter, _mm_mul_ps(slack, absLanes(own.enter))), _mm_set1_ps(nearest));
        const int enterable = _mm_movemask_ps(_mm_and_ps(own.meets, gate.meets)) &
                              ~_mm_movemask_ps(_mm_or_ps(pastFloor, pastReach)) &
                              static_cast<int>(quad.validMask);
        if (!enterable) continue;
        float enter[4];
        _mm_storeu_ps(enter, own.enter);
        // Nearest entry first: sorted by where the line enters, and pushed
        // farthest first.
        int order[4], count = 0;
        for (int lane = 0; lane < 4; ++lane) {
            if (!(enterable >> lane & 1)) continue;
            int i = count++;
            for (; i > 0 && enter[lane] < enter[order[i - 1]]; --i) order[i] = order[i - 1];
            order[i] = lane;
            prefetchEntry(tree, quad.first[lane], quad.leafMask >> lane & 1);
        }
        for (int i = count - 1; i >= 0; --i) {
            const int lane = order[i];
            stack[size++] =
                Pending{quad.first[lane], quad.count[lane], quad.leafMask >> lane & 1, enter[lane]};
        }
    }
    if (found) {
        nearestDistance = nearest;
        hitPoint = point;
    }
    return found;
}

} // namespace korvex_detail

#else

namespace korvex_detail {

// Nothing is packed without the vector instructions.
bool traversePacked(const PackedTree&, const Ray&, vec3&, float&) {
    return false;
}

} // namespace korvex_detail

#endif
