// packTree: the quad nodes and corner array of a finished tree.
#include "bvh/packed_tree.h"

#include <algorithm>
#include <limits>

namespace korvex_detail {

namespace {

bool isLeaf(const BVHNode& node) {
    return !node.left && !node.right;
}

// Triangles read past the last one by the four-lane loads, which fetch whole
// groups of four and 16 bytes per corner.
constexpr size_t kPaddingTriangles = 4;

class Packer {
  public:
    explicit Packer(PackedTree& tree) : tree_(tree) {}

    // Packs inner node `node` and everything below it; returns its quad node.
    uint32_t pack(const BVHNode& node) {
        const size_t index = tree_.nodes.size();
        tree_.nodes.emplace_back();
        QuadNode quad{};
        const BVHNode* children[2] = {node.left.get(), node.right.get()};
        for (int c = 0; c < 2; ++c) {
            const BVHNode* child = children[c];
            if (!child) continue;
            if (isLeaf(*child)) {
                place(quad, 2 * c, *child, *child);
                continue;
            }
            if (child->left) place(quad, 2 * c, *child->left, *child);
            if (child->right) place(quad, 2 * c + 1, *child->right, *child);
        }
        tree_.nodes[index] = quad;
        return static_cast<uint32_t>(index);
    }

  private:
    void place(QuadNode& quad, int lane, const BVHNode& entry, const BVHNode& gate) {
        for (int axis = 0; axis < 3; ++axis) {
            quad.ownLo[axis][lane] = entry.bounds.min[axis];
            quad.ownHi[axis][lane] = entry.bounds.max[axis];
            quad.gateLo[axis][lane] = gate.bounds.min[axis];
            quad.gateHi[axis][lane] = gate.bounds.max[axis];
        }
        quad.validMask |= 1u << lane;
        if (!isLeaf(entry)) {
            quad.first[lane] = pack(entry);
            return;
        }
        quad.leafMask |= 1u << lane;
        quad.first[lane] = static_cast<uint32_t>(tree_.triangleCount);
        quad.count[lane] = static_cast<uint32_t>(entry.triangles.size());
        for (const Triangle& t : entry.triangles) {
            const float corners[9] = {t.p0.x, t.p0.y, t.p0.z, t.p1.x, t.p1.y,
                                      t.p1.z, t.p2.x, t.p2.y, t.p2.z};
            tree_.corners.insert(tree_.corners.end(), corners, corners + 9);
        }
        tree_.triangleCount += entry.triangles.size();
    }

    PackedTree& tree_;
};

// Counts what the copy will hold, so that both arrays are sized once.
void measure(const BVHNode& node, size_t& triangles, size_t& inner) {
    if (isLeaf(node)) {
        triangles += node.triangles.size();
        return;
    }
    ++inner;
    if (node.left) measure(*node.left, triangles, inner);
    if (node.right) measure(*node.right, triangles, inner);
}

} // namespace

std::unique_ptr<PackedTree> packTree(const BVHNode& root) {
#if defined(__SSE2__)
    if (isLeaf(root)) return nullptr;
    size_t triangles = 0, inner = 0;
    measure(root, triangles, inner);
    if (triangles + kPaddingTriangles > std::numeric_limits<uint32_t>::max()) return nullptr;
    auto tree = std::make_unique<PackedTree>();
    tree->nodes.reserve(inner);
    tree->corners.reserve(9 * (triangles + kPaddingTriangles));
    Packer(*tree).pack(root);
    tree->corners.resize(9 * (triangles + kPaddingTriangles), 0.0f);
    return tree;
#else
    (void)root;
    return nullptr;
#endif
}

} // namespace korvex_detail
