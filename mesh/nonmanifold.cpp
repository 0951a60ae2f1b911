// Edges of a triangle soup that more than two triangles use.
//
// Edges are counted as std::unordered_map<Edge, int, EdgeHash> counts them in
// libstdc++, which keeps each key's hash and compares it before the key: two
// edges are one key when their EdgeHash values are equal and Edge::operator==
// holds. In practice that means: edges whose corners are equal finite floats
// are one key (+0 and -0 count as equal); nearly-equal edges are one key only
// where their EdgeHash values collide, which happens systematically for
// zero-length edges (an end point's hash XOR itself is 0); a NaN or infinite
// corner makes an edge equal to nothing, so such an edge never counts twice.
//
// So apart from zero-length edges, which go to a small side table of their
// own, a key is the exact bits of the two corners (-0 read as +0). A single
// hash table over all edges of a large mesh takes a cache miss on nearly every
// use; instead the counting runs in stages that touch the big arrays only in
// streams:
//
// 1. A window over recent edges, a set-associative cache of full keys that
//    stays in L2. In a mesh in any usual order the triangles around an edge
//    are close in the list, so nearly every second use finds the first one
//    here. An entry pushed out of the window leaves an 8-byte record: first
//    use, uses so far, and 30 bits of the edge's hash (its tag).
// 2. A bit filter over tag prefixes separates the records whose prefix no
//    other record has (nearly all): each of them is the whole count of its
//    edge.
// 3. The rest, edges that left the window between uses and prefix
//    collisions, are split by tag into partitions of about a thousand and
//    matched by tag in a table that fits in L1. Records whose tags meet have
//    their corners read and compared, in batches.
#include <korvex/mesh.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace {

// The bits of a float, with whatever compares equal to 0 (-0, and denormals
// where the host flushes them) as +0, as EdgeHash reads it: equal bits mean
// equal values for finite floats.
inline uint32_t keyBits(float v) {
    uint32_t bits;
    static_assert(sizeof bits == sizeof v);
    std::memcpy(&bits, &v, sizeof bits);
    return v == 0.0f ? 0u : bits;
}

// Bit 31 set when the float is infinite or NaN.
inline uint32_t nonFiniteBit(uint32_t bits) {
    return (bits & 0x7fffffffu) + 0x00800000u;
}

// A corner as its key bits.
struct Point {
    uint32_t x, y, z;
};

inline Point pointOf(const vec3& p) {
    return Point{keyBits(p.x), keyBits(p.y), keyBits(p.z)};
}

inline bool finitePoint(const Point& p) {
    return ((nonFiniteBit(p.x) | nonFiniteBit(p.y) | nonFiniteBit(p.z)) >> 31) == 0;
}

inline bool samePoint(const Point& p, const Point& q) {
    return ((p.x ^ q.x) | (p.y ^ q.y) | (p.z ^ q.z)) == 0;
}

// A hash of one corner. An edge's hash is built from the sum of its two
// corners' hashes, so that it does not depend on their order and each corner
// is hashed once per triangle rather than once per edge.
inline uint64_t pointHash(const Point& p) {
    uint64_t h = ((uint64_t{p.y} << 32) | p.x) * 0x9e3779b97f4a7c15ull;
    h = (h ^ (h >> 29) ^ p.z) * 0xbf58476d1ce4e5b9ull;
    return h ^ (h >> 32);
}

inline uint64_t edgeHash(uint64_t pointHashSum) {
    const uint64_t h = pointHashSum * 0x94d049bb133111ebull;
    return h ^ (h >> 31);
}

// An edge's key: both corners' bits, in an order fixed by the corners alone.
struct Key {
    uint64_t w[3];
};

inline Key keyOf(const Point& a, const Point& b) {
    return Key{
        {(uint64_t{a.y} << 32) | a.x, (uint64_t{b.x} << 32) | a.z, (uint64_t{b.z} << 32) | b.y}};
}

