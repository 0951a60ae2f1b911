#include <korvex/octree.h>

#include "octree/built_roots.h"

OctreeNode::OctreeNode()
    : children{nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}, reserved(0),
      cachedEmpty(false), cachedEmptyValid(false) {}

// Only the node's own list goes with it; the holder of the tree frees the children. A builder's
// root also stops being known as one, so that a node later made at its address is not.
OctreeNode::~OctreeNode() {
    octree_detail::forgetBuiltRoot(this);
}

bool OctreeNode::isLeaf() const {
    for (const OctreeNode* child : children)
        if (child) return false;
    return true;
}
