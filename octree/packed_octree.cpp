#include "octree/packed_octree.h"

#include "octree/triangle_number.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace octree_detail {

#if defined(__SSE2__) // the copy is walked with these instructions only

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kDeepestPacked = 64; // builds stop at depth 9; anything deeper was made by hand
constexpr size_t kMostGroups = std::numeric_limits<uint32_t>::max() / 2; // record fields are 32-bit

class Packer {
  public:
    Packer(PackedOctree& out, const std::vector<kvx::nsVertex>& vertices,
           const std::vector<unsigned int>& indices, size_t nodeLimit)
        : out_(out), vertices_(vertices), indices_(indices), nodeLimit_(nodeLimit) {}

    // Sizes the arrays for the tree under `root`; false when the tree is not packable by size
    // or depth.
    bool reserve(const OctreeNode& root) {
        size_t nodes = 0, inner = 0, blocks = 0, groups = 0;
        if (!count(root, 0, nodes, inner, blocks, groups)) return false;
        out_.slotSets.reserve(inner);
        out_.childBoxes.reserve(blocks);
        out_.children.reserve(4 * blocks);
        out_.childBounds.reserve(4 * blocks);
        out_.groups.reserve(groups);
        out_.numbers.reserve(4 * groups);
        out_.groupBoxes.reserve((groups + 3) / 4);
        return true;
    }

    // Fills `ref` for `node` and packs everything below it; false when the tree is not
    // packable.
    bool pack(const OctreeNode& node, int depth, NodeRef& ref) {
        if (depth > kDeepestPacked) return false;
        ref.source = &node;
        ref.slots = 0;
        if (node.isLeaf()) {
            // Leaves rank by their first group, which an empty list would share with the next.
            if (node.triangles.empty() || node.triangles.size() >= kInner ||
                out_.groups.size() + node.triangles.size() / 4 + 1 >= kMostGroups)
                return false;
            ref.first = static_cast<uint32_t>(out_.groups.size());
            ref.shape = static_cast<uint32_t>(node.triangles.size());
            packList(node.triangles);
            return true;
        }
        // The copy's walk ranks hits by one measure across the tree, which holds where only
        // leaves have lists, as in every builder's tree.
        if (!node.triangles.empty()) return false;

        const OctreeNode* children[8];
        uint32_t count = 0;
        for (const OctreeNode* child : node.children)
            if (child) children[count++] = child;
        ref.slots = static_cast<uint32_t>(out_.slotSets.size());
        out_.slotSets.push_back(SlotSet{});
        std::copy(node.children, node.children + 8, out_.slotSets.back().slot);
        ref.first = static_cast<uint32_t>(out_.childBoxes.size());
        ref.shape = kInner | count;
        out_.childBoxes.resize(out_.childBoxes.size() + (count + 3) / 4, BoxLanes{});
        out_.children.resize(4 * out_.childBoxes.size(), NodeRef{});
        out_.childBounds.resize(4 * out_.childBoxes.size(), AABB(vec3(0.0f), vec3(0.0f)));
        for (uint32_t i = 0; i < count; ++i) {
            BoxLanes& boxes = out_.childBoxes[ref.first + i / 4];
            const AABB& box = children[i]->worldBounds;
            out_.childBounds[size_t{4} * ref.first + i] = box;
            for (int axis = 0; axis < 3; ++axis) {
                boxes.lo[axis][i % 4] = box.min[axis];
                boxes.hi[axis][i % 4] = box.max[axis];
            }
            noteBox(box);
        }
        for (uint32_t i = 0; i < count; ++i) {
            NodeRef child;
            if (!pack(*children[i], depth + 1, child)) return false;
            out_.children[size_t{4} * ref.first + i] = child; // the array may have moved
        }
        return true;
    }

    void noteBox(const AABB& box) {
        for (int axis = 0; axis < 3; ++axis) {
            if (!std::isfinite(box.min[axis]) || !std::isfinite(box.max[axis]))
                out_.finiteBoxes = out_.orderedBoxes = false;
            else if (!(box.min[axis] <= box.max[axis]))
                out_.orderedBoxes = false;
        }
    }

  private:
    bool count(const OctreeNode& node, int depth, size_t& nodes, size_t& inner, size_t& blocks,
               size_t& groups) {
        if (depth > kDeepestPacked || ++nodes > nodeLimit_) return false;
        groups += (node.triangles.size() + 3) / 4;
        if (groups >= kMostGroups) return false;
        size_t children = 0;
        for (const OctreeNode* child : node.children) {
            if (!child) continue;
            ++children;
            if (!count(*child, depth + 1, nodes, inner, blocks, groups)) return false;
        }
        if (children) ++inner;
        blocks += (children + 3) / 4;
        return true;
    }