inline bool sameKey(const Key& k, const Key& l) {
    return ((k.w[0] ^ l.w[0]) | (k.w[1] ^ l.w[1]) | (k.w[2] ^ l.w[2])) == 0;
}

inline bool lexLess(const Point& p, const Point& q) {
    return p.x != q.x ? p.x < q.x : p.y != q.y ? p.y < q.y : p.z < q.z;
}

inline const vec3& corner(const Triangle& t, uint32_t i) {
    return i == 0 ? t.p0 : i == 1 ? t.p1 : t.p2;
}

// Side s of a triangle runs from corner s to corner s + 1 (mod 3); an edge's
// reference is 3 * triangle + side. The key of a reference, with the corners
// in lexicographic order of their bits (used off the hot path only).
Key keyOfRef(const Triangle* triangles, uint32_t ref) {
    const Triangle& t = triangles[ref / 3];
    const uint32_t s = ref % 3;
    const Point a = pointOf(corner(t, s)), b = pointOf(corner(t, s == 2 ? 0 : s + 1));
    return lexLess(b, a) ? keyOf(b, a) : keyOf(a, b);
}

// The edge of a reference in MakeEdge's order, with the coordinates of that
// use: the lexicographically smaller corner first, equal corners as given.
Edge canonicalEdge(const Triangle* triangles, uint32_t ref) {
    const Triangle& t = triangles[ref / 3];
    const uint32_t s = ref % 3;
    const vec3& a = corner(t, s);
    const vec3& b = corner(t, s == 2 ? 0 : s + 1);
    const bool greater = a.x > b.x || (a.x == b.x && (a.y > b.y || (a.y == b.y && a.z > b.z)));
    Edge e;
    e.a = greater ? b : a;
    e.b = greater ? a : b;
    return e;
}

// A record: bits 0-31 reference + 1 of the first use (0 marks an empty
// slot), bits 32-33 uses - 1, saturating at 2 ("3 or more"), bits 34-63 the
// tag, the top 30 bits of the edge's hash.
constexpr uint64_t kRefMask = 0xffffffffull;
constexpr uint64_t kOneUse = 1ull << 32;
constexpr uint64_t kUseMask = 3ull << 32;
constexpr uint64_t kThreeUses = 2ull << 32;
constexpr uint64_t kTagMask = ~(kRefMask | kUseMask);
constexpr int kTagShift = 34;

inline uint32_t refOf(uint64_t record) {
    return static_cast<uint32_t>(record & kRefMask) - 1;
}
inline uint32_t usesOf(uint64_t record) {
    return static_cast<uint32_t>((record & kUseMask) >> 32) + 1;
}

// Stage 1: the window. A two-way set-associative cache of full keys; a use
// either finds its key in its set and counts, or takes the way of the entry
// least worth keeping, whose record goes out. An edge already used twice is
// given up first (in a manifold it is done), then the oldest. Written without
// branches on the data: whether a use is a first or a second one is a coin
// toss to the branch predictor.
class RecentEdges {
  public:
    explicit RecentEdges(size_t edgeUses) {
        setCount_ = 4;
        while (setCount_ < kMaxSets && setCount_ * kWays < edgeUses) setCount_ *= 2;
        sets_.reset(new Set[setCount_]());
        // Each use pushes out at most one record, and the end one per way.
        records_.reset(new uint64_t[edgeUses + setCount_ * kWays + 1]);
    }

