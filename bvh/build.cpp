// createBVHNode. The tree is the one that repeated splitTriangles calls give,
// node for node and triangle for triangle, but the build does not copy whole
// triangle lists at every level: each triangle's box and centroid are worked
// out once, a node's triangles are a range of triangle numbers (kept in input
// order by a stable partition), and the records themselves are copied only
// into the leaves. A child's box is folded during its parent's partition, in
// the same order computeBoundingBox would fold it.
#include <korvex/bvh.h>

#include "bvh/node_store.h"
#include "bvh/packed_tree.h"
#include "bvh/split_rule.h"

#include <algorithm>
#include <cstdint>
#include <future>
#include <limits>
#include <new>
#include <stdexcept>

using namespace korvex_detail;

namespace {

constexpr size_t kLeafTriangles = 6;
constexpr int kDepthLimit = 64;
constexpr float kMinSurface = 1e-5f;
// Nodes at this depth or above build their children in two tasks.
constexpr int kLastTaskDepth = 3;

// What the build needs of one triangle: the box of its corners and its centroid.
struct Prim {
    vec3 lo, hi, centroid;
};

struct Input {
    const Triangle* triangles;
    const Prim* prims;
};

// One node's share of the work: its triangle numbers, in input order, and a
// scratch range of the same length that no other node touches.
struct Range {
    uint32_t* ids;
    uint32_t* scratch;
    size_t count;
};

// Slots a subtree of `count` triangles can need: a leaf holds at least one
// triangle, so at most 2 count - 1 nodes. Nodes whose children are built by
// tasks make only that one pair themselves.
size_t nodesHint(size_t count, int depth) {
    return depth <= kLastTaskDepth ? 2 : 2 * count;
}

void makeLeaf(const Input& in, Range range, BVHNode& node) {
    node.triangles.reserve(range.count);
    for (size_t i = 0; i < range.count; ++i) node.triangles.push_back(in.triangles[range.ids[i]]);
}

// What a node becomes: a leaf, or an inner node with the ranges and boxes of
// its two sides.
struct Plan {
    bool leaf;
    Range lower, upper;
    BoundingBox lowerBox, upperBox;
};

// Writes the node's boxes and decides its split. An inner node's ids end up
// partitioned, lower side first, each side in input order; a leaf gets its
// triangles here.
Plan planNode(const Input& in, Range range, const BoundingBox& box, int depth, BVHNode& node) {
    node.bounds = box;
    node.aabb = AABB(box.min, box.max);
    Plan plan{true, {}, {}, {}, {}};
    if (range.count <= kLeafTriangles || depth >= kDepthLimit || boxSurface(box) < kMinSurface) {
        makeLeaf(in, range, node);
        return plan;
    }
    // Stable partition: lower ids move down in place, upper ids wait in
    // scratch and follow them. Each side's box is folded on the way.
    const int axis = longestAxis(box.getSize());
    const float splitPos = splitPosition(box, axis);
    size_t lowerCount = 0, upperCount = 0;
    for (size_t i = 0; i < range.count; ++i) {
        const uint32_t id = range.ids[i];
        const Prim& p = in.prims[id];
        if (goesLower(splitPos, p.centroid[axis])) {
            range.ids[lowerCount++] = id;
            foldBox(plan.lowerBox.min, plan.lowerBox.max, p.lo, p.hi);
        } else {
            range.scratch[upperCount++] = id;
            foldBox(plan.upperBox.min, plan.upperBox.max, p.lo, p.hi);
        }
    }
    // One-sided: the ids are still in input order, since nothing moved apart.
    if (lowerCount == 0 || upperCount == 0) {
        makeLeaf(in, range, node);
        return plan;
    }
    std::copy(range.scratch, range.scratch + upperCount, range.ids + lowerCount);
    plan.leaf = false;
    plan.lower = Range{range.ids, range.scratch, lowerCount};
    plan.upper = Range{range.ids + lowerCount, range.scratch + lowerCount, upperCount};
    return plan;
}

// Gives an inner node its two children, side by side and owned by the node
// from the start, so that an exception below releases them.
std::pair<BVHNode*, BVHNode*> placeChildren(BVHNode& node, NodeArena& arena) {
    const auto children = arena.makePair();
    node.left.reset(children.first);
    node.right.reset(children.second);
    return children;
}

void buildNode(const Input& in, Range range, const BoundingBox& box, int depth, BVHNode& node,
               NodeArena& arena);
// Below the task levels, a node's children are placed as a pair, then the
// subtree of the first, then that of the second: depth-first, so the pairs
// of one descent lie close together.
void growPairs(const Input& in, const Plan& plan, int depth, BVHNode& node, NodeArena& arena) {
    const auto children = placeChildren(node, arena);
    const Plan a = planNode(in, plan.lower, plan.lowerBox, depth + 1, *children.first);
    if (!a.leaf) growPairs(in, a, depth + 1, *children.first, arena);
    const Plan b = planNode(in, plan.upper, plan.upperBox, depth + 1, *children.second);
    if (!b.leaf) growPairs(in, b, depth + 1, *children.second, arena);
}

// A task's subtree takes its slots from an arena of its own.
void buildTask(const Input& in, Range range, BoundingBox box, int depth, BVHNode* node) {
    NodeArena arena(nodesHint(range.count, depth));
    buildNode(in, range, box, depth, *node, arena);
}

// Fills `node`, which the parent has already placed, and builds its subtree.
void buildNode(const Input& in, Range range, const BoundingBox& box, int depth, BVHNode& node,
               NodeArena& arena) {
    const Plan plan = planNode(in, range, box, depth, node);
    if (plan.leaf) return;
    if (depth > kLastTaskDepth) return growPairs(in, plan, depth, node, arena);
    const auto children = placeChildren(node, arena);
    // Both tasks run on threads of their own (never deferred), so a task
    // that waits for its children never holds up the threads they need. Each
    // writes only into its own child. If the first result throws, the second
    // future still waits for its task before anything is released.
    auto first = std::async(std::launch::async, buildTask, std::cref(in), plan.lower, plan.lowerBox,
                            depth + 1, children.first);
    auto second = std::async(std::launch::async, buildTask, std::cref(in), plan.upper,
                             plan.upperBox, depth + 1, children.second);
    first.get();
    second.get();
}

Prim primOf(const Triangle& t) {
    Prim p{vec3(kFloatMax), vec3(-kFloatMax), centroidOf(t)};
    foldPoint(p.lo, p.hi, t.p0);
    foldPoint(p.lo, p.hi, t.p1);
    foldPoint(p.lo, p.hi, t.p2);
    return p;
}

// Prims of [begin, end) and their box, folded in order. This first pass runs
// on the calling thread: the only tasks of a build are those of the nodes.
BoundingBox fillPrims(const Triangle* triangles, Prim* prims, size_t begin, size_t end) {
    BoundingBox box;
    for (size_t i = begin; i < end; ++i) {
        prims[i] = primOf(triangles[i]);
        foldBox(box.min, box.max, prims[i].lo, prims[i].hi);
    }
    return box;
}

} // namespace

