// The roots of trees that buildOctreeFromTriangleIndices made and that are still alive, with
// what the ray hit keeps beside each.
//
// In such a tree every node's box encloses the triangles of its subtree, which is what lets the
// ray hit pass over a subtree whose box lies beyond the nearest hit. A tree made by hand need not
// keep that, so its subtrees are all searched, as the plain recursion searches them.
//
// A tree that answers many rays also gets a packed copy (packed_octree.h). Packing costs about
// as much as some thousands of rays on a large tree, more than a single pick is worth, so it
// waits until the tree has answered one ray per kTrianglesPerRay triangles.
#pragma once

#include <korvex/octree.h>

#include <cstddef>
#include <vector>

namespace octree_detail {

struct PackedOctree;
class BuiltTree;

constexpr size_t kTrianglesPerRay = 128;

void rememberBuiltRoot(const OctreeNode& root, size_t triangleCount);
// Null when `root` is not a builder's live root.
const BuiltTree* findBuiltTree(const OctreeNode* root);
// Called by every node's destructor; cheap for a node that is not a remembered root.
void forgetBuiltRoot(const OctreeNode* node);

// Counts one ray on the tree and returns the packed copy that can answer it with these arrays,
// packing the tree when it is due; null when the ray is to walk the nodes. Safe on many threads:
// one packs while the others go on walking the nodes.
const PackedOctree* packedCopyFor(const BuiltTree& built, const OctreeNode& root,
                                  const std::vector<kvx::nsVertex>& vertices,
                                  const std::vector<unsigned int>& indices);
// The tree was found changed by hand since it was packed: its copy is no longer used.
void retirePackedCopy(const BuiltTree& built);

} // namespace octree_detail
