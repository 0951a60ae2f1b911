// RayIntersectsBVH and RayIntersectsBVHDoublePoly.
#include <korvex/bvh.h>

#include "bvh/line_box.h"
#include "bvh/packed_tree.h"
#include "bvh/traverse_rules.h"
#include "ray/moller_trumbore.h"

#include <cmath>
#include <vector>

using namespace korvex_detail;

namespace {

// A built tree has at most 65 levels and each level leaves at most one node
// behind, so this many pending nodes suffice; a deeper hand-made tree moves
// the stack to the heap rather than overrunning it.
constexpr size_t kFixedStack = 128;

bool hasNaN(const Ray& ray) {
    for (int i = 0; i < 3; ++i)
        if (std::isnan(ray.origin[i]) || std::isnan(ray.direction[i])) return true;
    return false;
}

bool isLeaf(const BVHNode* node) {
    return !node->left && !node->right;
}

inline void prefetch(const void* address) {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(address);
#else
    (void)address;
#endif
}

// Starts the loads that visiting `node` will need: the boxes of its children,
// which the builder places side by side in three cache lines, or the
// triangles of a leaf.
inline void prefetchVisit(const BVHNode* node) {
    if (const BVHNode* first = node->left.get()) {
        const char* pair = reinterpret_cast<const char*>(first);
        prefetch(pair);
        prefetch(pair + 64);
        prefetch(pair + 128);
    } else if (!node->triangles.empty()) {
        const char* data = reinterpret_cast<const char*>(node->triangles.data());
        prefetch(data);
        prefetch(data + 64);
        prefetch(data + 128);
    }
}

// The nearest counted hit among the triangles under every box that meets the
// ray's line (BoundingBox::intersects). A built tree answers from its packed
// copy, which may pass boxes over because its boxes hold their triangles. A
// tree made by hand need not: a triangle may lie outside its leaf's box, in
// front of a hit found elsewhere, so such a tree is walked into every box the
// line meets. A hit only replaces the current one when strictly nearer, and
// its point is o + d t of its own t, so the order of the walk changes nothing.
//
// The ray and the running result live in locals: written through the
// caller's references, every store would force the ray to be read again.
bool traverse(const Ray& rayIn, const BVHNode* root, vec3& hitPoint, float& nearestDistance) {
    // A NaN in the ray reaches t in every triangle test and misses there;
    // the box test would let it through everywhere.
    if (!root || hasNaN(rayIn)) return false;
    const Ray ray = rayIn;
    const LineLanes line = lineLanesOf(ray);
    if (!lineMeetsBox(line, root->bounds)) return false;
    if (const PackedTree* packed = findPacked(root))
        return traversePacked(*packed, ray, hitPoint, nearestDistance);

    float nearest = nearestDistance;
    vec3 point(0.0f);
    bool found = false;
    const BVHNode* fixed[kFixedStack];
    std::vector<const BVHNode*> spilled; // only for trees deeper than any build makes
    const BVHNode** stack = fixed;
    size_t capacity = kFixedStack, size = 0;
    stack[size++] = root;
    while (size != 0) {
        const BVHNode* node = stack[--size];
        if (isLeaf(node)) {
            for (const Triangle& tri : node->triangles) {
                vec3 triPoint;
                float t;
                if (mollerTrumbore(ray, tri.p0, tri.p1, tri.p2, triPoint, t) &&
                    t > kMinHitDistance && nearest > t) {
                    nearest = t;
                    point = triPoint;
                    found = true;
                }
            }
            continue;
        }
        const BVHNode* left = node->left.get();
        const BVHNode* right = node->right.get();
        const bool enterLeft = left && lineMeetsBox(line, left->bounds);
        const bool enterRight = right && lineMeetsBox(line, right->bounds);
        if (size + 2 > capacity) {
            if (stack == fixed) spilled.assign(fixed, fixed + size);
            spilled.resize(capacity * 2);
            stack = spilled.data();
            capacity = spilled.size();
        }
        if (enterLeft) prefetchVisit(left);
        if (enterRight) prefetchVisit(right);
        // Left is pushed last, so it is visited first.
        if (enterRight) stack[size++] = right;
        if (enterLeft) stack[size++] = left;
    }
    if (found) {
        nearestDistance = nearest;
        hitPoint = point;
    }
    return found;
}

} // namespace

bool RayIntersectsBVH(const Ray& ray, const BVHNode* node, vec3& hitPoint, float& nearestDistance) {
    return traverse(ray, node, hitPoint, nearestDistance);
}

// The flagged triangle test is the same test, so the traversal is shared.
bool RayIntersectsBVHDoublePoly(const Ray& ray, const BVHNode* node, vec3& hitPoint,
                                float& nearestDistance, bool /*flag*/) {
    return traverse(ray, node, hitPoint, nearestDistance);
}
