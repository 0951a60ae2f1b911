// RayIntersectsBVH and RayIntersectsBVHDoublePoly.
#include <korvex/bvh.h>

#include "bvh/line_box.h"
#include "ray/moller_trumbore.h"

#include <cmath>
#include <vector>

using korvex_detail::LineLanes;
using korvex_detail::lineLanesOf;
using korvex_detail::LineSpan;
using korvex_detail::lineThroughBox;
using korvex_detail::mollerTrumbore;

namespace {

// Hits this close to the origin are the surface the ray starts on.
constexpr float kMinHitDistance = 0.001f;

// Slack on the skip tests below. The triangle test's t and the box's span
// are computed differently; only for a triangle seen almost edge-on, where
// the triangle test itself is unreliable, can they differ by this much.
constexpr float kSpanSlack = 0.01f;

struct Pending {
    const BVHNode* node;
    float enter; // where the line enters the node's box
};

// Depth-first stack of nodes still to visit. A built tree has at most 65
// levels and each level leaves at most one node behind, so the fixed part
// suffices; deeper hand-made trees spill to the heap, not the call stack.
class PendingStack {
  public:
    void push(const Pending& p) {
        if (size_ < kFixed)
            fixed_[size_] = p;
        else
            spill_.push_back(p);
        ++size_;
    }
    // Pushes each entry whose flag is set, without a branch per flag.
    void pushPair(const Pending& first, bool takeFirst, const Pending& second, bool takeSecond) {
        if (size_ + 2 <= kFixed) {
            fixed_[size_] = first;
            size_ += takeFirst;
            fixed_[size_] = second;
            size_ += takeSecond;
            return;
        }
        if (takeFirst) push(first);
        if (takeSecond) push(second);
    }
    Pending pop() {
        --size_;
        if (size_ < kFixed) return fixed_[size_];
        const Pending p = spill_.back();
        spill_.pop_back();
        return p;
    }
    bool empty() const { return size_ == 0; }

  private:
    static constexpr size_t kFixed = 128;
    Pending fixed_[kFixed];
    std::vector<Pending> spill_;
    size_t size_ = 0;
};

bool hasNaN(const Ray& ray) {
    for (int i = 0; i < 3; ++i)
        if (std::isnan(ray.origin[i]) || std::isnan(ray.direction[i])) return true;
    return false;
}

bool isLeaf(const BVHNode* node) {
    return !node->left && !node->right;
}

// Starts the loads of what visiting `node` will read, while other boxes are tested.
inline void prefetchVisit(const BVHNode* node) {
#if defined(__GNUC__) || defined(__clang__)
    if (!isLeaf(node)) {
        if (node->left) __builtin_prefetch(node->left.get());
        if (node->right) __builtin_prefetch(node->right.get());
    } else if (!node->triangles.empty()) {
        const char* data = reinterpret_cast<const char*>(node->triangles.data());
        __builtin_prefetch(data);
        __builtin_prefetch(data + 64);
    }
#else
    (void)node;
#endif
}

// No triangle in a box that the line leaves before the 0.001 floor, or enters
// only at or past the current nearest hit, can count: its hit would not be
// strictly nearer. A NaN or infinite span never skips.
inline bool beyondReach(float enter, float nearest) {
    return enter - kSpanSlack * std::fabs(enter) >= nearest;
}
inline bool behindFloor(float exit) {
    return exit + kSpanSlack * std::fabs(exit) <= kMinHitDistance;
}

// The nearest counted hit among the triangles under every box that meets the
// ray's line (BoundingBox::intersects). Children are visited nearer box
// first, and a box that cannot hold a counted hit is passed over: a hit only
// replaces the current one when strictly nearer, and its point is o + d t of
// its own t, so neither the order nor the skipping changes what is reported.
bool traverse(const Ray& ray, const BVHNode* root, vec3& hitPoint, float& nearestDistance) {
    // A NaN in the ray reaches t in every triangle test and misses there;
    // the box test would let it through everywhere.
    if (!root || hasNaN(ray)) return false;
    const LineLanes line = lineLanesOf(ray);
    const LineSpan rootSpan = lineThroughBox(line, root->bounds);
    if (!rootSpan.meets) return false;
    bool found = false;
    PendingStack stack;
    stack.push(Pending{root, rootSpan.enter});
    while (!stack.empty()) {
        const Pending pending = stack.pop();
        const BVHNode* node = pending.node;
        if (beyondReach(pending.enter, nearestDistance)) continue;
        if (isLeaf(node)) {
            for (const Triangle& tri : node->triangles) {
                vec3 point;
                float t;
                if (mollerTrumbore(ray, tri.p0, tri.p1, tri.p2, point, t) && t > kMinHitDistance &&
                    nearestDistance > t) {
                    nearestDistance = t;
                    hitPoint = point;
                    found = true;
                }
            }
            continue;
        }
        const BVHNode* left = node->left.get();
        const BVHNode* right = node->right.get();
        LineSpan leftSpan{false, 0.0f, 0.0f}, rightSpan{false, 0.0f, 0.0f};
        if (left) leftSpan = lineThroughBox(line, left->bounds);
        if (right) rightSpan = lineThroughBox(line, right->bounds);
        const bool enterLeft = leftSpan.meets && !behindFloor(leftSpan.exit) &&
                               !beyondReach(leftSpan.enter, nearestDistance);
        const bool enterRight = rightSpan.meets && !behindFloor(rightSpan.exit) &&
                                !beyondReach(rightSpan.enter, nearestDistance);
        if (enterLeft) prefetchVisit(left);
        if (enterRight) prefetchVisit(right);
        // The nearer box is pushed last, so it is visited first.
        // The nearer box is pushed last, so it is visited first.
        const Pending leftPending{left, leftSpan.enter}, rightPending{right, rightSpan.enter};
        if (rightSpan.enter < leftSpan.enter)
            stack.pushPair(leftPending, enterLeft, rightPending, enterRight);
        else
            stack.pushPair(rightPending, enterRight, leftPending, enterLeft);
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
