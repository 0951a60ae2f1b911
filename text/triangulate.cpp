#include "text/triangulate.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace textgeom {

namespace {

// A vertex in a ring list. Coordinates are widened to double: products of
// two float differences are then exact enough, and cannot overflow.
struct Node {
    double x, y;
    uint32_t point;       // index of the input point, rings taken end to end
    uint32_t z = 0;       // position on the z-order curve (long lists only)
    Node* prev = nullptr; // ring order
    Node* next = nullptr;
    Node* prevZ = nullptr; // z order; null at both ends
    Node* nextZ = nullptr;
    bool steiner = false; // a hole of one point: never filtered away
    bool removed = false;
};

// Above this many points the ear test goes through the z-order curve.
constexpr size_t kHashThreshold = 80;

// Twice the signed area of p, q, r: positive for a counter-clockwise turn.
inline double turn(const Node* p, const Node* q, const Node* r) {
    return (q->x - p->x) * (r->y - q->y) - (q->y - p->y) * (r->x - q->x);
}

inline bool samePosition(const Node* a, const Node* b) {
    return a->x == b->x && a->y == b->y;
}

// p inside or on the counter-clockwise triangle a, b, c.
inline bool inTriangle(double ax, double ay, double bx, double by, double cx, double cy, double px,
                       double py) {
    return (cx - px) * (ay - py) >= (ax - px) * (cy - py) &&
           (ax - px) * (by - py) >= (bx - px) * (ay - py) &&
           (bx - px) * (cy - py) >= (cx - px) * (by - py);
}

inline int signOf(double v) {
    return (v > 0.0) - (v < 0.0);
}

// q on the segment p-r, given that the three are collinear.
inline bool withinSpan(const Node* p, const Node* q, const Node* r) {
    return q->x <= std::max(p->x, r->x) && q->x >= std::min(p->x, r->x) &&
           q->y <= std::max(p->y, r->y) && q->y >= std::min(p->y, r->y);
}

// Segments p1-q1 and p2-q2 cross or touch.
bool segmentsMeet(const Node* p1, const Node* q1, const Node* p2, const Node* q2) {
    const int o1 = signOf(turn(p1, q1, p2));
    const int o2 = signOf(turn(p1, q1, q2));
    const int o3 = signOf(turn(p2, q2, p1));
    const int o4 = signOf(turn(p2, q2, q1));
    if (o1 != o2 && o3 != o4) return true;
    if (o1 == 0 && withinSpan(p1, p2, q1)) return true;
    if (o2 == 0 && withinSpan(p1, q2, q1)) return true;
    if (o3 == 0 && withinSpan(p2, p1, q2)) return true;
    if (o4 == 0 && withinSpan(p2, q1, q2)) return true;
    return false;
}

// Nodes live in blocks that never move, so links stay valid as the lists
// are split and joined.
class NodeArena {
  public:
    // The first block holds the expected count; later ones a quarter of it.
    explicit NodeArena(size_t expected)
        : blockSize_(std::max<size_t>(expected, 16)),
          laterSize_(std::max<size_t>(expected / 4, 64)) {}

    Node* make(double x, double y, uint32_t point) {
        if (blocks_.empty() || used_ == blockSize_) {
            if (!blocks_.empty()) blockSize_ = laterSize_;
            blocks_.emplace_back(new Node[blockSize_]);
            used_ = 0;
        }
        Node* n = &blocks_.back()[used_++];
        n->x = x;
        n->y = y;
        n->point = point;
        return n;
    }

  private:
    size_t blockSize_;
    size_t laterSize_;
    size_t used_ = 0;
    std::vector<std::unique_ptr<Node[]>> blocks_;
};

struct EarClipper {
    NodeArena arena;
    std::vector<uint32_t>& out;
    bool hashed = false;
    double minX = 0.0, minY = 0.0, invSize = 0.0;
    // The outer list's nodes while holes are joined to it.
    std::vector<Node*> joined;
    // Lists still to be cut, with the stage they are at: 0 plain, 1 after
    // clean-up, 2 after curing local intersections. A stack, not recursion,
    // so that a polygon split many times cannot exhaust the call stack.
    std::vector<std::pair<Node*, int>> pending;

    EarClipper(size_t expectedNodes, std::vector<uint32_t>& triangles)
        : arena(expectedNodes), out(triangles) {}

