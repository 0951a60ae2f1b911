// The table of packed copies: trees are few and long-lived, lookups happen on
// every ray, from any number of threads, so reads take no lock.
#include "bvh/node_store.h"
#include "bvh/packed_tree.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace korvex_detail {

namespace {

// A root is looked for in at most kProbes slots from its hash; a tree that
// finds none of them free simply has no packed copy and is walked node by
// node.
constexpr size_t kSlots = 4096;
constexpr size_t kProbes = 16;

struct Slot {
    std::atomic<const BVHNode*> root{nullptr};
    std::atomic<const PackedTree*> tree{nullptr};
};

Slot table[kSlots];
std::atomic<size_t> attached{0};
std::mutex writers;

// Marks a slot whose tree has gone; a lookup probes past it, a new tree may
// take it.
const BVHNode* removed() {
    static const char marker = 0;
    return reinterpret_cast<const BVHNode*>(&marker);
}

size_t home(const BVHNode* root) {
    const uint64_t bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(root)) >> 4;
    return static_cast<size_t>((bits * 0x9E3779B97F4A7C15ull) >> 52) % kSlots;
}

Slot& slotAt(size_t home, size_t probe) {
    return table[(home + probe) % kSlots];
}

} // namespace

void attachPacked(BVHNode& root, std::unique_ptr<PackedTree> tree) {
    if (!tree) return;
    std::lock_guard<std::mutex> lock(writers);
    const size_t start = home(&root);
    for (size_t probe = 0; probe < kProbes; ++probe) {
        Slot& slot = slotAt(start, probe);
        const BVHNode* key = slot.root.load(std::memory_order_relaxed);
        if (key != nullptr && key != removed()) continue;
        slot.tree.store(tree.release(), std::memory_order_relaxed);
        slot.root.store(&root, std::memory_order_release);
        attached.fetch_add(1, std::memory_order_release);
        markPacked(root);
        return;
    }
}

const PackedTree* findPacked(const BVHNode* root) {
    if (attached.load(std::memory_order_acquire) == 0) return nullptr;
    const size_t start = home(root);
    for (size_t probe = 0; probe < kProbes; ++probe) {
        const Slot& slot = slotAt(start, probe);
        const BVHNode* key = slot.root.load(std::memory_order_acquire);
        if (key == root) return slot.tree.load(std::memory_order_acquire);
        if (key == nullptr) return nullptr;
    }
    return nullptr;
}

void detachPacked(const BVHNode* root) {
    std::lock_guard<std::mutex> lock(writers);
    const size_t start = home(root);
    for (size_t probe = 0; probe < kProbes; ++probe) {
        Slot& slot = slotAt(start, probe);
        if (slot.root.load(std::memory_order_relaxed) != root) continue;
        const PackedTree* tree = slot.tree.load(std::memory_order_relaxed);
        slot.root.store(removed(), std::memory_order_release);
        slot.tree.store(nullptr, std::memory_order_relaxed);
        attached.fetch_sub(1, std::memory_order_release);
        delete tree;
        return;
    }
}

} // namespace korvex_detail
