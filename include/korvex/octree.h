// Octree over the triangles of an indexed mesh, and its ray, radius, sphere and plane queries.
//
// Every node's box is fitted to the triangles that reached it, a node is split at the centre of
// its own box, and each triangle goes to exactly one child, chosen by its centroid: child boxes
// may overlap, and no triangle is stored twice or clipped.
//
// Ownership: a builder returns the root as a raw pointer that the caller owns; free the whole
// tree with freeOctree. A tree holds no mesh data beyond index lists, so the queries are given
// the vertex and index arrays again, and they must match what the tree was built from.
//
// Triangle numbers: t stands for entries 3t, 3t + 1 and 3t + 2 of an index array. The queries
// that read triangle numbers use an entry only when it is valid for the given arrays (t >= 0,
// 3t + 2 below the index count, its three vertex indices below the vertex count) and pass over
// the others silently.
//
// Threads: the queries only read the tree, so any number may run on one finished tree at once,
// each with its own result. isSubtreeEmptyCached writes its memo into the nodes without a lock:
// calls of it on one tree must not overlap each other or other queries.
#pragma once

#include <korvex/records.h>

#include <cstdint>
#include <vector>

struct KORVEX_API OctreeNode {
    // Box of the vertices of every triangle of this subtree, exact fit.
    AABB bounds;
    // buildOctree: the box of the two corners of `bounds` through its matrix.
    // buildOctreeFromTriangleIndices: a copy of `bounds`.
    AABB worldBounds;
    // Entries of a leaf (empty in an interior node): vertex indices, three a triangle, from
    // buildOctree; triangle numbers, one a triangle, from buildOctreeFromTriangleIndices.
    std::vector<int> triangles;
    // Indexed by octant code: bit 0 for x, bit 1 for y, bit 2 for z, set on the upper side of
    // the centre. Slots of empty octants stay null; any slot may be null in an interior node.
    OctreeNode* children[8];
    // Carried for the host; nothing in the library reads it.
    int32_t reserved;
    // Memo of isSubtreeEmptyCached, false until it has run on this node.
    bool cachedEmpty;
    bool cachedEmptyValid;

    // Empty list, null children, zero `reserved`, clear memo; the boxes are left unset.
    OctreeNode();
    // Releases `triangles` only: the children belong to the holder of the tree (freeOctree).
    ~OctreeNode();

    // True when no child slot holds a node.
    bool isLeaf() const;
};

// Builds a tree over triangles given as vertex indices, three entries a triangle, on the
// calling thread.
//   positions   vertex positions, addressed by the entries of `indices`
//   indices     the triangles of this subtree; the length should be a multiple of 3
//   carriedList not read; handed on unchanged to every level
//   depth       depth of the node to build; 0 builds a tree of full depth (negative counts as 0)
//   matrix      the transform of worldBounds (two corners of `bounds`, no divide by w)
// Returns the root, or null when `indices` is empty. Leaves: depth above 8, fewer than 33
// entries, a box diagonal below 0.05, or every triangle in one octant. Entries that address no
// position widen no box and count as lying in the lowest octant.
KORVEX_API OctreeNode* buildOctree(const std::vector<vec3>& positions,
                                   const std::vector<unsigned int>& indices,
                                   const std::vector<size_t>& carriedList, int depth,
                                   const mat4& matrix);

// Builds a tree over triangle numbers of an indexed mesh; nodes of depth 2 or less build their
// children as asynchronous tasks (at most 584 in all), each parent joining its tasks in slot
// order before it returns.
//   positions       vertex positions
//   indices         the mesh's whole index array, three entries a triangle
//   triangleIndices numbers of the triangles to put into the tree, any subset, in any order
//   depth           depth of the node to build; 0 builds the full tree with the full fan-out
//                   (a negative depth counts as 0)
// Returns the root, or null when `triangleIndices` is empty. Leaves: depth above 8, fewer than
// 11 entries, or a box diagonal below 0.05. Triangles whose centroids share one octant make a
// chain of single children down to the depth limit. An invalid triangle number is still stored,
// once, but widens no box and counts as lying in the lowest octant.
KORVEX_API OctreeNode* buildOctreeFromTriangleIndices(const std::vector<vec3>& positions,
                                                      const std::vector<unsigned int>& indices,
                                                      const std::vector<int>& triangleIndices,
                                                      int depth);

// Deletes every node of the tree below and including `root`, without recursion. Null is fine.
// The tree must be one a builder made (each node reachable once).
KORVEX_API void freeOctree(OctreeNode* root);

// Appends, node's own list first and then slots 0 to 7, the entries of every node whose
// `bounds` the ray (mesh coordinates) meets by rayIntersectsAABB: a candidate list, no triangle
// is tested.
KORVEX_API void findTrianglesInOctree(OctreeNode* node, const Ray& ray, std::vector<int>& result);

// Appends the entries of every leaf whose `worldBounds` the sphere meets (AABBIntersectsSphere):
// a candidate list, no triangle is tested. `matrix` is not read.
KORVEX_API void findTrianglesInOctreeInRadius(OctreeNode* node, const vec3& center, float radius,
                                              const mat4& matrix, std::vector<int>& result);

// Appends the number of every triangle of the visited leaves that has a vertex within
// `tolerance` of the plane (|d| <= tolerance) or vertices on both sides of it. Raw vertex
// positions; `planeNormal` should be of unit length for `tolerance` to be a distance.
KORVEX_API void findTrianglesNearPlane(const OctreeNode* node, const vec3& planePoint,
                                       const vec3& planeNormal,
                                       const std::vector<kvx::nsVertex>& vertices,
                                       const std::vector<unsigned int>& indices, float tolerance,
                                       std::vector<int>& result);

// True when the subtree holds no entry (null counts as empty). Stores its answer in each node it
// decides and answers later calls from that memo; not safe to overlap with any other call on
// the same tree.
KORVEX_API bool isSubtreeEmptyCached(OctreeNode* node);

namespace meshGeometry {

// The nearest triangle that a world-space ray hits, with the mesh placed by `modelMatrix`.
// Boxes are `worldBounds` through transformAABB, tested by RayIntersectsAABB; triangles go
// through the model matrix into RayIntersectsTriangle. A node's own triangles are compared by
// their ray parameter, children's hits by their Euclidean distance from the origin, so the ray's
// direction should be of unit length; ties keep the earlier candidate (own list, then slot 0 to
// 7). On a hit returns true with `hitPoint` (world space) and `hitTriangle`; otherwise returns
// false and leaves both untouched. On a tree from buildOctreeFromTriangleIndices the positions
// must stay those it was built over (its boxes rely on them): after moving vertices in place,
// build the tree again.
KORVEX_API bool TraverseOctreeForRayHit(OctreeNode* node, const Ray& ray, const mat4& modelMatrix,
                                        const std::vector<kvx::nsVertex>& vertices,
                                        const std::vector<unsigned int>& indices, vec3& hitPoint,
                                        int& hitTriangle);

// Replaces `result` with the number of every triangle whose centroid lies within `radius` of
// `center` (at most, raw vertex positions), in tree order. A null node leaves `result` as it is.
KORVEX_API void findTrianglesInSphere(OctreeNode* node, const vec3& center, float radius,
                                      const std::vector<kvx::nsVertex>& vertices,
                                      const std::vector<unsigned int>& indices,
                                      std::vector<int>& result);

} // namespace meshGeometry
