// A small open-addressing hash map from a key to a 32-bit index, shared by
// the grid simplifier and the subdivider. Both only ever insert and look up,
// so the table needs no erase, and linear probing over one flat array keeps a
// lookup to one or two cache lines where std::unordered_map chases a node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace meshutils::detail {

// 64-bit FNV-1a over the four little-endian bytes of a 32-bit value: the
// per-component hash of the library's keys, kept inline here because the
// mesh loops call it several times per element.
inline uint64_t fnv1a32(uint32_t bits) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (int i = 0; i < 4; ++i) {
        h ^= (bits >> (8 * i)) & 0xffu;
        h *= 0x100000001b3ull;
    }
    return h;
}

// `Hash` gives the key's 64-bit hash; the slot is taken from its high bits
// after a Fibonacci multiply, so hashes whose low bits are weak (FNV-1a of
// small integers) still spread over the table.
template <typename Key, typename Hash> class FlatIndexMap {
  public:
    static constexpr uint32_t kEmpty = 0xffffffffu;

    // Room for about `expected` keys before the first growth.
    explicit FlatIndexMap(size_t expected) { allocate(capacityFor(expected)); }

    // The index stored under `key`; if there is none, `index` is stored and
    // returned, and `inserted` is set. `index` must not be kEmpty.
    uint32_t findOrInsert(const Key& key, uint32_t index, bool& inserted) {
        size_t slot = slotOf(Hash()(key));
        for (;;) {
            Slot& s = slots_[slot];
            if (s.value == kEmpty) break;
            if (s.key == key) {
                inserted = false;
                return s.value;
            }
            slot = (slot + 1) & mask_;
        }
        slots_[slot] = Slot{key, index};
        inserted = true;
        if (++size_ * 2 > slots_.size()) grow();
        return index;
    }

    size_t size() const { return size_; }

  private:
    struct Slot {
        Key key;
        uint32_t value;
    };

    static size_t capacityFor(size_t expected) {
        size_t capacity = 64;
        while (capacity < expected * 2) capacity *= 2;
        return capacity;
    }

    size_t slotOf(uint64_t hash) const {
        return static_cast<size_t>((hash * 0x9e3779b97f4a7c15ull) >> shift_);
    }

    void allocate(size_t capacity) {
        slots_.assign(capacity, Slot{Key{}, kEmpty});
        mask_ = capacity - 1;
        shift_ = 64;
        for (size_t c = capacity; c > 1; c >>= 1) --shift_;
    }

    void grow() {
        std::vector<Slot> old = std::move(slots_);
        allocate(old.size() * 2);
        for (const Slot& s : old) {
            if (s.value == kEmpty) continue;
            size_t slot = slotOf(Hash()(s.key));
            while (slots_[slot].value != kEmpty) slot = (slot + 1) & mask_;
            slots_[slot] = s;
        }
    }

    std::vector<Slot> slots_;
    size_t mask_ = 0;
    unsigned shift_ = 64;
    size_t size_ = 0;
};

} // namespace meshutils::detail