std::unique_ptr<BVHNode> createBVHNode(const std::vector<Triangle>& triangles, int depth) {
    if (triangles.empty()) return nullptr;
    if (triangles.size() > std::numeric_limits<uint32_t>::max())
        throw std::length_error("createBVHNode: more than 2^32 - 1 triangles");
    // A negative depth would lift the depth limit and the task levels beyond
    // what a whole tree has; it counts as a whole tree.
    depth = std::max(depth, 0);

    // Working arrays, left uninitialised: every entry is written before it is read.
    const size_t count = triangles.size();
    const std::unique_ptr<Prim[]> prims(new Prim[count]);
    const std::unique_ptr<uint32_t[]> ids(new uint32_t[count]), scratch(new uint32_t[count]);
    const BoundingBox box = fillPrims(triangles.data(), prims.get(), 0, count);
    for (size_t i = 0; i < count; ++i) ids[i] = static_cast<uint32_t>(i);
    const Input in{triangles.data(), prims.get()};
    NodeArena arena(1 + nodesHint(count, depth));
    const auto slots = arena.makePair();
    std::unique_ptr<BVHNode> root(slots.first);
    delete slots.second; // the root has no sibling
    buildNode(in, Range{ids.get(), scratch.get(), count}, box, depth, *root, arena);
    // The packed copy only speeds up traversal: a tree that cannot have one
    // for lack of memory is still the tree asked for.
    try {
        attachPacked(*root, packTree(*root));
    } catch (const std::bad_alloc&) {
    }
    return root;
}
