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

} // namespace meshGeometry