    Node* insertAfter(Node* last, double x, double y, uint32_t point) {
        Node* n = arena.make(x, y, point);
        if (!last) {
            n->prev = n;
            n->next = n;
        } else {
            n->next = last->next;
            n->prev = last;
            last->next->prev = n;
            last->next = n;
        }
        return n;
    }

    static void unlink(Node* n) {
        n->next->prev = n->prev;
        n->prev->next = n->next;
        if (n->prevZ) n->prevZ->nextZ = n->nextZ;
        if (n->nextZ) n->nextZ->prevZ = n->prevZ;
        n->removed = true;
    }

    void emit(const Node* a, const Node* b, const Node* c) {
        out.push_back(a->point);
        out.push_back(b->point);
        out.push_back(c->point);
    }

    // A closed list of the ring's points, counter-clockwise when `ccw`, else
    // clockwise; a repeated closing point is dropped. Null for an empty ring.
    Node* buildList(const std::vector<vec2>& ring, uint32_t firstPoint, bool ccw) {
        const size_t n = ring.size();
        double area2 = 0.0;
        for (size_t i = 0, j = n - 1; i < n; j = i++)
            area2 += (double(ring[j].x) - ring[i].x) * (double(ring[i].y) + ring[j].y);
        Node* last = nullptr;
        if (ccw == (area2 > 0.0)) {
            for (size_t i = 0; i < n; ++i)
                last = insertAfter(last, ring[i].x, ring[i].y, firstPoint + uint32_t(i));
        } else {
            for (size_t i = n; i-- > 0;)
                last = insertAfter(last, ring[i].x, ring[i].y, firstPoint + uint32_t(i));
        }
        if (last && last != last->next && samePosition(last, last->next)) {
            Node* keep = last->next;
            unlink(last);
            last = keep;
        }
        return last;
    }

    // Removes duplicate and collinear vertices between `start` and `end`
    // (the whole list once something goes). Returns a node still in the list.
    static Node* filterPoints(Node* start, Node* end = nullptr) {
        if (!start) return start;
        if (!end) end = start;
        Node* p = start;
        bool again;
        do {
            again = false;
            if (!p->steiner && (samePosition(p, p->next) || turn(p->prev, p, p->next) == 0.0)) {
                Node* back = p->prev;
                unlink(p);
                p = end = back;
                if (p == p->next) break;
                again = true;
            } else {
                p = p->next;
            }
        } while (again || p != end);
        return end;
    }

    // ---- z-order curve ----

    uint32_t zOrder(double x, double y) const {
        auto cell = [this](double v, double lo) {
            const double c = (v - lo) * invSize;
            return uint32_t(c <= 0.0 ? 0.0 : (c >= 32767.0 ? 32767.0 : c));
        };
        uint32_t ix = cell(x, minX), iy = cell(y, minY);
        ix = (ix | (ix << 8)) & 0x00FF00FFu;
        ix = (ix | (ix << 4)) & 0x0F0F0F0Fu;
        ix = (ix | (ix << 2)) & 0x33333333u;
        ix = (ix | (ix << 1)) & 0x55555555u;
        iy = (iy | (iy << 8)) & 0x00FF00FFu;
        iy = (iy | (iy << 4)) & 0x0F0F0F0Fu;
        iy = (iy | (iy << 2)) & 0x33333333u;
        iy = (iy | (iy << 1)) & 0x55555555u;
        return ix | (iy << 1);
    }

    // Links the list in z order as well, as an open chain: the nodes are
    // sorted in an array, which is faster than sorting the links.
    std::vector<Node*> byZ;
    void indexCurve(Node* start) {
        byZ.clear();
        Node* p = start;
        do {
            p->z = zOrder(p->x, p->y);
            byZ.push_back(p);
            p = p->next;
        } while (p != start);
        std::sort(byZ.begin(), byZ.end(), [](const Node* a, const Node* b) { return a->z < b->z; });
        Node* before = nullptr;
        for (Node* n : byZ) {
            n->prevZ = before;
            if (before) before->nextZ = n;
            before = n;
        }
        before->nextZ = nullptr;
    }

    // ---- ear tests ----

    // A reflex (or flat) vertex inside the candidate triangle blocks it;
    // convex ones cannot, since an edge would have to reach them past a
    // reflex vertex first.
    static bool blocks(const Node* p, double ax, double ay, double bx, double by, double cx,
                       double cy) {
        return inTriangle(ax, ay, bx, by, cx, cy, p->x, p->y) && turn(p->prev, p, p->next) <= 0.0;
    }

