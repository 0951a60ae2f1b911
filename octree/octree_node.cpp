#include <korvex/octree.h>

OctreeNode::OctreeNode()
    : children{nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}, reserved(0),
      cachedEmpty(false), cachedEmptyValid(false) {}

// Only the node's own list goes with it; the holder of the tree frees the children.
OctreeNode::~OctreeNode() = default;

bool OctreeNode::isLeaf() const {
    for (const OctreeNode* child : children)
        if (child) return false;
    return true;
}
