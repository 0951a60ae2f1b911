// createBVHNode. The tree is the one that repeated splitTriangles calls give,
// node for node and triangle for triangle, but the build does not copy whole
// triangle lists at every level: each triangle's box and centroid are worked
// out once, a node's triangles are a range of triangle numbers (kept in input
// order by a stable partition), and the records themselves are copied only
// into the leaves. A child's box is folded during its parent's partition, in
// the same order computeBoundingBox would fold it.
#include <korvex/bvh.h>

#include "bvh/split_rule.h"

#include <algorithm>
#include <cstdint>
#include <future>
#include <limits>
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

std::unique_ptr<BVHNode> buildNode(const Input& in, Range range, const BoundingBox& box, int depth);

std::unique_ptr<BVHNode> makeLeaf(const Input& in, Range range, std::unique_ptr<BVHNode> node) {
    node->triangles.reserve(range.count);
    for (size_t i = 0; i < range.count; ++i) node->triangles.push_back(in.triangles[range.ids[i]]);
    return node;
}

std::unique_ptr<BVHNode> buildNode(const Input& in, Range range, const BoundingBox& box,
                                   int depth) {
    auto node = std::make_unique<BVHNode>();
    node->bounds = box;
    node->aabb = AABB(box.min, box.max);
    if (range.count <= kLeafTriangles || depth >= kDepthLimit || boxSurface(box) < kMinSurface)
        return makeLeaf(in, range, std::move(node));

    // Stable partition: lower ids move down in place, upper ids wait in
    // scratch and follow them. Each side's box is folded on the way.
    const int axis = longestAxis(box.getSize());
    const float splitPos = splitPosition(box, axis);
    BoundingBox lowerBox, upperBox;
    size_t lowerCount = 0, upperCount = 0;
    for (size_t i = 0; i < range.count; ++i) {
        const uint32_t id = range.ids[i];
        const Prim& p = in.prims[id];
        if (goesLower(splitPos, p.centroid[axis])) {
            range.ids[lowerCount++] = id;
            foldBox(lowerBox.min, lowerBox.max, p.lo, p.hi);
        } else {
            range.scratch[upperCount++] = id;
            foldBox(upperBox.min, upperBox.max, p.lo, p.hi);
        }
    }
    // One-sided: the ids are still in input order, since nothing moved apart.
    if (lowerCount == 0 || upperCount == 0) return makeLeaf(in, range, std::move(node));
    std::copy(range.scratch, range.scratch + upperCount, range.ids + lowerCount);

    const Range lower{range.ids, range.scratch, lowerCount};
    const Range upper{range.ids + lowerCount, range.scratch + lowerCount, upperCount};
    if (depth <= kLastTaskDepth) {
        // Both tasks run on threads of their own (never deferred), so a task
        // that waits for its children never holds up the threads they need.
        // If the first result throws, the second future still waits for its
        // task, and what that task built is released with it.
        auto first =
            std::async(std::launch::async, buildNode, std::cref(in), lower, lowerBox, depth + 1);
        auto second =
            std::async(std::launch::async, buildNode, std::cref(in), upper, upperBox, depth + 1);
        node->left = first.get();
        node->right = second.get();
    } else {
        node->left = buildNode(in, lower, lowerBox, depth + 1);
        node->right = buildNode(in, upper, upperBox, depth + 1);
    }
    return node;
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
    return buildNode(in, Range{ids.get(), scratch.get(), count}, box, depth);
}