    void add(const Key& key, uint64_t hash, uint32_t ref) {
        Way* w = sets_[hash & (setCount_ - 1)].ways;
        // The way to take: the one holding the key (score 0), else the
        // lowest score. An empty way holds the key of a zero-length edge at
        // the origin, which never comes here.
        uint64_t score[kWays];
        for (size_t i = 0; i < kWays; ++i) {
            const uint64_t diff = (w[i].key.w[0] ^ key.w[0]) | (w[i].key.w[1] ^ key.w[1]) |
                                  (w[i].key.w[2] ^ key.w[2]);
            const uint64_t differs = (diff | (0 - diff)) >> 63;
            score[i] = (keepScore(w[i]) + 1) & (0 - differs);
        }
        uint64_t best = score[0];
        size_t victim = 0;
        for (size_t i = 1; i < kWays; ++i) {
            const bool lower = score[i] < best;
            victim = lower ? i : victim;
            best = lower ? score[i] : best;
        }
        const bool hit = best == 0;
        Way& v = w[victim];
        records_[count_] = v.record;
        count_ += !hit & (v.record != 0);
        // A hit counts one more use (saturating); a miss starts a new entry.
        const uint64_t hitMask = 0 - static_cast<uint64_t>(hit);
        const uint64_t counted = v.record + (((v.record & kUseMask) != kThreeUses) ? kOneUse : 0);
        const uint64_t fresh = (hash >> kTagShift << kTagShift) | (ref + 1);
        v.record = (counted & hitMask) | (fresh & ~hitMask);
        v.key = key;
    }

    // Pushes out every edge still in the window; returns all records.
    std::unique_ptr<uint64_t[]> finish(size_t& count) {
        for (size_t i = 0; i < setCount_; ++i)
            for (const Way& w : sets_[i].ways)
                if (w.record != 0) records_[count_++] = w.record;
        count = count_;
        return std::move(records_);
    }

  private:
    // 8192 sets of two 32-byte ways: 512 KiB, which stays in a 1 MiB L2 next
    // to the streams, and room for the open edges of a band of several
    // thousand triangles. Measured against 256 KiB, 1 MiB and four ways.
    static constexpr size_t kWays = 2;
    static constexpr size_t kMaxSets = 8192;

    struct Way {
        Key key;
        uint64_t record; // 0 when empty
    };
    struct alignas(64) Set {
        Way ways[kWays];
    };

    // Lower is given up first: used twice or more, then empty, then used
    // once; the older first within each class.
    static uint64_t keepScore(const Way& w) {
        return (w.record & (kUseMask | kRefMask)) ^ kUseMask;
    }

    std::unique_ptr<Set[]> sets_;
    size_t setCount_;
    std::unique_ptr<uint64_t[]> records_;
    size_t count_ = 0;
};

// Stage 2: the records of one edge have equal tags, so a record whose tag
// prefix no other record has is the whole count of its edge, and settles at
// once. Two bits a prefix, at about eight prefixes a record: met once, met
// twice. Returns the records on prefixes met twice.
std::vector<uint64_t> unsettled(const uint64_t* records, size_t count,
                                std::vector<uint32_t>& overused) {
    int bits = 5;
    while (bits < 30 && (size_t{1} << bits) < 8 * count) ++bits;
    const int shift = 64 - bits;
    std::vector<uint64_t> met(size_t{1} << (bits - 5), 0);
    // The bits are spread over megabytes: fetched a few records ahead.
    constexpr size_t kAhead = 16;
    const auto ahead = [&](size_t k) {
        return &met[(records[std::min(k + kAhead, count - 1)] >> shift) >> 5];
    };
    for (size_t k = 0; k < count; ++k) {
        __builtin_prefetch(ahead(k), 1);
        const uint64_t prefix = records[k] >> shift, once = uint64_t{1} << (2 * (prefix & 31));
        uint64_t& word = met[prefix >> 5];
        word |= once | ((word & once) << 1);
    }
    std::vector<uint64_t> rest;
    for (size_t k = 0; k < count; ++k) {
        __builtin_prefetch(ahead(k));
        const uint64_t r = records[k], prefix = r >> shift;
        if ((met[prefix >> 5] >> (2 * (prefix & 31) + 1)) & 1)
            rest.push_back(r);
        else if ((r & kUseMask) == kThreeUses)
            overused.push_back(refOf(r));
    }
    return rest;
}

