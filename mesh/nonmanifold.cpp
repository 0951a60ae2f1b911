// Edges of a triangle soup that more than two triangles use.
//
// Edges are counted as std::unordered_map<Edge, int, EdgeHash> counts them in
// libstdc++, which keeps each key's hash and compares it before the key: two
// edges are one key when their EdgeHash values are equal and Edge::operator==
// holds. In practice that means: edges whose canonical corners are equal
// finite floats are one key (+0 and -0 count as equal); nearly-equal edges are
// one key only where their EdgeHash values collide, which happens
// systematically for zero-length edges (an end point's hash XOR itself is 0);
// a NaN or infinite corner makes an edge equal to nothing.
//
// The table is a flat one, for speed. A slot of 8 bytes holds a reference to
// the edge's first use (triangle and side) instead of a copy of the edge, a
// tag, and the use count, which only needs to tell 1, 2 and "3 or more"
// apart. Slots are placed by a cheap multiplicative hash of the corner bits
// rather than by EdgeHash (six FNV-1a runs per edge); the EdgeHash comparison
// is made only where it can change the outcome, for edges that are equal by
// Edge::operator== without being bit-equal. Slots are fetched a few
// triangles ahead, since on a large mesh nearly every new edge lands on a
// cold cache line.
#include <korvex/mesh.h>

#include "mesh/flat_map.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

using meshutils::detail::fnv1a32;

// The bits of a float, with -0 as +0: the form in which EdgeHash sees it.
inline uint32_t keyBits(float v) {
    uint32_t bits;
    static_assert(sizeof bits == sizeof v);
    std::memcpy(&bits, &v, sizeof bits);
    return v == 0.0f ? 0u : bits;
}

// HASHER::Vec3Hash.
uint64_t pointHash(const vec3& p) {
    const uint64_t x = fnv1a32(keyBits(p.x)), y = fnv1a32(keyBits(p.y)), z = fnv1a32(keyBits(p.z));
    return ((x ^ (y << 1)) >> 1) ^ (z << 1);
}

// EdgeHash.
uint64_t edgeHash(const Edge& e) {
    const uint64_t h = pointHash(e.a) ^ pointHash(e.b);
    return (h << 1) ^ h;
}

// An edge as two pointers into the caller's triangles, in MakeEdge's order:
// lexicographic in x, then y, then z. The hot loop handles these instead of
// copies of the corners.
struct EdgeView {
    const vec3* a;
    const vec3* b;
    bool swapped; // a is the triangle's later corner
};

inline EdgeView canonicalView(const vec3& a, const vec3& b) {
    const bool greater = a.x > b.x || (a.x == b.x && (a.y > b.y || (a.y == b.y && a.z > b.z)));
    return greater ? EdgeView{&b, &a, true} : EdgeView{&a, &b, false};
}

// Where an edge is placed in the table. Equal for edges with equal key bits,
// and 0 for every zero-length edge, since EdgeHash gives all of them the same
// value and they may therefore meet as one key.
inline uint64_t placeHash(const EdgeView& e) {
    const uint32_t ax = keyBits(e.a->x), ay = keyBits(e.a->y), az = keyBits(e.a->z);
    const uint32_t bx = keyBits(e.b->x), by = keyBits(e.b->y), bz = keyBits(e.b->z);
    if (ax == bx && ay == by && az == bz) return 0;
    const uint64_t w0 = (uint64_t{ay} << 32) | ax;
    const uint64_t w1 = (uint64_t{bx} << 32) | az;
    const uint64_t w2 = (uint64_t{bz} << 32) | by;
    uint64_t h = w0 * 0x9e3779b97f4a7c15ull;
    h = (h ^ (h >> 29) ^ w1) * 0xbf58476d1ce4e5b9ull;
    h = (h ^ (h >> 31) ^ w2) * 0x94d049bb133111ebull;
    return h ^ (h >> 32);
}

