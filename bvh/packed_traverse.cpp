// traversePacked: the nearest-hit search over a tree's packed copy.
#include "bvh/packed_tree.h"

#if defined(__SSE2__)

#include "bvh/traverse_rules.h"
#include "ray/moller_trumbore_lanes.h"

#include <emmintrin.h>
#include <cmath>
#include <limits>

namespace korvex_detail {

namespace {

inline __m128 select(__m128 mask, __m128 a, __m128 b) {
    return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
}

inline __m128 absLanes(__m128 v) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), v);
}

struct RayLanes {
    __m128 origin[3], direction[3], inverse[3];
};

// Where the line crosses the two planes of each box on one axis: by division,
// as the one-box test does, or by the direction's reciprocal.
template <bool Divide>
inline void planeCrossings(const RayLanes& ray, const float lo[3][4], const float hi[3][4],
                           int axis, __m128& t1, __m128& t2) {
    const __m128 toLo = _mm_sub_ps(_mm_load_ps(lo[axis]), ray.origin[axis]);
    const __m128 toHi = _mm_sub_ps(_mm_load_ps(hi[axis]), ray.origin[axis]);
    t1 = Divide ? _mm_div_ps(toLo, ray.direction[axis]) : _mm_mul_ps(toLo, ray.inverse[axis]);
    t2 = Divide ? _mm_div_ps(toHi, ray.direction[axis]) : _mm_mul_ps(toHi, ray.inverse[axis]);
}

// Which of four boxes the line meets, by lineMeetsBox's divisions,
// exchanges and comparisons, lane by lane, so exactly as the one-box test
// says, NaN and infinity included.
inline __m128 exactMeets(const RayLanes& ray, const float lo[3][4], const float hi[3][4]) {
    __m128 near[3], far[3];
    for (int axis = 0; axis < 3; ++axis) {
        __m128 t1, t2;
        planeCrossings<true>(ray, lo, hi, axis, t1, t2);
        const __m128 swap = _mm_cmpgt_ps(t1, t2);
        near[axis] = select(swap, t2, t1);
        far[axis] = select(swap, t1, t2);
    }
    __m128 miss = _mm_or_ps(_mm_cmpgt_ps(near[0], far[1]), _mm_cmpgt_ps(near[1], far[0]));
    const __m128 tNear = select(_mm_cmpgt_ps(near[1], near[0]), near[1], near[0]);
    const __m128 tFar = select(_mm_cmplt_ps(far[1], far[0]), far[1], far[0]);
    miss = _mm_or_ps(miss, _mm_or_ps(_mm_cmpgt_ps(tNear, far[2]), _mm_cmpgt_ps(near[2], tFar)));
    return _mm_xor_ps(miss, _mm_castsi128_ps(_mm_set1_epi32(-1)));
}

// Where the line crosses each axis's pair of planes of four boxes, nearer
// and farther, by multiplication with the direction's reciprocal.
struct Crossings {
    __m128 near[3], far[3];
};

inline Crossings quickCrossings(const RayLanes& ray, const float lo[3][4], const float hi[3][4]) {
    Crossings c;
    for (int axis = 0; axis < 3; ++axis) {
        __m128 t1, t2;
        planeCrossings<false>(ray, lo, hi, axis, t1, t2);
        c.near[axis] = _mm_min_ps(t1, t2);
        c.far[axis] = _mm_max_ps(t1, t2);
    }
    return c;
}

// Which boxes the line meets by the crossings above, for a ray whose
// direction has no zero, tiny, huge or non-finite component and boxes without
// NaN. A quotient then comes out within four units of rounding of the divided
// one, so the line meets the box by both measures alike unless where it
// enters and where it leaves lie within a few units of each other: such lanes
// are flagged `unsure` and the caller measures them again by division.
struct QuickMeets {
    __m128 meets, unsure;
};

