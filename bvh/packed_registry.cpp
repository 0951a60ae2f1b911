// The packed copies of live BVH trees, keyed by root.
#include "bvh/node_store.h"
#include "bvh/packed_tree.h"
#include "core/root_table.h"

namespace korvex_detail {

namespace {

RootTable<BVHNode, PackedTree> copies;

} // namespace

void attachPacked(BVHNode& root, std::unique_ptr<PackedTree> tree) {
    if (copies.attach(&root, std::move(tree))) markPacked(root);
}

const PackedTree* findPacked(const BVHNode* root) {
    return copies.find(root);
}

void detachPacked(const BVHNode* root) {
    copies.detach(root);
}

} // namespace korvex_detail