    static bool isEar(const Node* ear) {
        const Node* a = ear->prev;
        const Node* b = ear;
        const Node* c = ear->next;
        if (turn(a, b, c) <= 0.0) return false;
        const double ax = a->x, ay = a->y, bx = b->x, by = b->y, cx = c->x, cy = c->y;
        const double x0 = std::min(ax, std::min(bx, cx)), x1 = std::max(ax, std::max(bx, cx));
        const double y0 = std::min(ay, std::min(by, cy)), y1 = std::max(ay, std::max(by, cy));
        for (const Node* p = c->next; p != a; p = p->next) {
            if (p->x >= x0 && p->x <= x1 && p->y >= y0 && p->y <= y1 &&
                blocks(p, ax, ay, bx, by, cx, cy))
                return false;
        }
        return true;
    }

    bool isEarHashed(const Node* ear) const {
        const Node* a = ear->prev;
        const Node* b = ear;
        const Node* c = ear->next;
        if (turn(a, b, c) <= 0.0) return false;
        const double ax = a->x, ay = a->y, bx = b->x, by = b->y, cx = c->x, cy = c->y;
        const double x0 = std::min(ax, std::min(bx, cx)), x1 = std::max(ax, std::max(bx, cx));
        const double y0 = std::min(ay, std::min(by, cy)), y1 = std::max(ay, std::max(by, cy));
        const uint32_t minZ = zOrder(x0, y0);
        const uint32_t maxZ = zOrder(x1, y1);
        auto blocking = [&](const Node* p) {
            return p != a && p != c && p->x >= x0 && p->x <= x1 && p->y >= y0 && p->y <= y1 &&
                   blocks(p, ax, ay, bx, by, cx, cy);
        };
        // Every vertex inside the triangle's box lies between minZ and maxZ
        // on the curve; walk out from the ear in both directions at once.
        const Node* p = ear->prevZ;
        const Node* n = ear->nextZ;
        while (p && p->z >= minZ && n && n->z <= maxZ) {
            if (blocking(p) || blocking(n)) return false;
            p = p->prevZ;
            n = n->nextZ;
        }
        for (; p && p->z >= minZ; p = p->prevZ)
            if (blocking(p)) return false;
        for (; n && n->z <= maxZ; n = n->nextZ)
            if (blocking(n)) return false;
        return true;
    }

    // ---- diagonals ----

    // The diagonal a-b leaves a into the polygon's interior.
    static bool locallyInside(const Node* a, const Node* b) {
        if (turn(a->prev, a, a->next) > 0.0) // convex corner
            return turn(a, b, a->next) <= 0.0 && turn(a, a->prev, b) <= 0.0;
        return turn(a, b, a->prev) > 0.0 || turn(a, a->next, b) > 0.0;
    }

    // The midpoint of a-b lies inside the polygon (crossing parity).
    static bool middleInside(const Node* a, const Node* b) {
        const double px = (a->x + b->x) / 2.0, py = (a->y + b->y) / 2.0;
        bool inside = false;
        const Node* p = a;
        do {
            const Node* q = p->next;
            if ((p->y > py) != (q->y > py) && q->y != p->y &&
                px < (q->x - p->x) * (py - p->y) / (q->y - p->y) + p->x)
                inside = !inside;
            p = q;
        } while (p != a);
        return inside;
    }

    static bool crossesAnyEdge(const Node* a, const Node* b) {
        const Node* p = a;
        do {
            const Node* q = p->next;
            if (p->point != a->point && q->point != a->point && p->point != b->point &&
                q->point != b->point && segmentsMeet(p, q, a, b))
                return true;
            p = q;
        } while (p != a);
        return false;
    }

    static bool isValidDiagonal(const Node* a, const Node* b) {
        if (a->next->point == b->point || a->prev->point == b->point || crossesAnyEdge(a, b))
            return false;
        // Visible from both ends, and not making two sectors that face apart.
        if (locallyInside(a, b) && locallyInside(b, a) && middleInside(a, b) &&
            (turn(a->prev, a, b->prev) != 0.0 || turn(a, b->prev, b) != 0.0))
            return true;
        // Two copies of one point (from a bridge), both convex.
        return samePosition(a, b) && turn(a->prev, a, a->next) < 0.0 &&
               turn(b->prev, b, b->next) < 0.0;
    }

