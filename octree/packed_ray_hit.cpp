// The octree's ray hit on the packed copy.
//
// The plain recursion keeps, in each leaf, the hit of least ray parameter (the earlier entry on
// a tie), and in each inner node the child hit of least Euclidean distance (the lower slot on a
// tie). Distance never falls as the parameter grows, so every hit in a leaf that is nearer in
// parameter is no farther in distance; the answer is therefore the least hit under one order:
// distance, then the leaf's place in the tree's depth-first order, then the parameter, then the
// entry's place in its list. This walk finds that least hit over the same leaves (a subtree is
// reached only through the same box tests), in any order, and passes over a subtree when no hit
// in it can be as near as the best so far: the distance from the origin to its box, grown by
// how far a hit may stray from its triangle, exceeds it.
#include "octree/packed_octree.h"
#include "octree/ray_query.h"

#include "bvh/traverse_rules.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstring>

namespace octree_detail {

namespace {

constexpr int kStale = -1;
constexpr uint32_t kNoLeaf = 0xFFFFFFFFu; // no leaf yet; ranks stay below 2^31
constexpr int kStackDepth = 8 * 66;       // eight children a level, packed trees at most 65 deep

// The best hit so far, in the order of the file comment.
struct Best {
    float distance = kFloatMax; // a hit must be nearer than the largest float to count
    uint32_t leaf = kNoLeaf;    // the leaf's rank (NodeRef::first); none found yet
    float t = 0.0f;
    vec3 point;
    int triangle = -1;
};

struct Pending {
    NodeRef node;
    float nearest; // no hit below it lies nearer than this
};

// Sixteen bytes at each place, compared bit for bit.
inline __m128i sameBytes(const void* a, const void* b) {
    return _mm_cmpeq_epi8(_mm_loadu_si128(static_cast<const __m128i*>(a)),
                          _mm_loadu_si128(static_cast<const __m128i*>(b)));
}

bool sameBox(const AABB& a, const AABB& b) {
    // Two overlapping 16-byte halves of the six floats.
    const char* x = reinterpret_cast<const char*>(&a);
    const char* y = reinterpret_cast<const char*>(&b);
    return _mm_movemask_epi8(_mm_and_si128(sameBytes(x, y), sameBytes(x + 8, y + 8))) == 0xFFFF;
}

bool sameSlots(const OctreeNode& source, const SlotSet& packed) {
    static_assert(sizeof(source.children) == 64 && sizeof(packed.slot) == 64, "eight pointers");
    const char* x = reinterpret_cast<const char*>(source.children);
    const char* y = reinterpret_cast<const char*>(packed.slot);
    const __m128i same =
        _mm_and_si128(_mm_and_si128(sameBytes(x, y), sameBytes(x + 16, y + 16)),
                      _mm_and_si128(sameBytes(x + 32, y + 32), sameBytes(x + 48, y + 48)));
    return _mm_movemask_epi8(same) == 0xFFFF;
}

const SlotSet kLeafSlots{}; // all null

// The node still is what was packed, in what decides where the walk goes from it: its child
// slots and its list, bit for bit. Its box is compared by its parent's check, the root's at the
// start of the walk. The slots are compared before the walk follows them, so that it never
// reaches a node the tree no longer holds.
bool matchesSource(const NodeRef& node, const PackedOctree& tree) {
    const OctreeNode& source = *node.source;
    if (node.shape & kInner)
        return sameSlots(source, tree.slotSets[node.slots]) && source.triangles.empty();
    // A leaf's entries lie in `numbers` in list order, from four times its first group.
    return sameSlots(source, kLeafSlots) && source.triangles.size() == node.shape &&
           std::memcmp(source.triangles.data(), &tree.numbers[size_t{4} * node.first],
                       node.shape * sizeof(int32_t)) == 0;
}

// Every child's box is as packed, entered or not: a child's box decides whether the child is
// entered at all, and one grown by hand could lead to a hit that its packed box keeps the walk
// from. The node's own check has shown its child slots to be the packed ones.
bool childBoxesMatch(const OctreeNode& source, uint32_t first, const PackedOctree& tree) {
    const AABB* packed = &tree.childBounds[size_t{4} * first];
    for (const OctreeNode* child : source.children)
        if (child && !sameBox(child->worldBounds, *packed++)) return false;
    return true;
}

void prefetchChildBoxes(const OctreeNode& source) {
    for (const OctreeNode* child : source.children) {
        if (!child) continue;
        const char* box = reinterpret_cast<const char*>(&child->worldBounds);
        __builtin_prefetch(box);
        __builtin_prefetch(box + sizeof(AABB) - 1);
    }
}

// What entering the node will read first: the source's fields, and the children's boxes, or
// the list's entries and its groups' boxes (its groups, when they are not filtered).
void prefetchNode(const PackedOctree& tree, const NodeRef& node, bool groupsFiltered) {
    const char* source = reinterpret_cast<const char*>(node.source);
    __builtin_prefetch(source + offsetof(OctreeNode, triangles));
    __builtin_prefetch(source + offsetof(OctreeNode, children));
    __builtin_prefetch(source + offsetof(OctreeNode, children) + sizeof(node.source->children) - 1);
    if (node.shape & kInner) __builtin_prefetch(&tree.slotSets[node.slots]);
    const char* first;
    size_t bytes;
    if (node.shape & kInner) {
        // The children's references wait for their boxes' test, which passes most over.
        first = reinterpret_cast<const char*>(&tree.childBoxes[node.first]);
        bytes = ((node.shape & ~kInner) + 3) / 4 * sizeof(BoxLanes);
    } else if (groupsFiltered) {
        // So do the groups themselves.
        first = reinterpret_cast<const char*>(&tree.groupBoxes[node.first / 4]);
        bytes = ((node.first % 4 + (node.shape + 3) / 4 + 3) / 4) * sizeof(BoxLanes);
    } else {
        first = reinterpret_cast<const char*>(&tree.groups[node.first]);
        bytes = (node.shape + 3) / 4 * sizeof(CornerGroup);
    }
    if (!(node.shape & kInner)) __builtin_prefetch(&tree.numbers[size_t{4} * node.first]);
    for (size_t line = 0; line < bytes; line += 64) __builtin_prefetch(first + line);
}

// Which groups of a leaf the ray may hit, under the identity for a steady ray: those whose box,
// grown by how far a hit may stray from its triangle, the line meets. The point o + d t of a
// hit lies within that distance of its group's box on every axis, so t lies in each axis's span
// of the grown box; where the spans share no t, no triangle of the group can report a hit.
class GroupFilter {
  public:
    GroupFilter(const RayQuery& q, float hitSlack) : on_(q.probe.steadyUnderIdentity()) {
        // A little more than the slack, and a relative part per coordinate, so that the grown
        // box's rounded sides still lie outside the exact ones.
        grow_ = _mm_set1_ps(hitSlack * (1.0f + 1e-6f));
        on_ = on_ && std::isfinite(hitSlack);
        for (int axis = 0; axis < 3; ++axis) {
            origin_[axis] = _mm_set1_ps(q.ray.origin[axis]);
            inverse_[axis] = _mm_set1_ps(1.0f / q.ray.direction[axis]);
        }
    }

