// Mesh processing: grid simplification, midpoint subdivision, non-manifold edges.
//
// The two `meshutils` operations work on a caller-owned `MeshData` in place:
// they build new vertex and index lists and swap them in at the end, and each
// writes one result line to standard output (not to the host logger).
#pragma once

#include <korvex/records.h>

#include <vector>

namespace meshutils {

// Vertex clustering on a uniform grid.
//
// Inputs: `mesh` (in/out): vertices and a triangle list of 32-bit indices;
// `options`: `cellSize` is the cell edge when greater than 0, otherwise the
// edge is 1% of the bounding-box diagonal divided by sqrt(`detail`); an edge
// of 0 or less becomes 0.001.
//
// The grid starts at the minimum corner of the bounds of all vertices; a cell
// is half-open (a coordinate on a grid plane belongs to the cell above). The
// first vertex to fall into a cell represents it, copied unchanged, and the new
// vertex list is in order of first occurrence. Triangles keep their order and
// winding; a triangle that loses a corner that way is dropped, as is one with
// an index outside the vertex list. One or two left-over indices are dropped.
// Unused vertices stay. Prints "[Simplify] Result: V verts, T triangles".
//
// Does nothing and prints nothing when either list is empty.
//
// Cell indices are signed 32-bit: a cell index beyond that range (a cell tiny
// against the extent) is clamped to the nearest representable one, and a NaN
// coordinate gives the lowest one, so such vertices share the outermost cells
// instead of overflowing.
//
// Throws std::length_error for more than 2^32 - 1 vertices, before the mesh
// is changed.
KORVEX_API void SimplifyVertexClustering(MeshData& mesh, const SimplifyOptions& options);

// One-to-four midpoint splitting, `passes` times (none when below 1).
//
// Inputs: `mesh` (in/out); `passes`: the number of passes.
//
// Each pass keeps every old vertex at its index and appends one vertex per
// distinct undirected index pair (edge), in order of first encounter over the
// triangles' edges (a, b), (b, c), (c, a). The edge vertex is the midpoint of
// position and uv, the renormalised sum of normal, tangent and bitangent (the
// zero vector where that sum is zero), and the record's defaults elsewhere.
// Each triangle becomes, in place of itself, (a, ab, ca), (ab, b, bc),
// (ca, bc, c), (ab, bc, ca). A pass turns V vertices, E edges and T triangles
// into V + E vertices and 4T triangles. Left-over indices are dropped, and so
// is a triangle with an index outside the vertex list. After the last pass
// (or at once for no pass) prints "[Subdivide] Result: V verts, T triangles".
//
// Throws std::length_error when a pass would need vertex indices beyond 32
// bits; the mesh then holds the result of the last finished pass.
KORVEX_API void LoopSubdivide(MeshData& mesh, int passes);

} // namespace meshutils

// The edges that more than two triangles of a triangle soup use.
//
// Input: the triangles, by their corner coordinates (`p0`, `p1`, `p2`).
// Output: each edge used three or more times, once, with its end points in
// the canonical order of `MakeEdge` and the coordinates of the first triangle
// that used it. Edges are matched as a hash container of `Edge` with
// `EdgeHash` matches them: reliably where shared corners carry equal floats.
// The result is in order of each edge's first use.
KORVEX_API std::vector<Edge> DetectNonManifoldEdges(const std::vector<Triangle>& triangles);
