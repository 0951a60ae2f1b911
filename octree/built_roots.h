// The roots of trees that buildOctreeFromTriangleIndices made and that are still alive.
//
// In such a tree every node's box encloses the triangles of its subtree, which is what lets the
// ray hit pass over a subtree whose box lies beyond the nearest hit. A tree made by hand need not
// keep that, so its subtrees are all searched, as the plain recursion searches them.
#pragma once

#include <korvex/octree.h>

namespace octree_detail {

void rememberBuiltRoot(const OctreeNode& root);
bool isBuiltRoot(const OctreeNode* node);
// Called by every node's destructor; cheap for a node that is not a remembered root.
void forgetBuiltRoot(const OctreeNode* node);

} // namespace octree_detail
