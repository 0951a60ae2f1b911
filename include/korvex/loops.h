// Edge sets walked into loops; loop resampling, thinning and ear-clipping triangulation.
//
// A loop is a std::vector<vec3> whose closing segment, from the last point back
// to the first, is implied unless a function below says otherwise.
#pragma once

#include <korvex/records.h>
#include <korvex/hasher.h>

#include <unordered_set>
#include <vector>

namespace meshGeometry {

// orderLoop: walks an unordered edge set into one ordered loop.
//
// Inputs:  edges, read only. End points meet only where their three floats
//          compare equal (+0 equals -0); the tolerance of Edge::operator== plays
//          no part in the walk.
// Output:  loop, replaced. The walk starts at some point of the set (the hash
//          tables decide which) and at each step moves to the first unvisited
//          neighbour in the order the set delivered the edges, without
//          backtracking. It stops when no unvisited neighbour is left, when it
//          reaches a point strictly closer than 0.0001 to the start, or after
//          10001 moves. Each point appears once; the first is not repeated.
// Result:  true when the walk found at least 3 points. It does not promise that
//          the loop is closed or that every edge was used.
//
// With an empty set, or fewer than 3 distinct points, the loop is left as it
// was and false is returned. Every stage writes a line to the host logger LOG.
KORVEX_API bool orderLoop(const std::unordered_set<Edge, EdgeHash>& edges, std::vector<vec3>& loop);

// resampleLoopToCount: redistributes a closed loop to `count` points at equal
// arc-length spacing.
//
// Inputs:  loop, read only, closed implicitly or explicitly: when its last
//          point lies more than 1e-5 from its first, the closing segment is
//          walked as well. count, the number of points wanted.
// Result:  `count` points, the first being the loop's first point and the rest
//          at k * perimeter / count along the loop (k = 1 .. count - 1), cutting
//          corners that no position falls on. The first point is not repeated.
//          A loop of fewer than 2 points, or a count below 3, comes back as a
//          copy. A loop whose points all coincide gives `count` copies of it.
KORVEX_API std::vector<vec3> resampleLoopToCount(const std::vector<vec3>& loop, int count);

// decimate: thins a point sequence so that kept neighbours are more than
// `tolerance` apart (not a line simplification: no point is weighed by its
// distance from a line).
//
// Inputs:  loop, read only, any sequence of points. tolerance, a distance.
// Result:  the first point, then each later point strictly farther than the
//          tolerance from the last point kept. When the last kept point lies
//          strictly farther than the tolerance from the first, a copy of the
//          first is appended, closing the loop explicitly. Empty for an empty
//          input.
KORVEX_API std::vector<vec3> decimate(const std::vector<vec3>& loop, float tolerance);

// triangulatePolygon: ear clipping of a simple polygon.
//
// Inputs:  polygon, read only, closed implicitly and running clockwise with x
//          to the right and y upward (negative signed area). Nothing checks or
//          corrects the orientation: a counter-clockwise polygon has no ears.
// Result:  index triples into the polygon, each running in the polygon's
//          direction; n - 2 of them for a simple clockwise polygon without
//          collinear corners. The scan restarts from the first corner after
//          each ear; it stops with fewer than 3 corners left, or when a full
//          scan finds no ear, returning what was cut so far (a self-
//          intersecting polygon, a collinear corner left at the end). Empty for
//          fewer than 3 points.
KORVEX_API std::vector<ivec3> triangulatePolygon(const std::vector<vec2>& polygon);

} // namespace meshGeometry
