#include "octree/built_roots.h"

#include "core/root_table.h"
#include "octree/packed_octree.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>

namespace octree_detail {

class BuiltTree {
  public:
    explicit BuiltTree(size_t triangles)
        : triangles_(triangles), packAfter_(std::max<size_t>(1, triangles / kTrianglesPerRay)) {}

    const PackedOctree* copyFor(const OctreeNode& root, const std::vector<kvx::nsVertex>& vertices,
                                const std::vector<unsigned int>& indices) const {
        if (retired_.load(std::memory_order_relaxed)) return nullptr;
        const PackedOctree* packed = packed_.load(std::memory_order_acquire);
        if (!packed) {
            if (rays_.fetch_add(1, std::memory_order_relaxed) + 1 < packAfter_) return nullptr;
            packed = pack(root, vertices, indices);
            if (!packed) return nullptr;
        }
        return packed->packedFrom(vertices, indices) ? packed : nullptr;
    }

    void retire() const { retired_.store(true, std::memory_order_relaxed); }

  private:
    const PackedOctree* pack(const OctreeNode& root, const std::vector<kvx::nsVertex>& vertices,
                             const std::vector<unsigned int>& indices) const {
        std::unique_lock<std::mutex> lock(packing_, std::try_to_lock);
        if (!lock.owns_lock()) return nullptr; // another thread is packing
        if (owned_ || retired_.load(std::memory_order_relaxed)) return owned_.get();
        // A builder makes at most ten nodes per triangle (a chain of single children ending
        // in a leaf); more means a shared or cyclic subtree, which is not packed.
        const size_t nodeLimit = 10 * triangles_ + 16;
        try {
            owned_ = packOctree(root, vertices, indices, nodeLimit);
        } catch (const std::bad_alloc&) {
            owned_.reset(); // the nodes still answer, only slower
        }
        if (!owned_) {
            retired_.store(true, std::memory_order_relaxed);
            return nullptr;
        }
        packed_.store(owned_.get(), std::memory_order_release);
        return owned_.get();
    }

    const size_t triangles_;
    const uint64_t packAfter_;
    mutable std::atomic<uint64_t> rays_{0};
    mutable std::atomic<bool> retired_{false};
    mutable std::atomic<const PackedOctree*> packed_{nullptr};
    mutable std::mutex packing_;
    mutable std::unique_ptr<PackedOctree> owned_; // written under `packing_` only
};

namespace {

// A process with more live trees than the table holds searches the extra ones in full: slower,
// never different.
korvex_detail::RootTable<OctreeNode, BuiltTree> builtRoots;

} // namespace

void rememberBuiltRoot(const OctreeNode& root, size_t triangleCount) {
    builtRoots.attach(&root, std::make_unique<BuiltTree>(triangleCount));
}

const BuiltTree* findBuiltTree(const OctreeNode* root) {
    return builtRoots.find(root);
}

void forgetBuiltRoot(const OctreeNode* node) {
    builtRoots.detach(node);
}

const PackedOctree* packedCopyFor(const BuiltTree& built, const OctreeNode& root,
                                  const std::vector<kvx::nsVertex>& vertices,
                                  const std::vector<unsigned int>& indices) {
    return built.copyFor(root, vertices, indices);
}

void retirePackedCopy(const BuiltTree& built) {
    built.retire();
}

} // namespace octree_detail
