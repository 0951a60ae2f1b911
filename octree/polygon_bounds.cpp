// Rectangles around a polygon and the vertex-in-rectangle overlap tests.
#include <korvex/polygon.h>

namespace meshGeometry {

namespace {

// The rectangle grown to take in every vertex; the two bounds differ only in
// where they start.
ScreenRect widenedBy(ScreenRect r, const std::vector<vec2>& polygon) {
    for (const vec2& v : polygon) {
        if (v.x < r.minX) r.minX = v.x;
        if (v.y < r.minY) r.minY = v.y;
        if (v.x > r.maxX) r.maxX = v.x;
        if (v.y > r.maxY) r.maxY = v.y;
    }
    return r;
}

} // namespace

ScreenRect computePolygonBounds(const std::vector<vec2>& polygon) {
    ScreenRect r(kFloatMax, kFloatMax, -kFloatMax, -kFloatMax);
    return widenedBy(r, polygon);
}

ScreenRect calculatePolygonScreenAABB_2D(const std::vector<vec2>& polygon) {
    if (polygon.empty()) return ScreenRect(0.0f, 0.0f, 0.0f, 0.0f);
    ScreenRect r(polygon[0].x, polygon[0].y, polygon[0].x, polygon[0].y);
    return widenedBy(r, polygon);
}

bool triangleAABBIntersectsPolygon(const vec2& a, const vec2& b, const vec2& c,
                                   const std::vector<vec2>& polygon) {
    const vec2 lo = glm::min(glm::min(a, b), c);
    const vec2 hi = glm::max(glm::max(a, b), c);
    for (const vec2& v : polygon)
        if (lo.x <= v.x && v.x <= hi.x && lo.y <= v.y && v.y <= hi.y) return true;
    return false;
}

} // namespace meshGeometry

bool aabbIntersectsPolygon(const AABB& box, const std::vector<vec3>& polygon) {
    for (const vec3& v : polygon)
        if (box.min.x <= v.x && v.x <= box.max.x && box.min.y <= v.y && v.y <= box.max.y &&
            box.min.z <= v.z && v.z <= box.max.z)
            return true;
    return false;
}
