// A compact copy of a builder's tree for the ray hit: each node's child boxes side by side and
// each list's triangle corners as lanes, so that a ray reads a few dense records per level
// instead of every child node, its list, its index entries and its scattered vertices.
//
// The copy stands for the tree as it was when it was packed. A tree is public, though, and may
// be changed by hand afterwards, so every node the walk enters is compared with its source
// first (boxes, list length, child slots through a signature; the list entry by entry); a
// mismatch sends the query back to the nodes. The corners are those of the arrays the copy was
// packed from, which the caller promises stay the mesh the tree was built from; a query with
// other arrays does not use the copy.
#pragma once

#include <korvex/octree.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace octree_detail {

constexpr uint32_t kNoRecord = 0xFFFFFFFFu;

// Four entries of a node's list in list order. Lanes past the end of the list repeat lane 0
// and are masked off; an entry that addresses no triangle has NaN corners, which never hit.
struct alignas(16) CornerGroup {
    float corner[3][3][4]; // corner k, axis, lane
    int32_t number[4];
};

// The children of one node as eight lanes, by slot.
struct alignas(64) ChildBoxes {
    float lo[3][8], hi[3][8]; // the child's worldBounds
    uint32_t record[8];       // the child's NodeRecord, kNoRecord for an empty slot
    uint32_t present;         // bit per slot that holds a child
};

struct NodeRecord {
    const OctreeNode* source;
    uint64_t signature;  // nodeSignature of the source when packed
    uint32_t firstGroup; // the own list: groups [firstGroup, firstGroup + ceil(entries / 4))
    uint32_t entries;    // length of the own list
    uint32_t children;   // the node's ChildBoxes, kNoRecord when it has no child
};

struct PackedOctree {
    std::vector<NodeRecord> nodes; // record 0 is the root
    std::vector<ChildBoxes> boxes;
    std::vector<CornerGroup> groups;
    bool finiteBoxes = true;  // no NaN or infinite coordinate in any box
    float longestEdge = 0.0f; // of any packed triangle, in mesh coordinates
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

// A digest of what the ray reads of a node besides its list's entries: worldBounds, the list's
// length and the child slots.
uint64_t nodeSignature(const OctreeNode& node);

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