    void packList(const std::vector<int>& list) {
        for (size_t start = 0; start < list.size(); start += 4) {
            CornerGroup group;
            int32_t numbers[4];
            for (int lane = 0; lane < 4; ++lane) {
                // Lanes past the end repeat lane 0 so that a group of finite corners stays
                // finite, which keeps the identity placement's quick path.
                const size_t entry = start + lane < list.size() ? start + lane : start;
                numbers[lane] = list[entry];
                unsigned int v[3];
                const bool usable = triangleCorners(list[entry], indices_, vertices_.size(), v);
                if (usable && entry == start + lane) noteCorners(v);
                for (int k = 0; k < 3; ++k)
                    for (int axis = 0; axis < 3; ++axis)
                        group.corner[k][axis][lane] = usable
                                                          ? vertices_[v[k]].position[axis]
                                                          : std::numeric_limits<float>::quiet_NaN();
            }
            out_.numbers.insert(out_.numbers.end(), numbers, numbers + 4);
            noteGroupBox(group);
            out_.groups.push_back(group);
        }
    }

    // The box of the group about to be appended. NaN corners would drop out of a min and max,
    // and an infinite one gives no useful box, so either makes the box all of space.
    void noteGroupBox(const CornerGroup& group) {
        const size_t index = out_.groups.size();
        if (index % 4 == 0) out_.groupBoxes.push_back(BoxLanes{});
        BoxLanes& boxes = out_.groupBoxes.back();
        const int lane = static_cast<int>(index % 4);
        const __m128 zero = _mm_setzero_ps();
        int finite = 15;
        for (int axis = 0; axis < 3; ++axis) {
            __m128 lo = _mm_load_ps(group.corner[0][axis]), hi = lo;
            for (int k = 0; k < 3; ++k) {
                const __m128 c = _mm_load_ps(group.corner[k][axis]);
                finite &= _mm_movemask_ps(_mm_cmpeq_ps(_mm_sub_ps(c, c), zero));
                lo = _mm_min_ps(lo, c);
                hi = _mm_max_ps(hi, c);
            }
            float l[4], h[4];
            _mm_storeu_ps(l, lo);
            _mm_storeu_ps(h, hi);
            boxes.lo[axis][lane] = std::min(std::min(l[0], l[1]), std::min(l[2], l[3]));
            boxes.hi[axis][lane] = std::max(std::max(h[0], h[1]), std::max(h[2], h[3]));
        }
        if (finite == 15) return;
        for (int axis = 0; axis < 3; ++axis) {
            boxes.lo[axis][lane] = -kInfinity;
            boxes.hi[axis][lane] = kInfinity;
        }
    }

    void noteCorners(const unsigned int v[3]) {
        for (int k = 0; k < 3; ++k) {
            const vec3& p = vertices_[v[k]].position;
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
                out_.finiteCorners = false;
        }
    }

    PackedOctree& out_;
    const std::vector<kvx::nsVertex>& vertices_;
    const std::vector<unsigned int>& indices_;
    size_t nodeLimit_;
};

// The longest edge of any triangle a number can address in these arrays, not only of those in
// the tree: a list changed by hand in a subtree the walk passes over is never read, and the pass
// over must hold for whatever triangle it may hold. NaN edges are left out: a triangle with a NaN
// corner never hits.
float longestEdgeOfMesh(const std::vector<kvx::nsVertex>& vertices,
                        const std::vector<unsigned int>& indices) {
    const size_t count =
        std::min(indices.size() / 3, static_cast<size_t>(std::numeric_limits<int>::max()) + 1);
    float longest = 0.0f; // squared until the end
    for (size_t t = 0; t < count; ++t) {
        unsigned int v[3];
        if (!triangleCorners(static_cast<int>(t), indices, vertices.size(), v)) continue;
        for (int k = 0; k < 3; ++k) {
            const vec3 edge = vertices[v[(k + 1) % 3]].position - vertices[v[k]].position;
            const float squared = glm::dot(edge, edge);
            if (squared > longest) longest = squared;
        }
    }
    return std::sqrt(longest) * (1.0f + 1e-6f); // a root rounded down
}

} // namespace

#endif

std::unique_ptr<PackedOctree> packOctree(const OctreeNode& root,
                                         const std::vector<kvx::nsVertex>& vertices,
                                         const std::vector<unsigned int>& indices,
                                         size_t nodeLimit) {
#if defined(__SSE2__)
    auto out = std::make_unique<PackedOctree>();
    out->vertexData = vertices.data();
    out->vertexCount = vertices.size();
    out->indexData = indices.data();
    out->indexCount = indices.size();
    if (root.isLeaf()) return nullptr; // a single list gains nothing from a copy
    Packer packer(*out, vertices, indices, nodeLimit);
    out->rootBounds = root.worldBounds;
    packer.noteBox(root.worldBounds);
    if (!packer.reserve(root) || !packer.pack(root, 0, out->root)) return nullptr;
    out->longestEdge = longestEdgeOfMesh(vertices, indices);
    return out;
#else
    (void)root, (void)vertices, (void)indices, (void)nodeLimit;
    return nullptr;
#endif
}

} // namespace octree_detail