inline QuickMeets quickMeets(const Crossings& c) {
    const __m128 enter = _mm_max_ps(_mm_max_ps(c.near[0], c.near[1]), c.near[2]);
    const __m128 exit = _mm_min_ps(_mm_min_ps(c.far[0], c.far[1]), c.far[2]);
    const __m128 gap = _mm_sub_ps(enter, exit);
    // 2^-20 relative: four times the worst disagreement; the absolute term
    // covers quotients in the subnormal range. A NaN gap (infinite spans)
    // compares false and counts as unsure.
    const __m128 size = _mm_add_ps(absLanes(enter), absLanes(exit));
    const __m128 margin =
        _mm_add_ps(_mm_mul_ps(size, _mm_set1_ps(9.5367432e-7f)), _mm_set1_ps(1e-30f));
    const __m128 sure = _mm_cmpgt_ps(absLanes(gap), margin);
    return QuickMeets{_mm_cmple_ps(gap, _mm_setzero_ps()),
                      _mm_xor_ps(sure, _mm_castsi128_ps(_mm_set1_epi32(-1)))};
}

// Whether the multiplying measure may stand in for the dividing one.
inline bool quickRay(const Ray& ray) {
    for (int axis = 0; axis < 3; ++axis) {
        const float d = std::fabs(ray.direction[axis]);
        if (!std::isfinite(ray.origin[axis]) || !(d >= 1e-30f && d <= 1e30f)) return false;
    }
    return true;
}

// What the skip tests measure: where the line enters and leaves each of four
// boxes grown by the stray of a hit (see hitStray), in units of t along each
// axis. An axis along which the ray moves too little to measure has an
// infinite stray and drops out; with every axis out nothing is passed over.
struct ReachLanes {
    __m128 stray[3];
};

ReachLanes reachOf(const Ray& ray, const PackedTree& tree) {
    bool finite = tree.nested;
    vec3 far(0.0f);
    for (int axis = 0; axis < 3; ++axis) {
        const float o = ray.origin[axis];
        finite = finite && std::isfinite(o);
        far[axis] =
            std::max(std::fabs(tree.bounds.min[axis] - o), std::fabs(tree.bounds.max[axis] - o));
    }
    const float stray = hitStray(glm::length(ray.direction), tree.longestEdge, glm::length(far));
    ReachLanes reach;
    for (int axis = 0; axis < 3; ++axis) {
        float perT = stray * std::fabs(1.0f / ray.direction[axis]);
        if (!finite || !(perT < std::numeric_limits<float>::infinity()))
            perT = std::numeric_limits<float>::infinity();
        reach.stray[axis] = _mm_set1_ps(perT);
    }
    return reach;
}

// Where the line enters and leaves the grown boxes. A lane of an axis that
// dropped out comes to -inf - inf, +inf + inf or NaN; the maximum and minimum
// below keep their second operand where the first is NaN, so such a lane
// leaves the bound as it was. With finite boxes, origin and stray the other
// lanes hold no NaN: a product may only overflow, to where no hit of finite t
// lies.
inline void reachSpans(const ReachLanes& reach, const Crossings& c, __m128& enter, __m128& exit) {
    enter = _mm_set1_ps(-std::numeric_limits<float>::infinity());
    exit = _mm_set1_ps(std::numeric_limits<float>::infinity());
    for (int axis = 0; axis < 3; ++axis) {
        enter = _mm_max_ps(_mm_sub_ps(c.near[axis], reach.stray[axis]), enter);
        exit = _mm_min_ps(_mm_add_ps(c.far[axis], reach.stray[axis]), exit);
    }
}

struct Pending {
    uint32_t first;
    uint32_t count; // triangles of a leaf; 0 for a quad node
    float enter;
};

// A built tree has at most 65 levels, so a descent passes at most 32 quad
// nodes, each leaving at most three entries behind.
constexpr int kStack = 128;

// A quad node is two lines; a leaf's first four triangles a little over two.
inline void prefetchEntry(const PackedTree& tree, uint32_t first, uint32_t count) {
    if (count == 0) {
        const char* at = reinterpret_cast<const char*>(&tree.nodes[first]);
        __builtin_prefetch(at);
        __builtin_prefetch(at + 64);
        return;
    }
    const char* at = reinterpret_cast<const char*>(&tree.corners[9 * size_t(first)]);
    for (int line = 0; line < 3; ++line) __builtin_prefetch(at + 64 * line);
}

} // namespace

