// Bounding volume hierarchy over free-standing triangles, with ray traversal.
//
// A binary tree split at the centre of the longest axis of each node's box.
// Leaves hold copies of their triangles, whole records, in input order. The
// top four levels are built by asynchronous tasks; a finished tree is
// read-only and may be queried from any number of threads at once.
#pragma once

#include <korvex/records.h>

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

struct KORVEX_API BVHNode {
    BoundingBox bounds;              // box of every triangle below; traversal tests it
    std::unique_ptr<BVHNode> left;   // first child, or null
    std::unique_ptr<BVHNode> right;  // second child, or null
    std::vector<Triangle> triangles; // leaves only, input order
    AABB aabb;                       // the same corners as `bounds`, for the host

    // No children, no triangles; `bounds` and `aabb` are written by the builder.
    BVHNode();
    // Releases triangles, then right, then left: recursion as deep as the tree.
    ~BVHNode();

    BVHNode(const BVHNode&) = delete;
    BVHNode& operator=(const BVHNode&) = delete;

    // Nodes carry a small header that ties them to the builder's node store,
    // which keeps siblings side by side for traversal. Single nodes made with
    // `new` (or make_unique) and released with `delete` work as usual.
    static void* operator new(std::size_t size);
    static void operator delete(void* node) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}
};

// The box of every corner of `triangles`, folded into the invalid box (min at
// 3.4028235e38, max at -3.4028235e38), which an empty list returns unchanged.
KORVEX_API BoundingBox computeBoundingBox(const std::vector<Triangle>& triangles);

// Splits at the centre of the box's longest axis (x only if strictly the
// largest, y only if strictly larger than z, else z). A triangle whose
// centroid lies below the centre goes to `first`, one on or above it to
// `second`; both keep input order. When one side would be empty the sides
// are exchanged, so a one-sided split reports everything on the other side.
KORVEX_API std::pair<std::vector<Triangle>, std::vector<Triangle>>
splitTriangles(const std::vector<Triangle>& triangles);

// Builds the subtree of a node at `depth` (a whole tree: 0). A node becomes a
// leaf at 6 triangles or fewer, at depth 64 or more, at box surface below
// 1e-5, or when its split is one-sided. Nodes at depth 3 or less build their
// two children in asynchronous tasks. Null for an empty list.
KORVEX_API std::unique_ptr<BVHNode> createBVHNode(const std::vector<Triangle>& triangles,
                                                  int depth);

// Takes the tree and releases it before returning. The library keeps no root,
// so the reference names an empty holder (one per thread), never a tree.
KORVEX_API std::unique_ptr<BVHNode>& getBVHRoot(std::unique_ptr<BVHNode> root);

// The nearest triangle hit, through every node whose box meets the ray's
// infinite line. A hit counts when its t is above 0.001 and below the value
// `nearestDistance` holds on entry; then `nearestDistance` and `hitPoint` take
// it. t is in units of the direction's length. False, with both out values
// untouched, when nothing counts or `node` is null.
KORVEX_API bool RayIntersectsBVH(const Ray& ray, const BVHNode* node, vec3& hitPoint,
                                 float& nearestDistance);

// The same traversal through the flagged triangle test, `flag` passed down;
// it reports the same hits.
KORVEX_API bool RayIntersectsBVHDoublePoly(const Ray& ray, const BVHNode* node, vec3& hitPoint,
                                           float& nearestDistance, bool flag);
