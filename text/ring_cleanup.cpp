#include "text/ring_cleanup.h"

#include <cmath>
#include <limits>

namespace textgeom {

double ringSignedArea2(const std::vector<vec2>& ring) {
    const size_t n = ring.size();
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const vec2& a = ring[i];
        const vec2& b = ring[(i + 1) % n];
        sum += double(a.x) * double(b.y) - double(a.y) * double(b.x);
    }
    return sum;
}

bool isRingDegenerate(const std::vector<vec2>& ring) {
    const size_t n = ring.size();
    if (n < 3) return true;
    if (0.1 > std::fabs(ringSignedArea2(ring)) * 0.5) return true;
    double shortestSq = std::numeric_limits<double>::max();
    for (size_t i = 0; i < n; ++i) {
        const double lengthSq = distanceSq(ring[i], ring[(i + 1) % n]);
        if (lengthSq < shortestSq) shortestSq = lengthSq;
    }
    return 0.0001 > shortestSq;
}

void dropCollinearDuplicates(std::vector<vec2>& ring, float limit) {
    const size_t n = ring.size();
    if (n < 3) return;
    std::vector<vec2> kept;
    kept.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        const vec2& prev = ring[(i + n - 1) % n];
        const vec2& cur = ring[i];
        const vec2& next = ring[(i + 1) % n];
        const float cross =
            (cur.x - prev.x) * (next.y - cur.y) - (next.x - cur.x) * (cur.y - prev.y);
        if (std::fabs(cross) > limit || kept.empty() || distanceSq(kept.back(), cur) > 1e-6f)
            kept.push_back(cur);
    }
    ring.swap(kept);
}

} // namespace textgeom
