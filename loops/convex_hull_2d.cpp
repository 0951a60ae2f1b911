#include <korvex/hull.h>

#include <algorithm>
#include <cmath>

namespace meshGeometry {

namespace {

bool lexicographicLess(const vec2& a, const vec2& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
}

// Turn of o -> a -> b, positive to the left. Computed in double: the
// differences of floats of like magnitude are exact there, so collinear input
// points (grid points, points on an axis) give exactly zero and are dropped.
double turn(const vec2& o, const vec2& a, const vec2& b) {
    const double ax = double(a.x) - double(o.x), ay = double(a.y) - double(o.y);
    const double bx = double(b.x) - double(o.x), by = double(b.y) - double(o.y);
    return ax * by - ay * bx;
}

} // namespace

std::vector<vec2> convexHull2D(const std::vector<vec2>& points) {
    // Non-finite points are dropped first: a NaN breaks the sort's ordering.
    std::vector<vec2> sorted;
    sorted.reserve(points.size());
    for (const vec2& p : points) {
        if (std::isfinite(p.x) && std::isfinite(p.y)) sorted.push_back(p);
    }
    std::sort(sorted.begin(), sorted.end(), lexicographicLess);
    // +0 and -0 compare equal and count as one point.
    sorted.erase(std::unique(sorted.begin(), sorted.end(),
                             [](const vec2& a, const vec2& b) { return a.x == b.x && a.y == b.y; }),
                 sorted.end());
    if (sorted.size() < 3) return sorted;

    // Andrew's monotone chain: the lower chain left to right, then the upper
    // chain right to left, each keeping only strict left turns.
    std::vector<vec2> hull(2 * sorted.size());
    size_t k = 0;
    for (const vec2& p : sorted) {
        while (k >= 2 && turn(hull[k - 2], hull[k - 1], p) <= 0.0) --k;
        hull[k++] = p;
    }
    const size_t lowerEnd = k + 1;
    for (size_t i = sorted.size() - 1; i-- > 0;) {
        while (k >= lowerEnd && turn(hull[k - 2], hull[k - 1], sorted[i]) <= 0.0) --k;
        hull[k++] = sorted[i];
    }
    hull.resize(k - 1); // the last point is the first again
    return hull;
}

} // namespace meshGeometry
