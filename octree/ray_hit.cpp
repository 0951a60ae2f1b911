// meshGeometry::TraverseOctreeForRayHit: the nearest triangle under a world-space ray.
//
// The answer is defined by the plain recursion: at every node whose placed box the ray meets,
// the node's own triangles are compared by their ray parameter, then the children in slot order
// by the Euclidean distance of their hits, strictly, so that ties keep the earlier candidate.
// That answer is the earliest candidate of least distance, however the candidates are found;
// this traversal finds it sooner, entering children nearest first and passing over those that
// cannot hold a candidate of least distance.
#include <korvex/octree.h>
#include <korvex/ray.h>

#include "octree/built_roots.h"
#include "octree/packed_octree.h"
#include "octree/ray_query.h"
#include "octree/triangle_number.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace octree_detail;

// The triangles of a leaf are scattered through the mesh arrays; waiting for each in turn would
// cost more than the tests themselves, so their index entries and then their vertices are
// requested ahead, for several nodes at a time.
// A node spans up to three cache lines: its boxes, list and child slots.
void prefetchNode(const OctreeNode* node) {
    const char* bytes = reinterpret_cast<const char*>(node);
    __builtin_prefetch(bytes);
    __builtin_prefetch(bytes + 64);
    __builtin_prefetch(bytes + sizeof(OctreeNode) - 1);
}

void prefetchIndices(const OctreeNode* node, const RayQuery& q) {
    for (int t : node->triangles)
        if (addressesIndices(t, q.indices.size())) __builtin_prefetch(&q.indices[3 * size_t(t)]);
}

void prefetchVertices(const OctreeNode* node, const RayQuery& q) {
    for (int t : node->triangles) {
        unsigned int v[3];
        if (triangleCorners(t, q.indices, q.vertices.size(), v))
            for (unsigned int k : v) __builtin_prefetch(&q.vertices[k].position);
    }
}

// The node's own list: the least ray parameter wins, the earlier entry on a tie.
bool nearestInList(const OctreeNode* node, const RayQuery& q, float& best, vec3& hitPoint,
                   int& hitTriangle) {
    bool hit = false;
    const std::vector<int>& list = node->triangles;
#if defined(__SSE2__)
    for (size_t start = 0; start < list.size(); start += 4) {
        __m128 corner[3][4];
        int number[4];
        int valid = 0;
        for (int lane = 0; lane < 4; ++lane) {
            unsigned int v[3];
            const bool usable =
                start + lane < list.size() &&
                triangleCorners(list[start + lane], q.indices, q.vertices.size(), v);
            number[lane] = usable ? list[start + lane] : -1;
            valid |= usable ? 1 << lane : 0;
            for (int k = 0; k < 3; ++k)
                // Sixteen bytes from the position: its three floats and the normal's first.
                corner[k][lane] =
                    usable ? _mm_loadu_ps(&q.vertices[v[k]].position.x) : _mm_setzero_ps();
        }
        if (!valid) continue;
        Lanes3 p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = q.lanes.place(lanesOf(corner[k][0], corner[k][1], corner[k][2], corner[k][3]));
        __m128 tLanes;
        const int hits = hitFour(q.origin, q.direction, p[0], p[1], p[2], tLanes) & valid;
        if (!hits) continue;
        float t[4];
        _mm_storeu_ps(t, tLanes);
        for (int lane = 0; lane < 4; ++lane) {
            if (!(hits >> lane & 1) || !(t[lane] < best)) continue;
            best = t[lane];
            hitPoint = q.ray.origin + q.ray.direction * t[lane];
            hitTriangle = number[lane];
            hit = true;
        }
    }
#else
    for (int t : list) {
        unsigned int v[3];
        if (!triangleCorners(t, q.indices, q.vertices.size(), v)) continue;
        vec3 p[3];
        for (int k = 0; k < 3; ++k) p[k] = vec3(q.model * vec4(q.vertices[v[k]].position, 1.0f));
        vec3 point;
        float distance;
        if (RayIntersectsTriangle(q.ray, p[0], p[1], p[2], point, distance) && distance < best) {
            best = distance;
            hitPoint = point;
            hitTriangle = t;
            hit = true;
        }
    }
#endif
    return hit;
}

