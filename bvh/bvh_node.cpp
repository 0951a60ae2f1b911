#include <korvex/bvh.h>

BVHNode::BVHNode() = default;

// Members go in reverse order of declaration: triangles, right, left.
BVHNode::~BVHNode() = default;

std::unique_ptr<BVHNode>& getBVHRoot(std::unique_ptr<BVHNode> root) {
    root.reset();
    // The library holds no tree; callers get an empty holder of their own
    // thread, emptied again on every call.
    thread_local std::unique_ptr<BVHNode> emptyHolder;
    emptyHolder.reset();
    return emptyHolder;
}
