// One-to-four midpoint splitting: one new vertex per undirected edge, shared
// by the triangles on that edge, and four children per triangle. No vertex
// moves, so the surface stays where it was.
#include <korvex/mesh.h>

#include "mesh/flat_map.h"
#include "mesh/result_line.h"

#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace {

using meshutils::detail::fnv1a32;

// An undirected edge as (smaller index << 32) | larger index.
uint64_t edgeKey(uint32_t a, uint32_t b) {
    return a < b ? (uint64_t{a} << 32) | b : (uint64_t{b} << 32) | a;
}

// Hashed as the library hashes an index pair: first ^ (second << 1).
struct EdgeKeyHash {
    uint64_t operator()(uint64_t key) const {
        return fnv1a32(static_cast<uint32_t>(key >> 32)) ^
               (fnv1a32(static_cast<uint32_t>(key)) << 1);
    }
};

// The renormalised sum of two unit vectors. Opposed vectors (or zeros, as in
// a mesh without tangents) sum to zero and have no direction: they give the
// zero vector rather than NaN.
vec3 unitSum(const vec3& p, const vec3& q) {
    const vec3 s = p + q;
    const float length = glm::length(s);
    if (length == 0.0f) return vec3(0.0f);
    return s * (1.0f / length);
}

kvx::nsVertex edgeVertex(const kvx::nsVertex& p, const kvx::nsVertex& q) {
    kvx::nsVertex v; // uv2, color and extra keep the record's defaults
    v.position = (p.position + q.position) * 0.5f;
    v.normal = unitSum(p.normal, q.normal);
    v.tangent = unitSum(p.tangent, q.tangent);
    v.bitangent = unitSum(p.bitangent, q.bitangent);
    v.uv = (p.uv + q.uv) * 0.5f;
    return v;
}

constexpr uint32_t kSkipped = 0xffffffffu;

void subdivideOnce(MeshData& mesh) {
    const std::vector<kvx::nsVertex>& vertices = mesh.vertices;
    const std::vector<unsigned int>& indices = mesh.indices;
    const size_t oldCount = vertices.size();
    const size_t triangles = indices.size() / 3;

    // First sweep: number the edges in order of first encounter and remember
    // each triangle's three edge vertices for the second sweep, so that it
    // needs no lookups. A closed mesh has about 1.5 edges per triangle.
    meshutils::detail::FlatIndexMap<uint64_t, EdgeKeyHash> edgeTable(triangles * 3 / 2);
    std::vector<uint64_t> edgeOrder;
    edgeOrder.reserve(triangles * 3 / 2);
    std::vector<uint32_t> mids(triangles * 3);
    for (size_t t = 0; t < triangles; ++t) {
        const uint32_t corner[3] = {indices[3 * t], indices[3 * t + 1], indices[3 * t + 2]};
        if (corner[0] >= oldCount || corner[1] >= oldCount || corner[2] >= oldCount) {
            mids[3 * t] = kSkipped; // names a vertex that does not exist
            continue;
        }
        for (int e = 0; e < 3; ++e) {
            const uint64_t key = edgeKey(corner[e], corner[(e + 1) % 3]);
            const uint64_t next = oldCount + edgeOrder.size();
            // The index must fit 32 bits and differ from the table's marker.
            if (next >= 0xffffffffull)
                throw std::length_error("LoopSubdivide: more vertices than 32-bit indices");
            bool inserted;
            mids[3 * t + e] = edgeTable.findOrInsert(key, static_cast<uint32_t>(next), inserted);
            if (inserted) edgeOrder.push_back(key);
        }
    }

    // Old vertices keep their indices; edge vertices follow in edge order.
    std::vector<kvx::nsVertex> newVertices;
    newVertices.reserve(oldCount + edgeOrder.size());
    newVertices.insert(newVertices.end(), vertices.begin(), vertices.end());
    for (uint64_t key : edgeOrder)
        newVertices.push_back(edgeVertex(vertices[key >> 32], vertices[key & 0xffffffffu]));

    // Second sweep: four children per triangle, together and in parent order,
    // all with the parent's winding.
    size_t kept = 0;
    for (size_t t = 0; t < triangles; ++t) kept += mids[3 * t] != kSkipped;
    std::vector<unsigned int> newIndices(kept * 12);
    unsigned int* out = newIndices.data();
    for (size_t t = 0; t < triangles; ++t) {
        if (mids[3 * t] == kSkipped) continue;
        const uint32_t a = indices[3 * t], b = indices[3 * t + 1], c = indices[3 * t + 2];
        const uint32_t ab = mids[3 * t], bc = mids[3 * t + 1], ca = mids[3 * t + 2];
        const uint32_t children[12] = {a, ab, ca, ab, b, bc, ca, bc, c, ab, bc, ca};
        for (uint32_t v : children) *out++ = v;
    }

    mesh.vertices.swap(newVertices);
    mesh.indices.swap(newIndices);
}

} // namespace

namespace meshutils {

void LoopSubdivide(MeshData& mesh, int passes) {
    for (int pass = 0; pass < passes; ++pass) subdivideOnce(mesh);
    detail::writeResultLine("[Subdivide]", mesh.vertices.size(), mesh.indices.size() / 3);
}

} // namespace meshutils
