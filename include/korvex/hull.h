// Convex hulls in the plane and of 3D points projected onto a plane.
#pragma once

#include <korvex/records.h>

#include <vector>

namespace meshGeometry {

// convexHull2D: the convex hull of a point set in the plane (monotone chain,
// O(n log n)).
//
// Inputs:  points, read only, in any order; repeats allowed. Points with a NaN
//          or infinite coordinate are left out.
// Result:  the hull's corners, counter-clockwise (x right, y up), starting at
//          the smallest point by x and then y. Each corner appears once, and
//          points on a side of the hull are not corners. With fewer than 3
//          distinct points, those points once each in the same (x, y) order;
//          with all points on one line, its two ends.
KORVEX_API std::vector<vec2> convexHull2D(const std::vector<vec2>& points);

// convexHullProjected: the outline of a 3D point set seen along a direction.
//
// Inputs:  points, read only. direction, read only, any nonzero length.
// Result:  The points are flattened onto the plane through their mean c across
//          the unit direction n, with the basis u = normalize(cross(n, Y)) (or
//          cross(n, X) when n lies within 0.001 of the y axis) and v =
//          normalize(cross(n, u)); the 2D hull of their (u, v) coordinates is
//          mapped back as c + x * u + y * v. The corners run counter-clockwise
//          seen from the side n points to, so they lie on that plane, not on
//          the input points unless those were already on it.
//          Fewer than 3 points come back as a copy, whatever the direction. A
//          zero or non-finite direction gives an empty result.
KORVEX_API std::vector<vec3> convexHullProjected(const std::vector<vec3>& points,
                                                 const vec3& direction);

} // namespace meshGeometry