    bool on() const { return on_; }

    // A bit per lane of `boxes` that the ray may hit.
    int mayHit(const BoxLanes& boxes) const {
        const __m128 relative = _mm_set1_ps(2.5e-7f); // about 4 units of rounding
        const __m128 magnitude = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
        __m128 enter = _mm_set1_ps(-kInfinity), exit = _mm_set1_ps(kInfinity);
        for (int axis = 0; axis < 3; ++axis) {
            const __m128 lo = _mm_load_ps(boxes.lo[axis]), hi = _mm_load_ps(boxes.hi[axis]);
            const __m128 loGrown =
                _mm_sub_ps(lo, _mm_add_ps(grow_, _mm_mul_ps(_mm_and_ps(lo, magnitude), relative)));
            const __m128 hiGrown =
                _mm_add_ps(hi, _mm_add_ps(grow_, _mm_mul_ps(_mm_and_ps(hi, magnitude), relative)));
            const __m128 t1 = _mm_mul_ps(_mm_sub_ps(loGrown, origin_[axis]), inverse_[axis]);
            const __m128 t2 = _mm_mul_ps(_mm_sub_ps(hiGrown, origin_[axis]), inverse_[axis]);
            enter = _mm_max_ps(enter, _mm_min_ps(t1, t2));
            exit = _mm_min_ps(exit, _mm_max_ps(t1, t2));
        }
        // The spans carry a few units of rounding; only a clear gap passes a group over.
        const __m128 slack = _mm_set1_ps(korvex_detail::kSpanSlack);
        const __m128 enterLow = _mm_sub_ps(enter, _mm_mul_ps(_mm_and_ps(enter, magnitude), slack));
        const __m128 exitHigh = _mm_add_ps(exit, _mm_mul_ps(_mm_and_ps(exit, magnitude), slack));
        return _mm_movemask_ps(_mm_cmple_ps(enterLow, exitHigh));
    }

