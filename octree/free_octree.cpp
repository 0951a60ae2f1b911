#include <korvex/octree.h>

// An explicit stack instead of recursion: a hand-made tree may be as deep as its maker likes.
void freeOctree(OctreeNode* root) {
    std::vector<OctreeNode*> pending;
    if (root) pending.push_back(root);
    while (!pending.empty()) {
        OctreeNode* node = pending.back();
        pending.pop_back();
        for (OctreeNode* child : node->children)
            if (child) pending.push_back(child);
        delete node;
    }
}