    // Joins a and b by a diagonal: a keeps going to b, and copies of both
    // close the other part. Returns the copy of b, which lies in that part.
    Node* splitPolygon(Node* a, Node* b) {
        Node* a2 = arena.make(a->x, a->y, a->point);
        Node* b2 = arena.make(b->x, b->y, b->point);
        Node* an = a->next;
        Node* bp = b->prev;
        a->next = b;
        b->prev = a;
        a2->next = an;
        an->prev = a2;
        b2->next = a2;
        a2->prev = b2;
        bp->next = b2;
        b2->prev = bp;
        return b2;
    }

    // ---- holes ----

    static Node* leftmost(Node* start) {
        Node* p = start;
        Node* best = start;
        do {
            if (p->x < best->x || (p->x == best->x && p->y < best->y)) best = p;
            p = p->next;
        } while (p != start);
        return best;
    }

    // A vertex of the outer list that the hole's leftmost vertex can see,
    // found by a ray towards -x. Null when there is none. The outer list is
    // scanned through `joined`, in memory order, rather than link by link.
    Node* findBridge(const Node* hole) const {
        const double hx = hole->x, hy = hole->y;
        double qx = -HUGE_VAL;
        Node* m = nullptr;
        // The nearest edge on the left that runs downward (the counter-
        // clockwise outer list's left side) and spans the hole's height.
        for (Node* p : joined) {
            if (hy > p->y || p->removed) continue;
            const Node* q = p->next;
            if (hy < q->y || q->y == p->y) continue;
            const double x = p->x + (hy - p->y) * (q->x - p->x) / (q->y - p->y);
            if (x <= hx && x > qx) {
                qx = x;
                m = p->x < q->x ? p : p->next;
                if (x == hx) return m; // the hole touches the edge
            }
        }
        if (!m) return nullptr;

        // Reflex vertices inside the triangle (hole point, ray hit, m) would
        // hide m; then take the one at the smallest angle to the ray.
        const Node* first = m;
        const double mx = m->x, my = m->y;
        const double ax = hy < my ? hx : qx, cx = hy < my ? qx : hx;
        double bestTan = HUGE_VAL;
        // m itself first, then the rest of the list; most fail on x alone.
        for (size_t k = 0; k <= joined.size(); ++k) {
            Node* p = k == 0 ? m : joined[k - 1];
            const double px = p->x;
            if (px > hx || px < mx || px == hx || (k > 0 && (p == first || p->removed))) continue;
            if (!inTriangle(ax, hy, mx, my, cx, hy, px, p->y)) continue;
            const double tan = std::fabs(hy - p->y) / (hx - px);
            if (locallyInside(p, hole) &&
                (tan < bestTan ||
                 (tan == bestTan && (px > m->x || (px == m->x && sectorContainsSector(m, p)))))) {
                m = p;
                bestTan = tan;
            }
        }
        return m;
    }

    // The sector of m contains the sector of p (two copies of one point).
    static bool sectorContainsSector(const Node* m, const Node* p) {
        return turn(m->prev, m, p->prev) > 0.0 && turn(p->next, m, m->next) > 0.0;
    }

    void join(Node* start) {
        Node* p = start;
        do {
            joined.push_back(p);
            p = p->next;
        } while (p != start);
    }

    Node* eliminateHoles(const std::vector<std::vector<vec2>>& rings, Node* outer) {
        std::vector<Node*> holes;
        uint32_t first = uint32_t(rings[0].size());
        for (size_t r = 1; r < rings.size(); ++r) {
            const std::vector<vec2>& ring = rings[r];
            if (!ring.empty()) {
                Node* list = buildList(ring, first, false);
                if (list == list->next) list->steiner = true;
                holes.push_back(leftmost(list));
            }
            first += uint32_t(ring.size());
        }
        std::stable_sort(holes.begin(), holes.end(), [](const Node* a, const Node* b) {
            return a->x < b->x || (a->x == b->x && a->y < b->y);
        });
        join(outer);
        for (Node* hole : holes) {
            Node* bridge = findBridge(hole);
            if (!bridge) continue; // not inside the outer ring: left out
            join(hole);
            Node* bridgeCopy = splitPolygon(bridge, hole);
            joined.push_back(bridgeCopy);
            joined.push_back(bridgeCopy->next);
            Node* kept = filterPoints(bridgeCopy, bridgeCopy->next);
            // The first clean-up may have gone round the whole list.
            outer = bridge->removed ? kept : filterPoints(bridge, bridge->next);
        }
        return outer;
    }