  private:
    bool on_;
    __m128 grow_;
    __m128 origin_[3], inverse_[3];
};

// The hits of one group, lanes below `lanes`, against the best so far.
void hitsInGroup(uint32_t g, uint32_t lanes, uint32_t rank, const PackedOctree& tree,
                 const RayQuery& q, Best& best) {
    const CornerGroup& group = tree.groups[g];
    Lanes3 p[3];
    for (int k = 0; k < 3; ++k) {
        const Lanes3 corner{_mm_load_ps(group.corner[k][0]), _mm_load_ps(group.corner[k][1]),
                            _mm_load_ps(group.corner[k][2])};
        p[k] = tree.finiteCorners ? q.lanes.placeFinite(corner) : q.lanes.place(corner);
    }
    __m128 tLanes;
    const int hits = hitFour(q.origin, q.direction, p[0], p[1], p[2], tLanes) & ((1 << lanes) - 1);
    if (!hits) return;
    float t[4];
    _mm_storeu_ps(t, tLanes);
    for (uint32_t lane = 0; lane < lanes; ++lane) {
        if (!(hits >> lane & 1) || !(t[lane] < kFloatMax)) continue;
        const vec3 point = q.ray.origin + q.ray.direction * t[lane];
        const float distance = glm::length(point - q.ray.origin);
        // Within one leaf, list order decides ties of the parameter.
        const bool better =
            best.leaf == kNoLeaf
                ? distance < kFloatMax
                : distance < best.distance ||
                      (distance == best.distance &&
                       (rank < best.leaf || (rank == best.leaf && t[lane] < best.t)));
        if (!better) continue;
        best.distance = distance;
        best.leaf = rank;
        best.t = t[lane];
        best.point = point;
        best.triangle = tree.numbers[size_t{4} * g + lane];
    }
}

// The hits of a leaf's list, in list order, against the best so far.
void hitsInLeaf(const NodeRef& node, const PackedOctree& tree, const RayQuery& q,
                const GroupFilter& filter, Best& best) {
    const uint32_t first = node.first, end = first + (node.shape + 3) / 4;
    for (uint32_t block = first / 4; block * 4 < end; ++block) {
        int lanes = 15;
        if (block * 4 < first) lanes &= 15 << (first - block * 4);
        if (block * 4 + 4 > end) lanes &= 15 >> (block * 4 + 4 - end);
        if (filter.on()) lanes &= filter.mayHit(tree.groupBoxes[block]);
        for (int lane = 0; lane < 4; ++lane)
            if (lanes >> lane & 1)
                for (size_t line = 0; line < sizeof(CornerGroup); line += 64)
                    __builtin_prefetch(
                        reinterpret_cast<const char*>(&tree.groups[block * 4 + lane]) + line);
        for (int lane = 0; lane < 4; ++lane) {
            if (!(lanes >> lane & 1)) continue;
            const uint32_t g = block * 4 + lane, start = 4 * (g - first);
            hitsInGroup(g, node.shape - start < 4 ? node.shape - start : 4, first, tree, q, best);
        }
    }
}

// How far from its placed box a hit below a node may lie: the placement's rounding of the
// corners and boxes, and the triangle test's stray (hitStray), for the arrays' longest edge and
// a reach of the farthest corner of the placed root box. Infinite when nothing is known.
float hitSlack(const PackedOctree& tree, const RayQuery& q, const AABB& rootModel,
               const PlacedBox& rootBox) {
    float frobenius = 0.0f;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) frobenius += q.model[c][r] * q.model[c][r];
    const float pad = q.skip.placementPad(rootModel);
    vec3 far;
    for (int i = 0; i < 3; ++i)
        far[i] = std::max(std::fabs(rootBox.lo[i] - q.ray.origin[i]),
                          std::fabs(rootBox.hi[i] - q.ray.origin[i])) +
                 pad;
    const float edge = tree.longestEdge * std::sqrt(frobenius) * (1.0f + 1e-5f) + 2.0f * pad;
    const float slack =
        korvex_detail::hitStray(glm::length(q.ray.direction), edge, glm::length(far)) + 2.0f * pad;
    return std::isfinite(slack) ? slack : std::numeric_limits<float>::infinity();
}

struct Walk {
    const PackedOctree& tree;
    const RayQuery& q;
    const GroupFilter filter;
    __m128 origin[3];
    __m128 slack;
    Pending stack[kStackDepth]; // left unset: only entries below `depth` are read
    int depth = 0;
    // The inner nodes entered whose children's boxes are still to be compared: at the end of
    // the walk, once their memory has had time to arrive, or when the list is full.
    struct Entered {
        const OctreeNode* source;
        uint32_t first;
    } entered[32];
    int enteredCount = 0;