bool traversePacked(const PackedTree& tree, const Ray& ray, vec3& hitPoint,
                    float& nearestDistance) {
    RayLanes lanes;
    for (int axis = 0; axis < 3; ++axis) {
        lanes.origin[axis] = _mm_set1_ps(ray.origin[axis]);
        lanes.direction[axis] = _mm_set1_ps(ray.direction[axis]);
        lanes.inverse[axis] = _mm_set1_ps(1.0f / ray.direction[axis]);
    }
    // Nested boxes and a plain ray: the line meets a box only if it meets
    // its parent's, so the parents' boxes need no second test.
    const bool quick = tree.nested && quickRay(ray);
    const ReachLanes reach = reachOf(ray, tree);
    const Lanes3 origin = splat(ray.origin), direction = splat(ray.direction);
    const __m128 slack = _mm_set1_ps(kSpanSlack), floor = _mm_set1_ps(kMinHitDistance);
    const __m128i noEntry = _mm_set1_epi32(-1);

    float nearest = nearestDistance;
    vec3 point(0.0f);
    bool found = false;
    Pending stack[kStack];
    int size = 0;
    // Tests a quad node's four boxes, pushes the entries worth entering but
    // the nearest, and makes that one `at`. False when none is worth it.
    auto visitQuad = [&](Pending& at) {
        const QuadNode& quad = tree.nodes[at.first];
        const int valid =
            ~_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(
                _mm_load_si128(reinterpret_cast<const __m128i*>(quad.first)), noEntry))) &
            15;
        const Crossings crossings = quickCrossings(lanes, quad.lo, quad.hi);
        const QuickMeets fast = quick ? quickMeets(crossings) : QuickMeets{};
        int meets;
        if (quick && !(_mm_movemask_ps(fast.unsure) & valid)) {
            meets = _mm_movemask_ps(fast.meets);
        } else {
            meets = _mm_movemask_ps(exactMeets(lanes, quad.lo, quad.hi));
            if (!quick) {
                const QuadGates& gates = tree.gates[at.first];
                meets &= _mm_movemask_ps(exactMeets(lanes, gates.lo, gates.hi));
            }
        }
        __m128 enterLanes, exitLanes;
        reachSpans(reach, crossings, enterLanes, exitLanes);
        const __m128 pastFloor =
            _mm_cmple_ps(_mm_add_ps(exitLanes, _mm_mul_ps(slack, absLanes(exitLanes))), floor);
        const __m128 pastReach = _mm_cmpge_ps(
            _mm_sub_ps(enterLanes, _mm_mul_ps(slack, absLanes(enterLanes))), _mm_set1_ps(nearest));
        const int enterable = meets & valid & ~_mm_movemask_ps(_mm_or_ps(pastFloor, pastReach));
        if (!enterable) return false;
        float enter[4];
        _mm_storeu_ps(enter, enterLanes);
        // Nearest entry first: sorted by where the line enters, and pushed
        // farthest first.
        int order[4], count = 0;
        for (int lane = 0; lane < 4; ++lane) {
            if (!(enterable >> lane & 1)) continue;
            int i = count++;
            for (; i > 0 && enter[lane] < enter[order[i - 1]]; --i) order[i] = order[i - 1];
            order[i] = lane;
            prefetchEntry(tree, quad.first[lane], quad.count[lane]);
        }
        for (int i = count - 1; i > 0; --i) {
            const int lane = order[i];
            stack[size++] = Pending{quad.first[lane], quad.count[lane], enter[lane]};
        }
        at = Pending{quad.first[order[0]], quad.count[order[0]], enter[order[0]]};
        return true;
    };
    // The entry in hand; the nearest of a quad node's entries is taken next
    // without a trip through the stack.
    Pending pending{0, 0, -std::numeric_limits<float>::infinity()};
    for (;;) {
        if (pending.count != 0) {
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
        } else if (visitQuad(pending)) {
            continue;
        }
        // The next pending entry that can still hold a nearer hit.
        bool more = false;
        while (size != 0 && !more) {
            pending = stack[--size];
            more = !beyondReach(pending.enter, nearest);
        }
        if (!more) break;
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
