// A fixed table from the root of a tree a builder made to what the library
// keeps beside it for the tree's queries (a packed copy, a mark). Trees are
// few and long-lived while lookups happen on every query, from any number of
// threads, so lookups take no lock; attaching and detaching are serialised by
// a mutex.
//
// A root is looked for in at most kProbes slots from its hash. A tree that
// finds none of them free has no entry and is queried as any other tree.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace korvex_detail {

template <typename Root, typename Copy> class RootTable {
  public:
    // Takes the copy over; false (and the copy freed) when no slot was free.
    bool attach(const Root* root, std::unique_ptr<Copy> copy) {
        if (!root || !copy) return false;
        std::lock_guard<std::mutex> lock(writers_);
        const size_t start = home(root);
        for (size_t probe = 0; probe < kProbes; ++probe) {
            Slot& slot = slotAt(start, probe);
            const Root* key = slot.root.load(std::memory_order_relaxed);
            if (key != nullptr && key != removed()) continue;
            slot.copy.store(copy.release(), std::memory_order_relaxed);
            slot.root.store(root, std::memory_order_release);
            attached_.fetch_add(1, std::memory_order_release);
            return true;
        }
        return false;
    }

    const Copy* find(const Root* root) const {
        if (attached_.load(std::memory_order_acquire) == 0) return nullptr;
        const size_t start = home(root);
        for (size_t probe = 0; probe < kProbes; ++probe) {
            const Slot& slot = slotAt(start, probe);
            const Root* key = slot.root.load(std::memory_order_acquire);
            if (key == root) return slot.copy.load(std::memory_order_acquire);
            if (key == nullptr) return nullptr;
        }
        return nullptr;
    }

    // Frees the entry of `root`, if it has one.
    void detach(const Root* root) {
        if (!find(root)) return; // the common case, without the lock
        std::lock_guard<std::mutex> lock(writers_);
        const size_t start = home(root);
        for (size_t probe = 0; probe < kProbes; ++probe) {
            Slot& slot = slotAt(start, probe);
            if (slot.root.load(std::memory_order_relaxed) != root) continue;
            const Copy* copy = slot.copy.load(std::memory_order_relaxed);
            // Tombstone: a lookup probes past it, a new tree may take it.
            slot.root.store(removed(), std::memory_order_release);
            slot.copy.store(nullptr, std::memory_order_relaxed);
            attached_.fetch_sub(1, std::memory_order_release);
            delete copy;
            return;
        }
    }

  private:
    static constexpr size_t kSlots = 4096;
    static constexpr size_t kProbes = 16;

    struct Slot {
        std::atomic<const Root*> root{nullptr};
        std::atomic<const Copy*> copy{nullptr};
    };

    static const Root* removed() {
        static const char marker = 0;
        return reinterpret_cast<const Root*>(&marker);
    }

    static size_t home(const Root* root) {
        const uint64_t bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(root)) >> 4;
        return static_cast<size_t>((bits * 0x9E3779B97F4A7C15ull) >> 52) % kSlots;
    }

    Slot& slotAt(size_t start, size_t probe) { return slots_[(start + probe) % kSlots]; }
    const Slot& slotAt(size_t start, size_t probe) const {
        return slots_[(start + probe) % kSlots];
    }

    Slot slots_[kSlots];
    std::atomic<size_t> attached_{0};
    std::mutex writers_;
};

} // namespace korvex_detail