    Walk(const PackedOctree& packed, const RayQuery& query, float hitSlack)
        : tree(packed), q(query), filter(query, hitSlack), slack(_mm_set1_ps(hitSlack)) {
        for (int axis = 0; axis < 3; ++axis) origin[axis] = _mm_set1_ps(q.ray.origin[axis]);
    }

    // Notes an entered inner node; false when a node noted before no longer matches.
    bool noteEntered(const NodeRef& node) {
        if (enteredCount == 32 && !enteredChildBoxesMatch()) return false;
        prefetchChildBoxes(*node.source);
        entered[enteredCount++] = {node.source, node.first};
        return true;
    }

    bool enteredChildBoxesMatch() {
        for (int i = 0; i < enteredCount; ++i)
            if (!childBoxesMatch(*entered[i].source, entered[i].first, tree)) return false;
        enteredCount = 0;
        return true;
    }

    // Pushes the children whose boxes the ray meets, farthest entry first so that the nearest
    // is walked next; false when the stack is full.
    bool pushChildren(const NodeRef& node, float bestDistance) {
        struct Found {
            float entry, nearest;
            uint32_t child; // the child's place among the node's children
        };
        Found found[8];
        int count = 0;
        const uint32_t children = node.shape & ~kInner;
        const BoxLanes* blocks = &tree.childBoxes[node.first];
        const __m128 best = _mm_set1_ps(bestDistance);
        for (uint32_t start = 0; start < children; start += 4) {
            const BoxLanes& block = blocks[start / 4];
            const int present = children - start >= 4 ? 15 : (1 << (children - start)) - 1;
            __m128 boxLo[3], boxHi[3], lo[3], hi[3], entry;
            for (int axis = 0; axis < 3; ++axis) {
                boxLo[axis] = _mm_load_ps(block.lo[axis]);
                boxHi[axis] = _mm_load_ps(block.hi[axis]);
            }
            int hits = tree.orderedBoxes
                           ? q.probe.hitsFourOrdered(boxLo, boxHi, lo, hi, entry)
                           : q.probe.hitsFour(boxLo, boxHi, tree.finiteBoxes, lo, hi, entry);
            hits &= present;
            if (!hits) continue;
            // The Euclidean gap from the origin to each grown box; NaN gives 0.
            __m128 gap2 = _mm_setzero_ps();
            for (int axis = 0; axis < 3; ++axis) {
                const __m128 below = _mm_sub_ps(_mm_sub_ps(lo[axis], slack), origin[axis]);
                const __m128 above = _mm_sub_ps(_mm_sub_ps(origin[axis], hi[axis]), slack);
                const __m128 g = _mm_max_ps(_mm_max_ps(below, above), _mm_setzero_ps());
                gap2 = _mm_add_ps(gap2, _mm_mul_ps(g, g));
            }
            const __m128 nearestLanes = _mm_mul_ps(_mm_sqrt_ps(gap2), _mm_set1_ps(1.0f - 1e-5f));
            // What lies beyond the best hit would be passed over when popped; drop it now.
            hits &= ~_mm_movemask_ps(_mm_cmpgt_ps(nearestLanes, best));
            if (!hits) continue;
            float nearest[4], enter[4];
            _mm_storeu_ps(nearest, nearestLanes);
            _mm_storeu_ps(enter, entry);
            for (int lane = 0; lane < 4; ++lane) {
                if (!(hits >> lane & 1)) continue;
                // Sorted by entry, farthest first; a NaN entry sorts first, walked last.
                int i = count++;
                for (; i > 0 && enter[lane] > found[i - 1].entry; --i) found[i] = found[i - 1];
                found[i] = {enter[lane], nearest[lane], start + static_cast<uint32_t>(lane)};
            }
        }
        if (depth + count > kStackDepth) return false;
        for (int i = 0; i < count; ++i) {
            const uint32_t child = found[i].child;
            const NodeRef& ref = tree.children[size_t{4} * node.first + child];
            prefetchNode(tree, ref, filter.on());
            stack[depth++] = {ref, found[i].nearest};
        }
        return true;
    }
};

} // namespace