struct Candidate {
    const OctreeNode* node;
    int slot;
    PlacedBox box;
};

// The node's placed box has been tested and hit. The result must be exact whenever its
// distance from the origin is at most `bound`; above that the caller discards it, so subtrees
// that can only produce such hits may be passed over.
bool traverseInside(const OctreeNode* node, const RayQuery& q, float bound, vec3& hitPoint,
                    int& hitTriangle) {
    for (const OctreeNode* child : node->children)
        if (child) prefetchNode(child);
    float best = kFloatMax;
    bool hit = nearestInList(node, q, best, hitPoint, hitTriangle);
    int bestSlot = -1; // the own list comes before every child

    // Every child's box is tested before any child is entered, so that their memory arrives
    // together; the hit ones are kept nearest entry first.
    Candidate entered[8];
    int count = 0;
    for (int slot = 0; slot < 8; ++slot) {
        const OctreeNode* child = node->children[slot];
        if (!child) continue;
        Candidate c{child, slot, {}};
        if (!q.probe.hits(child->worldBounds, c.box)) continue;
        __builtin_prefetch(child->triangles.data());
        int i = count++;
        for (; i > 0 && c.box.entry < entered[i - 1].box.entry; --i) entered[i] = entered[i - 1];
        entered[i] = c;
    }
    for (int i = 0; i < count; ++i)
        for (const OctreeNode* grandchild : entered[i].node->children)
            if (grandchild) prefetchNode(grandchild);
    for (int i = 0; i < count; ++i) prefetchIndices(entered[i].node, q);
    for (int i = 0; i < count; ++i) prefetchVertices(entered[i].node, q);

    for (int i = 0; i < count; ++i) {
        const Candidate& c = entered[i];
        // While the node's own hit leads, `best` is its ray parameter, which is its distance
        // only for a direction of unit length; a child passed over by `bound` would then leave
        // that hit to be measured by the caller at a distance that may lie within `bound`. Only
        // the child's chance to win here may pass it over then.
        const float limit = hit && bestSlot < 0 ? best : std::min(bound, best);
        // Where the ray enters the box bounds the box's distance from the origin from above
        // (within rounding), so a box entered clearly before `limit` cannot be passed over and
        // needs no closer look; entering a box is always safe.
        if (q.passOver && limit < kInfinity && !(c.box.entry < limit * 0.999f) &&
            q.skip.nearestHit(c.box, c.node->worldBounds) > limit)
            continue;
        vec3 point;
        int triangle = -1;
        if (!traverseInside(c.node, q, limit, point, triangle)) continue;
        const float distance = glm::length(point - q.ray.origin);
        // Strictly nearer wins; an equal distance wins only from an earlier slot, as it would
        // have in slot order. Nothing wins at the largest float, where slot order finds no hit.
        if (distance < best || (hit && distance == best && c.slot < bestSlot)) {
            best = distance;
            bestSlot = c.slot;
            hitPoint = point;
            hitTriangle = triangle;
            hit = true;
        }
    }
    return hit;
}

} // namespace

namespace meshGeometry {

bool TraverseOctreeForRayHit(OctreeNode* node, const Ray& ray, const mat4& modelMatrix,
                             const std::vector<kvx::nsVertex>& vertices,
                             const std::vector<unsigned int>& indices, vec3& hitPoint,
                             int& hitTriangle) {
    if (!node) return false;
    const BuiltTree* built = findBuiltTree(node);
    const RayQuery query(built != nullptr, ray, modelMatrix, vertices, indices);
    PlacedBox box;
    if (!query.probe.hits(node->worldBounds, box)) return false;
    if (built) {
        if (const PackedOctree* packed = packedCopyFor(*built, *node, vertices, indices)) {
            const int found = packedRayHit(*packed, query, box, hitPoint, hitTriangle);
            if (found >= 0) return found == 1;
            retirePackedCopy(*built); // changed by hand since it was packed
        }
    }
    prefetchIndices(node, query);
    prefetchVertices(node, query);
    return traverseInside(node, query, kInfinity, hitPoint, hitTriangle);
}

} // namespace meshGeometry
