// Tests of points, rectangles and boxes against closed planar polygons.
//
// A polygon is its vertices in order, closed implicitly (the last vertex joins the first, and
// is not repeated); any direction of travel, simple or not, no holes. Single precision, no NaN
// checks: a comparison with NaN is false, so a NaN coordinate makes a test fail.
#pragma once

#include <korvex/records.h>

#include <vector>

namespace meshGeometry {

// (c.y - a.y) * (b.x - a.x) - (b.y - a.y) * (c.x - a.x): the z of cross(b - a, c - a), positive
// when c lies left of the direction a to b with y upwards.
KORVEX_API float cross2D(const vec2& a, const vec2& b, const vec2& c);

// Even-odd rule along +x, each vertex i paired with the one before it; 1e-10 is added to the
// divisor. A point on an edge with the interior on its +x side is inside, on its -x side
// outside. False for an empty polygon.
KORVEX_API bool isPointInPolygon(const vec2& point, const std::vector<vec2>& polygon);

// True at the first polygon vertex within the triangle's bounding rectangle, bounds included;
// the triangle's shape and the polygon's edges play no part. False for an empty polygon.
KORVEX_API bool triangleAABBIntersectsPolygon(const vec2& a, const vec2& b, const vec2& c,
                                              const std::vector<vec2>& polygon);

// Per-axis minimum and maximum of the vertices. An empty polygon gives the inverted rectangle
// (minima 3.4028235e38, maxima -3.4028235e38), which contains no point.
KORVEX_API ScreenRect computePolygonBounds(const std::vector<vec2>& polygon);

// The same rectangle, started from the first vertex. An empty polygon gives all four values 0.
KORVEX_API ScreenRect calculatePolygonScreenAABB_2D(const std::vector<vec2>& polygon);

} // namespace meshGeometry

// Even-odd rule along +x, each vertex i paired with the one after it; 1e-5 is added to the
// divisor and the crossings are counted. False for an empty polygon.
KORVEX_API bool isPointInsidePolygon2D(const vec2& point, const std::vector<vec2>& polygon);

// True at the first polygon vertex inside the box on all three axes, bounds included; a polygon
// that passes through the box with no vertex inside gives false, as does an empty one.
KORVEX_API bool aabbIntersectsPolygon(const AABB& box, const std::vector<vec3>& polygon);