int packedRayHit(const PackedOctree& tree, const RayQuery& query, const PlacedBox& rootBox,
                 vec3& hitPoint, int& hitTriangle) {
    if (!sameBox(tree.root.source->worldBounds, tree.rootBounds)) return kStale;
    Walk walk(tree, query, hitSlack(tree, query, tree.rootBounds, rootBox));
    Best best;
    walk.stack[walk.depth++] = {tree.root, 0.0f};
    while (walk.depth > 0) {
        const Pending next = walk.stack[--walk.depth];
        if (next.nearest > best.distance) continue; // nothing below can be as near
        if (!matchesSource(next.node, tree)) return kStale;
        if (!(next.node.shape & kInner)) {
            hitsInLeaf(next.node, tree, query, walk.filter, best);
            continue;
        }
        if (!walk.noteEntered(next.node)) return kStale;
        if (!walk.pushChildren(next.node, best.distance))
            return kStale; // deeper than a packed tree can be: let the nodes answer
    }
    if (!walk.enteredChildBoxesMatch()) return kStale;
    if (best.leaf == kNoLeaf) return 0;
    hitPoint = best.point;
    hitTriangle = best.triangle;
    return 1;
}

} // namespace octree_detail

#else

namespace octree_detail {

int packedRayHit(const PackedOctree&, const RayQuery&, const PlacedBox&, vec3&, int&) {
    return -1; // never packed without the vector instructions
}

} // namespace octree_detail

#endif
