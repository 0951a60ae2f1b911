// The two even-odd point-in-polygon tests and the 2D cross product.
#include <korvex/polygon.h>

namespace meshGeometry {

float cross2D(const vec2& a, const vec2& b, const vec2& c) {
    return (c.y - a.y) * (b.x - a.x) - (b.y - a.y) * (c.x - a.x);
}

// The tiny addend keeps a horizontal edge from dividing by zero without acting as a guard; the
// strict comparisons give both tests the same rule on the boundary.
bool isPointInPolygon(const vec2& p, const std::vector<vec2>& polygon) {
    bool inside = false;
    const size_t n = polygon.size();
    for (size_t i = 0, j = n - 1; i < n; j = i++) {
        const vec2& a = polygon[i];
        const vec2& b = polygon[j];
        if ((a.y > p.y) != (b.y > p.y)) {
            const float x = (p.y - a.y) * (b.x - a.x) / (b.y - a.y + 1e-10f) + a.x;
            if (x > p.x) inside = !inside;
        }
    }
    return inside;
}

} // namespace meshGeometry

bool isPointInsidePolygon2D(const vec2& p, const std::vector<vec2>& polygon) {
    const size_t n = polygon.size();
    size_t crossings = 0;
    for (size_t i = 0; i < n; ++i) {
        const vec2& a = polygon[i];
        const vec2& b = polygon[(i + 1) % n];
        if ((a.y > p.y) != (b.y > p.y)) {
            const float x = (p.y - a.y) * (b.x - a.x) / (b.y - a.y + 1e-5f) + a.x;
            if (x > p.x) ++crossings;
        }
    }
    return crossings % 2 == 1;
}
