#include "octree/packed_octree.h"

#include "octree/triangle_number.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace octree_detail {

namespace {

constexpr int kDeepestPacked = 64; // builds stop at depth 9; anything deeper was made by hand
constexpr size_t kMostGroups = std::numeric_limits<uint32_t>::max() / 2; // record fields are 32-bit

inline uint64_t mix(uint64_t hash, uint64_t word) {
    return (hash ^ word) * 0x9E3779B97F4A7C15ull;
}

class Packer {
  public:
    Packer(PackedOctree& out, const std::vector<kvx::nsVertex>& vertices,
           const std::vector<unsigned int>& indices, size_t nodeLimit)
        : out_(out), vertices_(vertices), indices_(indices), nodeLimit_(nodeLimit) {}

    // Sizes the arrays for the tree under `node`, so that packing never moves them; false when
    // the tree is not packable by size or depth.
    bool reserve(const OctreeNode& root) {
        size_t nodes = 0, boxes = 0, groups = 0;
        if (!count(root, 0, nodes, boxes, groups)) return false;
        out_.nodes.reserve(nodes);
        out_.boxes.reserve(boxes);
        out_.groups.reserve(groups);
        return true;
    }

    // The node's record, or kNoRecord when the tree is not packable.
    uint32_t pack(const OctreeNode& node, int depth) {
        if (depth > kDeepestPacked || out_.nodes.size() >= nodeLimit_ ||
            out_.groups.size() + node.triangles.size() / 4 + 1 >= kMostGroups)
            return kNoRecord;
        const uint32_t self = static_cast<uint32_t>(out_.nodes.size());
        out_.nodes.push_back({&node, nodeSignature(node), static_cast<uint32_t>(out_.groups.size()),
                              static_cast<uint32_t>(node.triangles.size()), kNoRecord});
        packList(node.triangles);
        if (node.isLeaf()) return self;
        // The copy's walk ranks hits by one measure across the tree, which holds where only
        // leaves have lists, as in every builder's tree.
        if (!node.triangles.empty()) return kNoRecord;

        const uint32_t boxes = static_cast<uint32_t>(out_.boxes.size());
        out_.nodes[self].children = boxes;
        out_.boxes.emplace_back();
        {
            ChildBoxes& lanes = out_.boxes[boxes];
            lanes.present = 0;
            for (int slot = 0; slot < 8; ++slot) {
                lanes.record[slot] = kNoRecord;
                const OctreeNode* child = node.children[slot];
                // An empty slot's lanes hold a point box that is masked off by `present`.
                const AABB box = child ? child->worldBounds : AABB(vec3(0.0f), vec3(0.0f));
                for (int axis = 0; axis < 3; ++axis) {
                    lanes.lo[axis][slot] = box.min[axis];
                    lanes.hi[axis][slot] = box.max[axis];
                }
                if (child) {
                    lanes.present |= 1u << slot;
                    noteBox(box);
                }
            }
        }
        for (int slot = 0; slot < 8; ++slot) {
            const OctreeNode* child = node.children[slot];
            if (!child) continue;
            const uint32_t record = pack(*child, depth + 1);
            if (record == kNoRecord) return kNoRecord;
            out_.boxes[boxes].record[slot] = record; // `out_.boxes` may have moved meanwhile
        }
        return self;
    }

    void noteBox(const AABB& box) {
        for (int axis = 0; axis < 3; ++axis)
            if (!std::isfinite(box.min[axis]) || !std::isfinite(box.max[axis]))
                out_.finiteBoxes = false;
    }

  private:
    bool count(const OctreeNode& node, int depth, size_t& nodes, size_t& boxes, size_t& groups) {
        if (depth > kDeepestPacked || ++nodes > nodeLimit_) return false;
        groups += (node.triangles.size() + 3) / 4;
        if (groups >= kMostGroups) return false;
        bool inner = false;
        for (const OctreeNode* child : node.children) {
            if (!child) continue;
            inner = true;
            if (!count(*child, depth + 1, nodes, boxes, groups)) return false;
        }
        boxes += inner ? 1 : 0;
        return true;
    }

    void packList(const std::vector<int>& list) {
        for (size_t start = 0; start < list.size(); start += 4) {
            CornerGroup group;
            for (int lane = 0; lane < 4; ++lane) {
                // Lanes past the end repeat lane 0 so that a group of finite corners stays
                // finite, which keeps the identity placement's quick path.
                const size_t entry = start + lane < list.size() ? start + lane : start;
                group.number[lane] = list[entry];
                unsigned int v[3];
                const bool usable = triangleCorners(list[entry], indices_, vertices_.size(), v);
                if (usable && entry == start + lane) noteEdges(v);
                for (int k = 0; k < 3; ++k)
                    for (int axis = 0; axis < 3; ++axis)
                        group.corner[k][axis][lane] = usable
                                                          ? vertices_[v[k]].position[axis]
                                                          : std::numeric_limits<float>::quiet_NaN();
            }
            out_.groups.push_back(group);
        }
    }

    // Squared for now; packOctree takes the root at the end. NaN edges are left out: a triangle
    // with a NaN corner never hits.
    void noteEdges(const unsigned int v[3]) {
        for (int k = 0; k < 3; ++k) {
            const vec3 edge = vertices_[v[(k + 1) % 3]].position - vertices_[v[k]].position;
            const float squared = glm::dot(edge, edge);
            if (squared > out_.longestEdge) out_.longestEdge = squared;
        }
    }

    PackedOctree& out_;
    const std::vector<kvx::nsVertex>& vertices_;
    const std::vector<unsigned int>& indices_;
    size_t nodeLimit_;
};

} // namespace

uint64_t nodeSignature(const OctreeNode& node) {
    uint64_t words[3];
    static_assert(sizeof(words) == sizeof(AABB), "a box is six floats");
    std::memcpy(words, &node.worldBounds, sizeof(words));
    uint64_t hash = 0xCBF29CE484222325ull;
    for (uint64_t word : words) hash = mix(hash, word);
    hash = mix(hash, node.triangles.size());
    for (const OctreeNode* child : node.children)
        hash = mix(hash, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(child)));
    return hash ^ (hash >> 29);
}

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
    packer.noteBox(root.worldBounds);
    if (!packer.reserve(root) || packer.pack(root, 0) == kNoRecord) return nullptr;
    out->longestEdge = std::sqrt(out->longestEdge) * (1.0f + 1e-6f); // a root rounded down
    return out;
#else
    (void)root, (void)vertices, (void)indices, (void)nodeLimit;
    return nullptr;
#endif
}

} // namespace octree_detail
