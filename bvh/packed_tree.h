// A compact copy of a finished tree's search structure, made once by the
// builder and read by the ray traversal in place of the nodes.
//
// The nodes themselves are wide records linked by pointers, with the
// triangles of each leaf in a heap block of its own; a ray walking them waits
// on memory at every level. The packed copy holds the same boxes and the same
// triangle corners in two dense arrays and takes two levels of the tree per
// step, so a descent touches a third of the memory in half the steps. It is
// only a faster way to the same answer: the traversal tests every box of the
// binary tree that the plain traversal would test, with the same arithmetic,
// and passes over only leaves that cannot hold a counted, strictly nearer hit
// (measured on boxes grown by the triangle test's stray). A tree never changes
// after its build, so the copy never goes out of date.
#pragma once

#include <korvex/bvh.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace korvex_detail {

// The four grandchildren of a binary node, as lanes, in two cache lines.
// Lanes 0 and 1 lie under the node's left child and lanes 2 and 3 under its
// right one; a child that is a leaf takes the even lane itself and leaves the
// odd one empty. A leaf without triangles leaves its lane empty too.
struct alignas(64) QuadNode {
    float lo[3][4], hi[3][4]; // each entry's box
    uint32_t first[4];        // an inner entry's quad node, a leaf's first triangle, or kNoEntry
    uint32_t count[4];        // a leaf's number of triangles; 0 for an inner entry
};
constexpr uint32_t kNoEntry = 0xFFFFFFFFu;

// The box of the child above each entry of the quad node of the same number.
// The plain traversal tests a child before its children. Where every box lies
// inside its parent's and no coordinate is NaN or infinite, an entry's line
// test implies its parent's for a ray whose spans hold no NaN, and these boxes
// need no second look.
struct alignas(16) QuadGates {
    float lo[3][4], hi[3][4];
};

struct PackedTree {
    std::vector<QuadNode> nodes;  // node 0 stands for the root
    std::vector<QuadGates> gates; // one per node
    std::vector<float> corners;   // nine floats a triangle (p0, p1, p2), leaf after leaf, then
                                  // four triangles of zeros for the four-lane loads to run into
    bool nested = true;           // every box finite and inside its parent's
    float longestEdge = 0.0f;     // of any triangle (edges of NaN length left out)
    BoundingBox bounds;           // the root's box
};

// The packed copy of the tree under `root`, or null when it would not help
// (a root that is a leaf) or the platform lacks the vector instructions.
std::unique_ptr<PackedTree> packTree(const BVHNode& root);

// The nearest counted hit below the root, as RayIntersectsBVH defines it. The
// caller has checked the ray for NaN and the root's box against its line.
bool traversePacked(const PackedTree& tree, const Ray& ray, vec3& hitPoint, float& nearestDistance);

// The packed copies of live trees, keyed by root. A tree is attached by its
// builder and detached when its root is deleted; lookups take no lock.
void attachPacked(BVHNode& root, std::unique_ptr<PackedTree> tree);
const PackedTree* findPacked(const BVHNode* root);
void detachPacked(const BVHNode* root);

} // namespace korvex_detail
