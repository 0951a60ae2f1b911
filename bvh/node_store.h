// Where BVH nodes live.
//
// Every BVHNode sits in a 96-byte slot whose first 8 bytes name the slab the
// slot belongs to, or hold null for a node made on its own with `new`. The
// builder takes slots from slabs in pairs, so that the two children of a node
// lie side by side (one 192-byte block, three cache lines) and a subtree's
// pairs follow each other in depth-first order. A traversal then reads both
// children's boxes from one block, and the blocks of one descent are close
// together, whatever state the process's heap is in.
//
// A slab counts its live nodes and is released with the last of them, so
// nodes can be destroyed one by one, in any order and on any thread, exactly
// as if each had been allocated on its own.
#pragma once

#include <korvex/bvh.h>

#include <atomic>
#include <cstddef>

namespace korvex_detail {

struct NodeSlab;

// Hands out slots to one builder thread. Slabs are sized from a hint of how
// many nodes the subtree may need, up to about 2 MB each.
class NodeArena {
  public:
    explicit NodeArena(size_t nodesHint);
    ~NodeArena();
    NodeArena(const NodeArena&) = delete;
    NodeArena& operator=(const NodeArena&) = delete;

    // Two default-constructed nodes in adjacent slots; the second follows the
    // first by one slot. The caller owns both and releases them with delete.
    std::pair<BVHNode*, BVHNode*> makePair();

  private:
    BVHNode* constructAt(size_t slot);
    void startSlab(size_t slots);
    void leaveSlab();

    NodeSlab* slab_ = nullptr;
    size_t next_ = 0;
    size_t hint_;
};

// Notes in a builder's root that it has a packed copy, which deleting the
// root then releases.
void markPacked(BVHNode& root);

} // namespace korvex_detail