// Stage 3, for one partition: records whose tags met, in groups of one tag
// each (`groupEnds`). Their keys are read from the triangles and compared;
// the triangles of the whole partition are fetched first, so that the cache
// misses overlap. `suspects` is used up.
void settleSuspects(const Triangle* triangles, std::vector<uint64_t>& suspects,
                    const std::vector<uint32_t>& groupEnds, std::vector<Key>& keys,
                    std::vector<uint32_t>& overused) {
    // The corners fill the first 36 bytes of a triangle, which may straddle two cache lines.
    for (uint64_t r : suspects) {
        const char* corners = reinterpret_cast<const char*>(&triangles[refOf(r) / 3]);
        __builtin_prefetch(corners);
        __builtin_prefetch(corners + 3 * sizeof(vec3) - 1);
    }
    keys.resize(suspects.size());
    for (size_t i = 0; i < suspects.size(); ++i) keys[i] = keyOfRef(triangles, refOf(suspects[i]));
    uint32_t begin = 0;
    for (uint32_t end : groupEnds) {
        // Usually two records of one edge; a tag collision makes two keys.
        for (uint32_t i = begin; i < end; ++i) {
            if (suspects[i] == 0) continue; // merged into an earlier one
            uint32_t uses = usesOf(suspects[i]);
            uint64_t first = suspects[i] & kRefMask;
            for (uint32_t j = i + 1; j < end; ++j)
                if (suspects[j] != 0 && sameKey(keys[i], keys[j])) {
                    uses += usesOf(suspects[j]);
                    first = std::min(first, suspects[j] & kRefMask);
                    suspects[j] = 0;
                }
            if (uses > 2) overused.push_back(static_cast<uint32_t>(first) - 1);
        }
        begin = end;
    }
    suspects.clear();
}

inline void settleAlone(uint64_t record, std::vector<uint32_t>& overused) {
    if ((record & kUseMask) == kThreeUses) overused.push_back(refOf(record));
}

// Stage 3: merges the records of each edge, appending the first use of every
// edge with three uses or more to `overused`.
void mergeRecords(const Triangle* triangles, const std::vector<uint64_t>& records,
                  std::vector<uint32_t>& overused) {
    const size_t total = records.size();
    if (total == 0) return;
    // Partitions by the top bits of the tag, about a thousand records each.
    int bits = 0;
    while (bits < 20 && (total >> bits) > 1024) ++bits;
    const size_t partitions = size_t{1} << bits;
    const auto partitionOf = [bits](uint64_t r) {
        return bits == 0 ? size_t{0} : static_cast<size_t>(r >> (64 - bits));
    };
    std::vector<size_t> start(partitions + 1, 0);
    for (uint64_t r : records) ++start[partitionOf(r) + 1];
    size_t largest = 0;
    for (size_t p = 0; p < partitions; ++p) {
        largest = std::max(largest, start[p + 1]);
        start[p + 1] += start[p];
    }
    std::vector<uint64_t> sorted(total);
    {
        std::vector<size_t> next(start.begin(), start.end() - 1);
        for (uint64_t r : records) sorted[next[partitionOf(r)]++] = r;
    }

    // Per partition, records are chained by more bits of their tag; a record
    // alone in its chain (most, at a load of an eighth) has a tag of its own.
    // The members of longer chains are grouped by tag, and groups of two or
    // more are suspects.
    int chainBits = 4;
    while ((size_t{1} << chainBits) < 8 * largest) ++chainBits;
    std::vector<uint32_t> heads(size_t{1} << chainBits, 0), next(largest), chainOf(largest);
    std::vector<uint64_t> chain, suspects;
    std::vector<uint32_t> groupEnds;
    std::vector<Key> keys;
    for (size_t p = 0; p < partitions; ++p) {
        const uint64_t* part = &sorted[start[p]];
        const uint32_t count = static_cast<uint32_t>(start[p + 1] - start[p]);
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t c = static_cast<uint32_t>(
                ((part[k] >> kTagShift) * 0x9e3779b97f4a7c15ull) >> (64 - chainBits));
            chainOf[k] = c;
            next[k] = heads[c]; // members as index + 1, 0 ends a chain
            heads[c] = k + 1;
        }
        for (uint32_t k = 0; k < count; ++k) {
            if (heads[chainOf[k]] != k + 1) continue; // settled with the head of its chain
            if (next[k] == 0) {
                settleAlone(part[k], overused);
                continue;
            }
            const uint32_t second = next[k] - 1;
            if (next[second] == 0) { // two, the usual case
                if (((part[k] ^ part[second]) & kTagMask) != 0) {
                    settleAlone(part[k], overused);
                    settleAlone(part[second], overused);
                } else {
                    suspects.push_back(part[k]);
                    suspects.push_back(part[second]);
                    groupEnds.push_back(static_cast<uint32_t>(suspects.size()));
                }
                continue;
            }
            chain.clear();
            for (uint32_t m = k + 1; m != 0; m = next[m - 1]) chain.push_back(part[m - 1]);
            std::sort(chain.begin(), chain.end());
            for (size_t i = 0; i < chain.size();) {
                size_t j = i + 1;
                while (j < chain.size() && ((chain[j] ^ chain[i]) & kTagMask) == 0) ++j;
                if (j - i == 1) {
                    settleAlone(chain[i], overused);
                } else {
                    suspects.insert(suspects.end(), chain.begin() + i, chain.begin() + j);
                    groupEnds.push_back(static_cast<uint32_t>(suspects.size()));
                }
                i = j;
            }
        }
        for (uint32_t k = 0; k < count; ++k) heads[chainOf[k]] = 0;
        if (!suspects.empty()) {
            settleSuspects(triangles, suspects, groupEnds, keys, overused);
            groupEnds.clear();
        }
    }
}

