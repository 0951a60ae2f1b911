#include "octree/built_roots.h"

#include "core/root_table.h"

#include <memory>

namespace octree_detail {

namespace {

struct BuiltMark {};

// A process with more live trees than the table holds searches the extra ones in full: slower,
// never different.
korvex_detail::RootTable<OctreeNode, BuiltMark> builtRoots;

} // namespace

void rememberBuiltRoot(const OctreeNode& root) {
    builtRoots.attach(&root, std::make_unique<BuiltMark>());
}

bool isBuiltRoot(const OctreeNode* node) {
    return builtRoots.find(node) != nullptr;
}

void forgetBuiltRoot(const OctreeNode* node) {
    builtRoots.detach(node);
}

} // namespace octree_detail
