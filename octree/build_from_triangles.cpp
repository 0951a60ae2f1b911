// buildOctreeFromTriangleIndices: a tree over triangle numbers whose three upper levels are
// built by asynchronous tasks.
#include <korvex/octree.h>

#include "octree/built_roots.h"
#include "octree/triangle_number.h"

#include <exception>
#include <future>
#include <new>

namespace {

constexpr int kDepthLimit = 8;           // deeper nodes are leaves
constexpr size_t kEntriesToSplit = 11;   // fewer triangles make a leaf
constexpr float kSizeToSplit = 0.05f;    // a shorter box diagonal makes a leaf
constexpr int kDeepestParallelLevel = 2; // nodes this deep or shallower start tasks

struct MeshArrays {
    const std::vector<vec3>& positions;
    const std::vector<unsigned int>& indices;

    // The corners of triangle t, or false when t addresses no triangle of these arrays.
    bool corners(int t, vec3& p0, vec3& p1, vec3& p2) const {
        unsigned int v[3];
        if (!octree_detail::triangleCorners(t, indices, positions.size(), v)) return false;
        p0 = positions[v[0]];
        p1 = positions[v[1]];
        p2 = positions[v[2]];
        return true;
    }
};

inline AABB emptyBox() {
    return AABB(vec3(kFloatMax), vec3(-kFloatMax));
}

// Widening by the corners in their order; a NaN coordinate never wins a comparison.
inline void widen(AABB& box, const vec3& p0, const vec3& p1, const vec3& p2) {
    box.min = glm::min(glm::min(glm::min(box.min, p0), p1), p2);
    box.max = glm::max(glm::max(glm::max(box.max, p0), p1), p2);
}

inline int octantOf(const vec3& c, const vec3& m) {
    return (c.x >= m.x ? 1 : 0) | (c.y >= m.y ? 2 : 0) | (c.z >= m.z ? 4 : 0);
}

OctreeNode* buildNode(const MeshArrays& mesh, const std::vector<int>& list, int depth,
                      const AABB& bounds);

// Builds the non-empty slots on the calling thread, in slot order.
void buildChildrenInline(OctreeNode* node, const MeshArrays& mesh, const std::vector<int>* lists,
                         const AABB* boxes, int depth) {
    for (int slot = 0; slot < 8; ++slot)
        if (!lists[slot].empty())
            node->children[slot] = buildNode(mesh, lists[slot], depth + 1, boxes[slot]);
}

// One task per non-empty slot, all started before any is joined, joined in slot order. Every
// task is joined on every path, so the lists the tasks read outlive them; the first failure in
// slot order is rethrown after the join, and the subtrees that did finish are freed.
void buildChildrenAsTasks(OctreeNode* node, const MeshArrays& mesh, const std::vector<int>* lists,
                          const AABB* boxes, int depth) {
    std::future<OctreeNode*> pending[8];
    std::exception_ptr failure;
    try {
        for (int slot = 0; slot < 8; ++slot)
            if (!lists[slot].empty())
                pending[slot] = std::async(std::launch::async, [&mesh, lists, boxes, &depth, slot] {
                    return buildNode(mesh, lists[slot], depth + 1, boxes[slot]);
                });
    } catch (...) {
        failure = std::current_exception(); // a task could not be started
    }
    for (int slot = 0; slot < 8; ++slot) {
        if (!pending[slot].valid()) continue;
        try {
            node->children[slot] = pending[slot].get();
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

// `bounds` is the box of the list's triangles, widened in list order. The parent computes it
// for each child while it sorts the triangles into octants, which spares every level a second
// pass over the vertices.
OctreeNode* buildNode(const MeshArrays& mesh, const std::vector<int>& list, int depth,
                      const AABB& bounds) {
    OctreeNode* node = new OctreeNode();
    try {
        node->bounds = bounds;
        node->worldBounds = bounds;
        if (depth > kDepthLimit || list.size() < kEntriesToSplit ||
            glm::length(bounds.max - bounds.min) < kSizeToSplit) {
            node->triangles = list;
            return node;
        }

        // No same-octant test: a list whose centroids share one octant passes whole to a
        // single child with the same box, down to the depth limit.
        const vec3 centre = (bounds.min + bounds.max) * 0.5f;
        // Codes first, then lists of the exact size: growing them entry by entry would copy
        // and re-map the large upper lists several times over.
        std::vector<uint8_t> codes(list.size());
        size_t counts[8] = {};
        AABB boxes[8];
        for (AABB& box : boxes) box = emptyBox();
        for (size_t i = 0; i < list.size(); ++i) {
            vec3 p0, p1, p2;
            int code = 0; // a number that addresses nothing widens nothing and sorts low
            if (mesh.corners(list[i], p0, p1, p2)) {
                code = octantOf((p0 + p1 + p2) / 3.0f, centre);
                widen(boxes[code], p0, p1, p2);
            }
            codes[i] = static_cast<uint8_t>(code);
            ++counts[code];
        }
        std::vector<int> lists[8];
        for (int slot = 0; slot < 8; ++slot) lists[slot].reserve(counts[slot]);
        for (size_t i = 0; i < list.size(); ++i) lists[codes[i]].push_back(list[i]);
        codes = std::vector<uint8_t>(); // not needed below, and the subtrees may be deep

        if (depth > kDeepestParallelLevel)
            buildChildrenInline(node, mesh, lists, boxes, depth);
        else
            buildChildrenAsTasks(node, mesh, lists, boxes, depth);
        return node;
    } catch (...) {
        freeOctree(node);
        throw;
    }
}

} // namespace

OctreeNode* buildOctreeFromTriangleIndices(const std::vector<vec3>& positions,
                                           const std::vector<unsigned int>& indices,
                                           const std::vector<int>& triangleIndices, int depth) {
    if (triangleIndices.empty()) return nullptr;
    const MeshArrays mesh{positions, indices};
    AABB bounds = emptyBox();
    for (int t : triangleIndices) {
        vec3 p0, p1, p2;
        if (mesh.corners(t, p0, p1, p2)) widen(bounds, p0, p1, p2);
    }
    // A negative depth would only lengthen the way down to the limit and multiply the tasks.
    OctreeNode* root = buildNode(mesh, triangleIndices, depth < 0 ? 0 : depth, bounds);
    // Only a speed-up of the ray hit: a tree that cannot be remembered for lack of memory is
    // still the tree asked for, and is searched in full.
    try {
        octree_detail::rememberBuiltRoot(*root, triangleIndices.size());
    } catch (const std::bad_alloc&) {
    }
    return root;
}