// Zero-length edges: all have EdgeHash 0, so any two whose points are within
// 1e-5 on every axis are one key, and a use joins the first key created that
// it is close to. A grid of cells twice the tolerance wide finds the
// candidates among the 27 cells around a point, so that many degenerate
// triangles do not make the search quadratic.
class ZeroLengthEdges {
  public:
    // Out of line: rare, and kept out of the hot loop's registers.
    [[gnu::noinline]] void add(const vec3& p, uint32_t ref) {
        const Cell c = cellOf(p);
        size_t best = keys_.size();
        for (int dx = -1; dx <= 1; ++dx)
            for (int dy = -1; dy <= 1; ++dy)
                for (int dz = -1; dz <= 1; ++dz) {
                    const auto it = cells_.find(Cell{c.x + dx, c.y + dy, c.z + dz});
                    if (it == cells_.end()) continue;
                    for (uint32_t k : it->second)
                        if (k < best && near(keys_[k].point, p)) best = k;
                }
        if (best < keys_.size()) {
            ++keys_[best].uses;
            return;
        }
        cells_[c].push_back(static_cast<uint32_t>(keys_.size()));
        keys_.push_back(Entry{p, ref, 1});
    }

    void appendOverused(std::vector<uint32_t>& overused) const {
        for (const Entry& k : keys_)
            if (k.uses > 2) overused.push_back(k.firstRef);
    }

  private:
    struct Entry {
        vec3 point;
        uint32_t firstRef;
        uint32_t uses;
    };

    // Cell coordinates as doubles: exact for every float times 50000, and
    // beyond 2^53 a float's neighbours are farther apart than the tolerance,
    // so the cell alone decides.
    struct Cell {
        double x, y, z;
        bool operator==(const Cell& o) const { return x == o.x && y == o.y && z == o.z; }
    };
    struct CellHash {
        size_t operator()(const Cell& c) const {
            uint64_t h = 0;
            for (double v : {c.x, c.y, c.z}) {
                uint64_t bits;
                std::memcpy(&bits, &v, sizeof bits);
                h = (h ^ bits) * 0x9e3779b97f4a7c15ull;
                h ^= h >> 32;
            }
            return static_cast<size_t>(h);
        }
    };

