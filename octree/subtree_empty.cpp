// isSubtreeEmptyCached: whether a subtree holds any entry, remembered per node.
#include <korvex/octree.h>

bool isSubtreeEmptyCached(OctreeNode* node) {
    if (!node) return true;
    if (node->cachedEmptyValid) return node->cachedEmpty;
    bool empty = node->triangles.empty();
    // The first non-empty slot decides; later slots are not visited.
    for (int slot = 0; empty && slot < 8; ++slot)
        empty = isSubtreeEmptyCached(node->children[slot]);
    node->cachedEmpty = empty;
    node->cachedEmptyValid = true;
    return empty;
}
