// How the octree reads a triangle number against the arrays it is given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace octree_detail {

// t stands for entries 3t, 3t + 1 and 3t + 2 of the index array; it is used only when all three
// exist. Formed in 64 bits so that no number can wrap into range.
inline bool addressesIndices(int t, size_t indexCount) {
    return t >= 0 && 3 * static_cast<uint64_t>(t) + 2 < indexCount;
}

// The triangle's three vertex indices, when t is usable with arrays of these sizes: its index
// entries exist and each of them addresses a vertex.
inline bool triangleCorners(int t, const std::vector<unsigned int>& indices, size_t vertexCount,
                            unsigned int corners[3]) {
    if (!addressesIndices(t, indices.size())) return false;
    const size_t base = 3 * static_cast<size_t>(t);
    corners[0] = indices[base];
    corners[1] = indices[base + 1];
    corners[2] = indices[base + 2];
    return corners[0] < vertexCount && corners[1] < vertexCount && corners[2] < vertexCount;
}

} // namespace octree_detail
