#include "bvh/node_store.h"

#include "bvh/packed_tree.h"

#include <algorithm>
#include <cstdint>
#include <new>

namespace korvex_detail {

namespace {

constexpr size_t kSlotBytes = 96;
constexpr size_t kHeaderBytes = 8; // the owner pointer in front of each node
constexpr size_t kSlabHeaderBytes = 64;
constexpr size_t kMaxSlabSlots = 21844; // about 2 MB, and even, so pairs never straddle slabs

static_assert(sizeof(BVHNode) + kHeaderBytes <= kSlotBytes, "a node must fit its slot");
static_assert(alignof(BVHNode) <= kHeaderBytes, "the header keeps nodes aligned");

} // namespace

struct alignas(64) NodeSlab {
    std::atomic<size_t> live; // nodes alive in the slab, plus one while an arena fills it
    size_t slots;
};
static_assert(sizeof(NodeSlab) <= kSlabHeaderBytes, "the slab header fits one line");

namespace {

// The header holds the owner's address; its lowest bit, free since slabs are
// aligned, marks a root with a packed copy.
uintptr_t& headerOf(void* node) {
    return *reinterpret_cast<uintptr_t*>(static_cast<char*>(node) - kHeaderBytes);
}

NodeSlab*& ownerOf(void* node) {
    return *reinterpret_cast<NodeSlab**>(static_cast<char*>(node) - kHeaderBytes);
}

char* slotAddress(NodeSlab* slab, size_t slot) {
    return reinterpret_cast<char*>(slab) + kSlabHeaderBytes + slot * kSlotBytes;
}

void releaseSlab(NodeSlab* slab) {
    if (slab->live.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    slab->~NodeSlab();
    ::operator delete(static_cast<void*>(slab), std::align_val_t(alignof(NodeSlab)));
}

} // namespace

NodeArena::NodeArena(size_t nodesHint) : hint_(std::max<size_t>(nodesHint, 2)) {}

NodeArena::~NodeArena() {
    leaveSlab();
}

void NodeArena::leaveSlab() {
    if (slab_) releaseSlab(slab_);
    slab_ = nullptr;
}

void NodeArena::startSlab(size_t slots) {
    const size_t bytes = kSlabHeaderBytes + slots * kSlotBytes;
    void* memory = ::operator new(bytes, std::align_val_t(alignof(NodeSlab)));
    NodeSlab* slab = new (memory) NodeSlab{{1}, slots};
    leaveSlab();
    slab_ = slab;
    next_ = 0;
}

BVHNode* NodeArena::constructAt(size_t slot) {
    char* place = slotAddress(slab_, slot);
    BVHNode* node = new (place + kHeaderBytes) BVHNode();
    ownerOf(node) = slab_;
    slab_->live.fetch_add(1, std::memory_order_relaxed);
    return node;
}

std::pair<BVHNode*, BVHNode*> NodeArena::makePair() {
    if (!slab_ || next_ + 2 > slab_->slots) {
        // A subtree of n nodes needs n slots; later slabs take the largest size.
        const size_t slots = std::min(hint_ + (hint_ & 1), kMaxSlabSlots);
        startSlab(slots);
        hint_ = kMaxSlabSlots;
    }
    const size_t slot = next_;
    next_ += 2;
    BVHNode* first = constructAt(slot);
    BVHNode* second = constructAt(slot + 1);
    return {first, second};
}

void markPacked(BVHNode& root) {
    headerOf(&root) |= 1;
}

} // namespace korvex_detail

using korvex_detail::NodeSlab;

// A node made outside the builder gets a slot of its own, with no slab.
void* BVHNode::operator new(std::size_t size) {
    char* memory = static_cast<char*>(::operator new(size + korvex_detail::kHeaderBytes));
    void* node = memory + korvex_detail::kHeaderBytes;
    korvex_detail::ownerOf(node) = nullptr;
    return node;
}

void BVHNode::operator delete(void* node) noexcept {
    if (!node) return;
    uintptr_t& header = korvex_detail::headerOf(node);
    if (header & 1) {
        korvex_detail::detachPacked(static_cast<BVHNode*>(node));
        header &= ~uintptr_t(1);
    }
    NodeSlab* slab = korvex_detail::ownerOf(node);
    if (slab)
        korvex_detail::releaseSlab(slab);
    else
        ::operator delete(static_cast<char*>(node) - korvex_detail::kHeaderBytes);
}
