// packTree: the quad nodes and corner array of a finished tree.
#include "bvh/packed_tree.h"

#include <algorithm>
#include <cmath>
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
        tree_.gates.emplace_back();
        QuadNode quad{};
        QuadGates gates{};
        for (uint32_t& first : quad.first) first = kNoEntry;
        const BVHNode* children[2] = {node.left.get(), node.right.get()};
        for (int c = 0; c < 2; ++c) {
            const BVHNode* child = children[c];
            if (!child) continue;
            if (isLeaf(*child)) {
                place(quad, gates, 2 * c, *child, *child);
                continue;
            }
            if (child->left) place(quad, gates, 2 * c, *child->left, *child);
            if (child->right) place(quad, gates, 2 * c + 1, *child->right, *child);
        }
        tree_.nodes[index] = quad;
        tree_.gates[index] = gates;
        return static_cast<uint32_t>(index);
    }

  private:
    void place(QuadNode& quad, QuadGates& gates, int lane, const BVHNode& entry,
               const BVHNode& gate) {
        for (int axis = 0; axis < 3; ++axis) {
            const float lo = entry.bounds.min[axis], hi = entry.bounds.max[axis];
            const float gateLo = gate.bounds.min[axis], gateHi = gate.bounds.max[axis];
            quad.lo[axis][lane] = lo;
            quad.hi[axis][lane] = hi;
            gates.lo[axis][lane] = gateLo;
            gates.hi[axis][lane] = gateHi;
            if (!(std::isfinite(lo) && std::isfinite(hi) && gateLo <= lo && hi <= gateHi &&
                  std::isfinite(gateLo) && std::isfinite(gateHi)))
                tree_.nested = false;
        }
        if (!isLeaf(entry)) {
            quad.first[lane] = pack(entry);
            return;
        }
        if (entry.triangles.empty()) return; // nothing to test: the lane stays empty
        quad.first[lane] = static_cast<uint32_t>(tree_.corners.size() / 9);
        quad.count[lane] = static_cast<uint32_t>(entry.triangles.size());
        for (const Triangle& t : entry.triangles) {
            const float edges[3] = {glm::length(t.p1 - t.p0), glm::length(t.p2 - t.p1),
                                    glm::length(t.p0 - t.p2)};
            // A NaN edge is left out: its triangle never reports a hit.
            for (float e : edges) tree_.longestEdge = std::max(tree_.longestEdge, e);
            const float corners[9] = {t.p0.x, t.p0.y, t.p0.z, t.p1.x, t.p1.y,
                                      t.p1.z, t.p2.x, t.p2.y, t.p2.z};
            tree_.corners.insert(tree_.corners.end(), corners, corners + 9);
        }
    }

    PackedTree& tree_;
};

// Counts what the copy will hold, so that the arrays are sized once: a quad
// node stands for each inner node an even number of levels below the root.
struct Measure {
    size_t triangles = 0, quads = 0;
    int levels = 0;
};

void measure(const BVHNode& node, int level, Measure& m) {
    m.levels = std::max(m.levels, level + 1);
    if (isLeaf(node)) {
        m.triangles += node.triangles.size();
        return;
    }
    m.quads += level % 2 == 0;
    if (node.left) measure(*node.left, level + 1, m);
    if (node.right) measure(*node.right, level + 1, m);
}

// The traversal's fixed stack holds the pending entries of this many levels.
constexpr int kMaxLevels = 65;

} // namespace

std::unique_ptr<PackedTree> packTree(const BVHNode& root) {
#if defined(__SSE2__)
    if (isLeaf(root)) return nullptr;
    Measure m;
    measure(root, 0, m);
    if (m.levels > kMaxLevels ||
        m.triangles + kPaddingTriangles > std::numeric_limits<uint32_t>::max())
        return nullptr;
    const size_t triangles = m.triangles, quads = m.quads;
    auto tree = std::make_unique<PackedTree>();
    tree->nodes.reserve(quads);
    tree->gates.reserve(quads);
    tree->corners.reserve(9 * (triangles + kPaddingTriangles));
    tree->bounds = root.bounds;
    Packer(*tree).pack(root);
    tree->corners.resize(9 * (triangles + kPaddingTriangles), 0.0f);
    return tree;
#else
    (void)root;
    return nullptr;
#endif
}

} // namespace korvex_detail
