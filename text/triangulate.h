// Triangulation of one polygon with holes by ear clipping, for the caps of
// text solids. Internal to the library.
//
// The method: each ring becomes a doubly linked list (the outer ring turned
// counter-clockwise, holes clockwise); every hole is joined to the outer list
// by a bridge to a visible vertex, leftmost hole first; then ears are cut
// from the single list. Long lists keep a second order along a z-order curve,
// so the test for points inside a candidate ear only visits nearby vertices.
// When no ear is left, the list is cleaned of duplicate and collinear
// vertices, then small self-intersections are cut off, and last it is split
// along a valid diagonal and both halves are done anew.
#pragma once

#include <korvex/records.h>

#include <cstdint>
#include <vector>

namespace textgeom {

// Triangulates the polygon `rings`: the outer ring first, then its holes, in
// any direction, no repeated closing point needed. `triangles` is replaced by
// a flat list of indices into the rings' points taken end to end, three per
// triangle, each counter-clockwise (seen from +z with y up). No point is
// added. Degenerate input (too few points, all collinear, duplicates,
// self-touching rings) gives fewer or no triangles, never a hang; a ring
// holding a coordinate that is not finite gives no triangles at all.
void triangulateRings(const std::vector<std::vector<vec2>>& rings,
                      std::vector<uint32_t>& triangles);

} // namespace textgeom