    static double cellCoordinate(float v) {
        const double c = std::floor(static_cast<double>(v) * 50000.0);
        return c == 0.0 ? 0.0 : c; // one cell for -0 and +0
    }
    static Cell cellOf(const vec3& p) {
        return Cell{cellCoordinate(p.x), cellCoordinate(p.y), cellCoordinate(p.z)};
    }

    // HASHER::Vec3Equal: strictly less than 1e-5 apart on every axis.
    static bool near(const vec3& p, const vec3& q) {
        return std::abs(p.x - q.x) < 1e-5f && std::abs(p.y - q.y) < 1e-5f &&
               std::abs(p.z - q.z) < 1e-5f;
    }

    std::vector<Entry> keys_;
    std::unordered_map<Cell, std::vector<uint32_t>, CellHash> cells_;
};

} // namespace

std::vector<Edge> DetectNonManifoldEdges(const std::vector<Triangle>& triangles) {
    // References are 3 * triangle + side, stored plus one in 32 bits.
    if (triangles.size() > 0xfffffffeull / 3)
        throw std::length_error("DetectNonManifoldEdges: too many triangles");

    const Triangle* data = triangles.data();
    RecentEdges window(3 * triangles.size());
    ZeroLengthEdges zeroLength;
    for (size_t t = 0; t < triangles.size(); ++t) {
        const Triangle& tri = data[t];
        const Point p[3] = {pointOf(tri.p0), pointOf(tri.p1), pointOf(tri.p2)};
        const uint64_t h[3] = {pointHash(p[0]), pointHash(p[1]), pointHash(p[2])};
        // An edge with a NaN or infinite corner equals nothing: one use, never
        // reported. Bit s is set when side s has two finite corners.
        unsigned sides = 7;
        if (!(finitePoint(p[0]) & finitePoint(p[1]) & finitePoint(p[2])))
            sides = (finitePoint(p[0]) & finitePoint(p[1])) |
                    (finitePoint(p[1]) & finitePoint(p[2])) << 1 |
                    (finitePoint(p[2]) & finitePoint(p[0])) << 2;
        for (uint32_t s = 0; s < 3; ++s) {
            if (!(sides >> s & 1)) continue;
            const uint32_t e = s == 2 ? 0 : s + 1;
            const uint32_t ref = static_cast<uint32_t>(3 * t + s);
            // The corner with the smaller hash comes first in the key, chosen
            // by mask: the order is a coin toss to the branch predictor. Two
            // corners with one hash are equal (a zero-length edge) or, very
            // rarely, need an order of their own.
            uint64_t swap = 0 - static_cast<uint64_t>(h[e] < h[s]);
            if (h[s] == h[e]) {
                if (samePoint(p[s], p[e])) {
                    zeroLength.add(corner(tri, s), ref);
                    continue;
                }
                swap = 0 - static_cast<uint64_t>(lexLess(p[e], p[s]));
            }
            const Key forward = keyOf(p[s], p[e]), backward = keyOf(p[e], p[s]);
            Key key;
            for (int i = 0; i < 3; ++i) key.w[i] = (forward.w[i] & ~swap) | (backward.w[i] & swap);
            window.add(key, edgeHash(h[s] + h[e]), ref);
        }
    }

    std::vector<uint32_t> overused;
    {
        size_t count = 0;
        const std::unique_ptr<uint64_t[]> records = window.finish(count);
        mergeRecords(data, unsettled(records.get(), count, overused), overused);
    }
    zeroLength.appendOverused(overused);
    // In order of first use.
    std::sort(overused.begin(), overused.end());
    std::vector<Edge> result;
    result.reserve(overused.size());
    for (uint32_t ref : overused) result.push_back(canonicalEdge(data, ref));
    return result;
}
