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
#include "octree/ray_kernels.h"
#include "octree/triangle_number.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using namespace octree_detail;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kUnit = 5.9604645e-8f; // 2^-24, the rounding unit of float

// A lower bound on the distance from the origin of any hit that a placed box can report,
// rounding of the triangle test included: where the ray meets a large triangle at a grazing
// angle the computed point may leave the triangle's box. Every accepted triangle has |a| >=
// 1e-6 in the test's determinant, and its edges are no longer than the box diagonal D, so the
// relative error of a is below about 10 * unit * kappa with kappa = D^2 * |direction| / 1e-6;
// the errors of t and of the barycentric point follow from it. The bound used is twice that
// estimate; boxes where kappa makes it meaningless are never passed over.
class SkipBound {
  public:
    SkipBound(const Ray& ray, const mat4& model)
        : origin_(ray.origin), directionLength_(glm::length(ray.direction)),
          originSize_(glm::length(ray.origin)) {
        for (int r = 0; r < 3; ++r) {
            rows_ = std::max(rows_, std::fabs(model[0][r]) + std::fabs(model[1][r]) +
                                        std::fabs(model[2][r]));
            shift_ = std::max(shift_, std::fabs(model[3][r]));
        }
    }

    // `box` is the node's box `modelBox` through the model matrix.
    float nearestHit(const PlacedBox& box, const AABB& modelBox) const {
        // How far a placed vertex may stray from its placed box: both went through the matrix
        // with a rounding of a few units of the terms' size each.
        const float size = std::max(glm::length(modelBox.min), glm::length(modelBox.max));
        float pad = 8.0f * kUnit * (rows_ * size + shift_);
        if (!std::isfinite(pad)) pad = kInfinity;
        vec3 gap, far, extent;
        for (int i = 0; i < 3; ++i) {
            gap[i] = std::max(std::max(box.lo[i] - pad - origin_[i], origin_[i] - box.hi[i] - pad),
                              0.0f);
            far[i] =
                std::max(std::fabs(box.lo[i] - origin_[i]), std::fabs(box.hi[i] - origin_[i])) +
                pad;
            extent[i] = box.hi[i] - box.lo[i];
        }
        const float diagonal = glm::length(extent) + 2.0f * pad;
        const float farthest = glm::length(far);
        const float kappa = diagonal * diagonal * directionLength_ * 1e6f;
        if (!(10.0f * kUnit * kappa < 0.1f)) return -kInfinity; // NaN and infinity too
        const float estimate = 20.0f * kUnit * kappa * (2.0f * farthest + diagonal) +
                               3.0f * kUnit * (originSize_ + farthest);
        const float lower = glm::length(gap) * (1.0f - 4.0f * kUnit) - 2.0f * estimate;
        return std::isnan(lower) ? -kInfinity : lower;
    }

  private:
    vec3 origin_;
    float directionLength_;
    float originSize_;
    float rows_ = 0.0f;  // largest row sum of |m| over the 3 x 3 part
    float shift_ = 0.0f; // largest |translation|
};

struct RayQuery {
    const Ray& ray;
    const mat4& model;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
    BoxProbe probe;
    SkipBound skip;
    // Subtrees may be passed over only where every box encloses its subtree's triangles, as in
    // a tree from the builder; a tree made by hand is searched wherever its boxes are hit.
    bool passOver;
#if defined(__SSE2__)
    LaneMatrix lanes;
    Lanes3 origin, direction;
#endif

    RayQuery(const OctreeNode* root, const Ray& r, const mat4& m,
             const std::vector<kvx::nsVertex>& v, const std::vector<unsigned int>& i)
        : ray(r), model(m), vertices(v), indices(i), probe(r, m), skip(r, m),
          passOver(isBuiltRoot(root))
#if defined(__SSE2__)
          ,
          lanes(m), origin(splat(r.origin)), direction(splat(r.direction))
#endif
    {
    }
};

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
        const float limit = std::min(bound, best);
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
    const RayQuery query(node, ray, modelMatrix, vertices, indices);
    PlacedBox box;
    if (!query.probe.hits(node->worldBounds, box)) return false;
    prefetchIndices(node, query);
    prefetchVertices(node, query);
    return traverseInside(node, query, kInfinity, hitPoint, hitTriangle);
}

} // namespace meshGeometry
