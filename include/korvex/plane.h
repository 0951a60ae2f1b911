// Small helpers for planes, plane coordinates, polylines and edges. All work
// in single precision, allocate nothing and keep no state.
#pragma once

#include <korvex/records.h>

#include <vector>

// (0, 1, 0) when |v.y| < 0.9, else (1, 0, 0): the reference axis for a basis.
KORVEX_API vec3 closestAxis(const vec3& v);

// first = normalize(cross(r, n)), second = normalize(cross(n, first)), with r
// = closestAxis(n). n is used as given; with a unit n the three are a
// right-handed orthonormal set.
KORVEX_API void buildPlaneBasis(const vec3& n, vec3& first, vec3& second);

// dot(point - planePoint, normal); a true distance only for a unit normal.
KORVEX_API float signedDistToPlane(const vec3& point, const vec3& planePoint, const vec3& normal);

// Where the segment a-b meets the plane. Ends within `tolerance` of the plane
// (inclusive) count as on it: both on it gives the midpoint, one on it gives
// that end. `result` is written only when true is returned.
KORVEX_API bool intersectSegmentPlane(const vec3& a, const vec3& b, const vec3& planePoint,
                                      const vec3& normal, vec3& result, float tolerance);

// Coordinates of a point in the plane frame (origin, first axis, second axis).
KORVEX_API vec2 worldToUV(const vec3& point, const vec3& origin, const vec3& first,
                          const vec3& second);

// Squared distance from a point to an open polyline; 3.4028235e38 for fewer
// than 2 points. Zero-length segments are skipped.
KORVEX_API float distPointPolylineSq(const vec2& point, const std::vector<vec2>& polyline);

// True when |a - b| < tolerance (Euclidean, strict).
KORVEX_API bool EqualVec3(const vec3& a, const vec3& b, float tolerance);

// The edge with its end points in lexicographic (x, y, z) order.
KORVEX_API Edge MakeEdge(vec3 a, vec3 b);
