// A compact copy of a builder's tree for the ray hit: each node's children's boxes four to a
// block as lanes, with what entering a child takes kept apart, and each list's triangle corners
// as lanes, four triangles a group, with the groups' boxes beside them. A ray reads a few dense
// records per level instead of every child node, its list, its index entries and its scattered
// vertices, and reads the corners only of groups whose box it may hit.
//
// The copy stands for the tree as it was when it was packed. A tree is public, though, and may
// be changed by hand afterwards, so every node the walk enters is compared with its source, bit
// for bit: its child slots and list length as it is entered, a leaf's list entry by entry, and
// the boxes of all its children, which decide where the walk goes, by the end of the walk; a
// mismatch sends the query back to the nodes. The corners are those of the arrays the copy was
// packed from, which the caller promises stay the mesh the tree was built from; a query with other
// arrays does not use the copy.
#pragma once

#include <korvex/octree.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace octree_detail {

constexpr uint32_t kInner = 0x80000000u; // NodeRef::shape of a node with children

// The corners of four entries of a node's list in list order. Lanes past the end of the list
// repeat lane 0 and are masked off; an entry that addresses no triangle has NaN corners, which
// never hit. The entries themselves are in PackedOctree::numbers, four a group.
struct alignas(16) CornerGroup {
    float corner[3][3][4]; // corner k, axis, lane
};

// Four boxes as lanes: lane i of lo[axis] and hi[axis] is box i's side on that axis.
struct alignas(32) BoxLanes {
    float lo[3][4], hi[3][4];
};

// An inner node's child slots as they were packed, null slots included.
struct alignas(64) SlotSet {
    const OctreeNode* slot[8];
};

// One node as the walk needs it before it enters: its source, and where its child slots and its
// children or its list lie in the copy.
struct NodeRef {
    const OctreeNode* source;
    uint32_t slots; // inner: its SlotSet; leaf: unused
    // Inner: its first block of childBoxes. Leaf: its first CornerGroup; the leaves' lists are
    // packed in the tree's depth-first order and none is empty, so this also ranks the leaves in
    // it.
    uint32_t first;
    uint32_t shape; // inner: kInner | number of children; leaf: length of the list
};

struct PackedOctree {
    NodeRef root;
    // The children of an inner node with k children, in slot order, four to a block in
    // ceil(k / 4) blocks from its `first`: their worldBounds in childBoxes, and in `children`
    // from four times `first`, what entering them takes. The walk reads the boxes of all and
    // the references of those it enters. Lanes past the last child hold a point box at 0 and
    // no source.
    std::vector<BoxLanes> childBoxes;
    std::vector<NodeRef> children;
    // The same boxes once more as the sources hold them, at the references' places, for the
    // check that they are unchanged.
    std::vector<AABB> childBounds;
    std::vector<SlotSet> slotSets;
    AABB rootBounds; // the root's worldBounds, which no parent's check covers
    std::vector<CornerGroup> groups;
    std::vector<int32_t> numbers; // the entries of group g at 4g to 4g + 3
    // Group g's box in block g / 4, lane g % 4: the exact fit of its corners, or the whole of
    // space for a group with a corner that is not finite. A leaf's groups need not start a
    // block.
    std::vector<BoxLanes> groupBoxes;
    bool finiteBoxes = true;   // no NaN or infinite coordinate in any box
    bool orderedBoxes = true;  // and min <= max on every axis of every box
    bool finiteCorners = true; // every corner of a triangle that an entry addresses is finite
    float longestEdge = 0.0f;  // of any triangle of the arrays, in mesh coordinates
    // The arrays the corners come from; a query with others uses the nodes.
    const kvx::nsVertex* vertexData = nullptr;
    size_t vertexCount = 0;
    const unsigned int* indexData = nullptr;
    size_t indexCount = 0;

    bool packedFrom(const std::vector<kvx::nsVertex>& vertices,
                    const std::vector<unsigned int>& indices) const {
        return vertices.data() == vertexData && vertices.size() == vertexCount &&
               indices.data() == indexData && indices.size() == indexCount;
    }
};

// The copy of the tree under `root`, or null when the platform lacks the vector instructions,
// the root is a leaf, or the tree is not one a builder could have made (a list in an inner
// node, deeper than any build, or larger than `nodeLimit` nodes, as a shared or cyclic subtree
// would make it).
std::unique_ptr<PackedOctree> packOctree(const OctreeNode& root,
                                         const std::vector<kvx::nsVertex>& vertices,
                                         const std::vector<unsigned int>& indices,
                                         size_t nodeLimit);

struct RayQuery;

struct PlacedBox;

// The ray hit on the copy of the tree, whose root's placed box `rootBox` the ray is known to
// meet. Returns 1 with `hitPoint` and `hitTriangle` set, 0 for no hit, or -1, with both
// untouched, when a node the walk entered no longer matches its copy.
int packedRayHit(const PackedOctree& tree, const RayQuery& query, const PlacedBox& rootBox,
                 vec3& hitPoint, int& hitTriangle);

} // namespace octree_detail