    // ---- the cutting ----

    void cutEars(Node* ear, int stage) {
        if (!ear) return;
        if (stage == 0 && hashed) indexCurve(ear);
        Node* stop = ear;
        while (ear->prev != ear->next) {
            Node* prev = ear->prev;
            Node* next = ear->next;
            if (hashed ? isEarHashed(ear) : isEar(ear)) {
                emit(prev, ear, next);
                unlink(ear);
                // Going on two vertices ahead makes fewer slivers.
                ear = next->next;
                stop = next->next;
                continue;
            }
            ear = next;
            if (ear == stop) { // a whole round without an ear
                if (stage == 0) {
                    pending.emplace_back(filterPoints(ear), 1);
                } else if (stage == 1) {
                    pending.emplace_back(cureLocalIntersections(filterPoints(ear)), 2);
                } else {
                    splitAndQueue(ear);
                }
                return;
            }
        }
    }

    // Cuts off the triangle a, p, p.next, b wherever the edges a-p and
    // p.next-b cross, which untangles small self-intersections.
    Node* cureLocalIntersections(Node* start) {
        Node* p = start;
        do {
            Node* a = p->prev;
            Node* b = p->next->next;
            if (!samePosition(a, b) && segmentsMeet(a, p, p->next, b) && locallyInside(a, b) &&
                locallyInside(b, a)) {
                emit(a, p, b);
                unlink(p->next);
                unlink(p);
                p = start = b;
            }
            p = p->next;
        } while (p != start);
        return filterPoints(p);
    }

    // Splits the list along the first valid diagonal and queues both parts.
    void splitAndQueue(Node* start) {
        Node* a = start;
        do {
            for (Node* b = a->next->next; b != a->prev; b = b->next) {
                if (a->point != b->point && isValidDiagonal(a, b)) {
                    Node* c = splitPolygon(a, b);
                    a = filterPoints(a, a->next);
                    c = filterPoints(c, c->next);
                    pending.emplace_back(c, 0);
                    pending.emplace_back(a, 0);
                    return;
                }
            }
            a = a->next;
        } while (a != start);
        // No diagonal: the rest stays open.
    }

    void run(Node* outer) {
        pending.emplace_back(outer, 0);
        while (!pending.empty()) {
            const auto [list, stage] = pending.back();
            pending.pop_back();
            cutEars(list, stage);
        }
    }
};

bool allFinite(const std::vector<std::vector<vec2>>& rings) {
    for (const std::vector<vec2>& ring : rings)
        for (const vec2& p : ring)
            if (!std::isfinite(p.x) || !std::isfinite(p.y)) return false;
    return true;
}

} // namespace

void triangulateRings(const std::vector<std::vector<vec2>>& rings,
                      std::vector<uint32_t>& triangles) {
    triangles.clear();
    if (rings.empty() || rings[0].size() < 3 || !allFinite(rings)) return;

    size_t total = 0;
    for (const std::vector<vec2>& ring : rings) total += ring.size();
    // Each bridge adds two nodes; splits, which are rare, get more blocks.
    EarClipper clipper(total + 2 * rings.size(), triangles);
    triangles.reserve(3 * (total + 2 * rings.size()));

    Node* outer = clipper.buildList(rings[0], 0, true);
    if (!outer || outer->next == outer->prev) return;
    if (rings.size() > 1) outer = clipper.eliminateHoles(rings, outer);

    if (total > kHashThreshold) {
        // The curve covers every ring, so every node maps inside its grid.
        double minX = HUGE_VAL, minY = HUGE_VAL, maxX = -HUGE_VAL, maxY = -HUGE_VAL;
        for (const std::vector<vec2>& ring : rings)
            for (const vec2& p : ring) {
                minX = std::min(minX, double(p.x));
                minY = std::min(minY, double(p.y));
                maxX = std::max(maxX, double(p.x));
                maxY = std::max(maxY, double(p.y));
            }
        const double size = std::max(maxX - minX, maxY - minY);
        clipper.hashed = size > 0.0;
        clipper.minX = minX;
        clipper.minY = minY;
        clipper.invSize = size > 0.0 ? 32767.0 / size : 0.0;
    }
    clipper.run(outer);
}

} // namespace textgeom
