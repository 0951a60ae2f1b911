// Vertex clustering on a uniform grid: the first vertex of each occupied cell
// survives unchanged, and triangles that lose a corner disappear.
#include <korvex/mesh.h>

#include "mesh/flat_map.h"
#include "mesh/result_line.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace {

using meshutils::detail::fnv1a32;

struct CellKey {
    int32_t x, y, z;
    bool operator==(const CellKey& o) const { return x == o.x && y == o.y && z == o.z; }
};

// FNV-1a per component, mixed as the library mixes the components of a point.
struct CellKeyHash {
    uint64_t operator()(const CellKey& k) const {
        const uint64_t hx = fnv1a32(static_cast<uint32_t>(k.x));
        const uint64_t hy = fnv1a32(static_cast<uint32_t>(k.y));
        const uint64_t hz = fnv1a32(static_cast<uint32_t>(k.z));
        return ((hx ^ (hy << 1)) >> 1) ^ (hz << 1);
    }
};

// floor(offset / cell) as a signed 32-bit cell index. Converting a float
// outside the int range is undefined, so such quotients are clamped to the
// outermost cell, and a NaN (a NaN coordinate, or a NaN cell from a negative
// detail) goes to the lowest index: finite coordinates never reach it, since
// they lie at or above the grid origin.
int32_t cellIndex(float offset, float cell) {
    const float q = std::floor(offset / cell);
    if (q >= 2147483648.0f) return std::numeric_limits<int32_t>::max();
    if (q >= -2147483648.0f) return static_cast<int32_t>(q);
    return std::numeric_limits<int32_t>::min();
}

float cellEdge(const meshutils::SimplifyOptions& options, float diagonal) {
    float c =
        options.cellSize > 0.0f ? options.cellSize : (diagonal * 0.01f) / std::sqrt(options.detail);
    if (c <= 0.0f) c = 0.001f;
    return c;
}

} // namespace

namespace meshutils {

void SimplifyVertexClustering(MeshData& mesh, const SimplifyOptions& options) {
    const std::vector<kvx::nsVertex>& vertices = mesh.vertices;
    const std::vector<unsigned int>& indices = mesh.indices;
    if (vertices.empty() || indices.empty()) return;
    // New indices, and the table's empty marker 0xffffffff, must fit 32 bits.
    if (vertices.size() > 0xffffffffull)
        throw std::length_error("SimplifyVertexClustering: more vertices than 32-bit indices");

    // Bounds over every vertex, used or not. A NaN fails both comparisons and
    // leaves the bounds alone.
    vec3 lo(kFloatMax), hi(-kFloatMax);
    for (const kvx::nsVertex& v : vertices) {
        const vec3& p = v.position;
        lo.x = p.x < lo.x ? p.x : lo.x;
        lo.y = p.y < lo.y ? p.y : lo.y;
        lo.z = p.z < lo.z ? p.z : lo.z;
        hi.x = p.x > hi.x ? p.x : hi.x;
        hi.y = p.y > hi.y ? p.y : hi.y;
        hi.z = p.z > hi.z ? p.z : hi.z;
    }
    const vec3 extent = hi - lo;
    const float diagonal =
        std::sqrt(extent.x * extent.x + extent.y * extent.y + extent.z * extent.z);
    const float c = cellEdge(options, diagonal);

    // One pass: each vertex finds its cell; the first vertex of a cell
    // becomes its representative. Representatives are collected as input
    // indices and copied once at the end, at the exact final size.
    const size_t count = vertices.size();
    std::vector<uint32_t> remap(count);
    std::vector<uint32_t> representatives;
    detail::FlatIndexMap<CellKey, CellKeyHash> cells(count / 8);
    for (size_t i = 0; i < count; ++i) {
        const vec3& p = vertices[i].position;
        const CellKey key{cellIndex(p.x - lo.x, c), cellIndex(p.y - lo.y, c),
                          cellIndex(p.z - lo.z, c)};
        bool inserted;
        const uint32_t next = static_cast<uint32_t>(representatives.size());
        remap[i] = cells.findOrInsert(key, next, inserted);
        if (inserted) representatives.push_back(static_cast<uint32_t>(i));
    }

    std::vector<kvx::nsVertex> newVertices;
    newVertices.reserve(representatives.size());
    for (uint32_t i : representatives) newVertices.push_back(vertices[i]);

    // Triangles in input order and winding; collapsed ones are dropped, and
    // so are ones that name a vertex that does not exist.
    std::vector<unsigned int> newIndices;
    newIndices.reserve(indices.size() - indices.size() % 3);
    for (size_t t = 0; t + 2 < indices.size(); t += 3) {
        const unsigned int i0 = indices[t], i1 = indices[t + 1], i2 = indices[t + 2];
        if (i0 >= count || i1 >= count || i2 >= count) continue;
        const uint32_t a = remap[i0], b = remap[i1], d = remap[i2];
        if (a == b || b == d || d == a) continue;
        newIndices.push_back(a);
        newIndices.push_back(b);
        newIndices.push_back(d);
    }
    newIndices.shrink_to_fit();

    mesh.vertices.swap(newVertices);
    mesh.indices.swap(newIndices);
    detail::writeResultLine("[Simplify]", mesh.vertices.size(), mesh.indices.size() / 3);
}

} // namespace meshutils
