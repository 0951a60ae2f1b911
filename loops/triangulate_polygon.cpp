#include <korvex/loops.h>

#include <climits>

namespace meshGeometry {

namespace {

// Turn at B of the path A -> B -> C; negative is a right turn, which is a
// convex corner of a clockwise polygon.
float turn(const vec2& a, const vec2& b, const vec2& c) {
    return (b.x - a.x) * (c.y - b.y) - (c.x - b.x) * (b.y - a.y);
}

// Barycentric test from corner A. The sides AB and AC count as inside, the
// side BC as outside; a degenerate triangle contains nothing.
bool insideTriangle(const vec2& p, const vec2& a, const vec2& b, const vec2& c) {
    const vec2 e0 = c - a, e1 = b - a, e2 = p - a;
    const float d00 = glm::dot(e0, e0), d01 = glm::dot(e0, e1), d11 = glm::dot(e1, e1);
    const float d02 = glm::dot(e0, e2), d12 = glm::dot(e1, e2);
    const float den = d00 * d11 - d01 * d01;
    if (den == 0.0f) return false;
    const float u = (d11 * d02 - d01 * d12) / den;
    const float v = (d00 * d12 - d01 * d02) / den;
    return u >= 0.0f && v >= 0.0f && u + v < 1.0f;
}

bool isEar(const std::vector<vec2>& polygon, const std::vector<int>& active, int a, int b, int c) {
    if (!(turn(polygon[a], polygon[b], polygon[c]) < 0.0f)) return false;
    for (int p : active) {
        if (p == a || p == b || p == c) continue;
        if (insideTriangle(polygon[p], polygon[a], polygon[b], polygon[c])) return false;
    }
    return true;
}

} // namespace

std::vector<ivec3> triangulatePolygon(const std::vector<vec2>& polygon) {
    std::vector<ivec3> triangles;
    // Indices are 32-bit signed; a larger polygon cannot be answered.
    if (polygon.size() < 3 || polygon.size() > static_cast<size_t>(INT_MAX)) return triangles;

    std::vector<int> active(polygon.size());
    for (size_t i = 0; i < active.size(); ++i) active[i] = static_cast<int>(i);

    while (active.size() >= 3) {
        const size_t m = active.size();
        bool cut = false;
        for (size_t i = 0; i < m; ++i) {
            const int a = active[(i + m - 1) % m], b = active[i], c = active[(i + 1) % m];
            if (!isEar(polygon, active, a, b, c)) continue;
            triangles.emplace_back(a, b, c);
            active.erase(active.begin() + static_cast<std::ptrdiff_t>(i));
            cut = true;
            break; // rescan from the first corner
        }
        if (!cut) break; // no ear left: not simple, or not clockwise
    }
    return triangles;
}

} // namespace meshGeometry