// HASHER::Vec3Equal: strictly less than 1e-5 apart on every axis.
bool nearlyEqual(const vec3& p, const vec3& q) {
    return std::abs(p.x - q.x) < 1e-5f && std::abs(p.y - q.y) < 1e-5f &&
           std::abs(p.z - q.z) < 1e-5f;
}

// Edge::operator==.
bool sameEdge(const Edge& e, const Edge& f) {
    return (nearlyEqual(e.a, f.a) && nearlyEqual(e.b, f.b)) ||
           (nearlyEqual(e.a, f.b) && nearlyEqual(e.b, f.a));
}

Edge toEdge(const EdgeView& v) {
    Edge e;
    e.a = *v.a;
    e.b = *v.b;
    return e;
}

// One key of the map: equal by Edge::operator== and equal hashes. Equal
// finite floats (+0 against -0 included) satisfy both, which settles the
// common case with six comparisons; an infinite coordinate is not within
// 1e-5 of itself, and only nearly-equal edges need their EdgeHash computed.
bool sameKey(const EdgeView& stored, const EdgeView& edge) {
    const vec3 &sa = *stored.a, &sb = *stored.b, &ea = *edge.a, &eb = *edge.b;
    if (sa.x == ea.x && sa.y == ea.y && sa.z == ea.z && sb.x == eb.x && sb.y == eb.y &&
        sb.z == eb.z)
        return (std::abs(sa.x) <= kFloatMax) & (std::abs(sa.y) <= kFloatMax) &
               (std::abs(sa.z) <= kFloatMax) & (std::abs(sb.x) <= kFloatMax) &
               (std::abs(sb.y) <= kFloatMax) & (std::abs(sb.z) <= kFloatMax);
    const Edge s = toEdge(stored), e = toEdge(edge);
    return sameEdge(s, e) && edgeHash(s) == edgeHash(e);
}

inline const vec3& corner(const Triangle& t, uint32_t i) {
    return i == 0 ? t.p0 : i == 1 ? t.p1 : t.p2;
}

// Side s of a triangle runs from corner s to corner s + 1 (mod 3); an edge's
// reference is 3 * triangle + side.
inline EdgeView edgeOf(const std::vector<Triangle>& triangles, uint32_t ref) {
    const Triangle& t = triangles[ref / 3];
    const uint32_t side = ref % 3;
    return canonicalView(corner(t, side), corner(t, (side + 1) % 3));
}

class EdgeCounter {
  public:
    // Slot layout: bits 0-31 reference + 1 (0 marks an empty slot), bits
    // 32-60 tag, bit 61 set when the canonical order swaps the side's corners
    // (so that the stored edge is rebuilt without comparing them again), bits
    // 62-63 uses - 1, saturating at 2.
    static constexpr uint64_t kRefMask = 0xffffffffull;
    static constexpr uint64_t kTagMask = 0x1fffffffull << 32;
    static constexpr uint64_t kSwapped = 1ull << 61;
    static constexpr uint64_t kOneUse = 1ull << 62;
    static constexpr uint64_t kUseMask = 3ull << 62;
    static constexpr uint64_t kThreeUses = 2ull << 62;

    EdgeCounter(const std::vector<Triangle>& triangles, size_t expected) : triangles_(triangles) {
        slots_.assign(std::max<size_t>(64, expected * 2), 0);
    }

    void prefetch(uint64_t place) const { __builtin_prefetch(&slots_[slotOf(place)]); }

    void add(const EdgeView& edge, uint64_t place, uint32_t ref) {
        const uint64_t tag = (place << 32) & kTagMask;
        size_t slot = slotOf(place);
        for (;;) {
            uint64_t& s = slots_[slot];
            if (s == 0) break;
            if ((s & kTagMask) == tag && sameKey(storedEdge(s), edge)) {
                if ((s & kUseMask) != kThreeUses) s += kOneUse;
                return;
            }
            if (++slot == slots_.size()) slot = 0;
        }
        slots_[slot] = tag | (edge.swapped ? kSwapped : 0) | (uint64_t{ref} + 1);
        if (++size_ * 4 > slots_.size() * 3) grow();
    }

    // References of the edges used three times or more, in order of first use.
    std::vector<uint32_t> overused() const {
        std::vector<uint32_t> refs;
        for (uint64_t s : slots_)
            if ((s & kUseMask) == kThreeUses)
                refs.push_back(static_cast<uint32_t>(s & kRefMask) - 1);
        std::sort(refs.begin(), refs.end());
        return refs;
    }

  private:
    EdgeView storedEdge(uint64_t slot) const {
        const uint32_t ref = static_cast<uint32_t>(slot & kRefMask) - 1;
        const Triangle& t = triangles_[ref / 3];
        const vec3* corners[3] = {&t.p0, &t.p1, &t.p2};
        const uint32_t side = ref % 3;
        const vec3* from = corners[side];
        const vec3* to = corners[side == 2 ? 0 : side + 1];
        const bool swapped = (slot & kSwapped) != 0;
        return EdgeView{swapped ? to : from, swapped ? from : to, swapped};
    }

    // Fast range reduction of the high bits: any table size, no modulo.
    size_t slotOf(uint64_t place) const {
        return static_cast<size_t>((static_cast<unsigned __int128>(place) * slots_.size()) >> 64);
    }

    void grow() {
        std::vector<uint64_t> old = std::move(slots_);
        slots_.assign(old.size() * 2, 0);
        for (uint64_t s : old) {
            if (s == 0) continue;
            size_t slot = slotOf(placeHash(storedEdge(s)));
            while (slots_[slot] != 0)
                if (++slot == slots_.size()) slot = 0;
            slots_[slot] = s;
        }
    }

    const std::vector<Triangle>& triangles_;
    std::vector<uint64_t> slots_;
    size_t size_ = 0;
};

} // namespace

std::vector<Edge> DetectNonManifoldEdges(const std::vector<Triangle>& triangles) {
    // References are 3 * triangle + side, stored plus one in 32 bits.
    if (triangles.size() > 0xfffffffeull / 3)
        throw std::length_error("DetectNonManifoldEdges: too many triangles");

    // A closed manifold has 1.5 distinct edges per triangle.
    EdgeCounter counter(triangles, triangles.size() + triangles.size() / 2);

    // Software pipeline: the edges of triangle i + kAhead are placed and
    // their slots fetched while triangle i is counted, so that the cache
    // misses of several triangles overlap.
    constexpr size_t kAhead = 8; // a power of two
    struct Pending {
        EdgeView edges[3];
        uint64_t places[3];
    };
    Pending ring[kAhead];
    const auto prepare = [&](size_t i) {
        const Triangle& t = triangles[i];
        Pending& p = ring[i % kAhead];
        p.edges[0] = canonicalView(t.p0, t.p1);
        p.edges[1] = canonicalView(t.p1, t.p2);
        p.edges[2] = canonicalView(t.p2, t.p0);
        for (int k = 0; k < 3; ++k) {
            p.places[k] = placeHash(p.edges[k]);
            counter.prefetch(p.places[k]);
        }
    };
    const size_t count = triangles.size();
    for (size_t i = 0; i < std::min(kAhead, count); ++i) prepare(i);
    for (size_t i = 0; i < count; ++i) {
        const Pending p = ring[i % kAhead];
        if (i + kAhead < count) prepare(i + kAhead);
        for (uint32_t k = 0; k < 3; ++k)
            counter.add(p.edges[k], p.places[k], static_cast<uint32_t>(3 * i + k));
    }

    std::vector<Edge> result;
    for (uint32_t ref : counter.overused()) result.push_back(toEdge(edgeOf(triangles, ref)));
    return result;
}
