// Hash and equality functors shared by the library's containers and the
// host's, and the two globals the library exports for the host.
//
// Every hash is 64-bit FNV-1a over the little-endian bytes of each float or
// int, combined with shifts and exclusive-or. The values are fixed bit for
// bit: host and library must agree on them to share containers.
#pragma once

#include <korvex/records.h>

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include <assimp/vector3.h>

namespace HASHER {

// Exact hash of a point; +0 and -0 hash alike.
struct KORVEX_API Vec3Hash {
    uint64_t operator()(const vec3& v) const;
};

// True when the points differ by strictly less than 1e-5 on every axis.
struct KORVEX_API Vec3Equal {
    bool operator()(const vec3& a, const vec3& b) const;
};

// Exact hash of Assimp's vector, mixed differently from Vec3Hash.
struct KORVEX_API Vector3DHash {
    uint64_t operator()(const aiVector3t<float>& v) const;
};

struct KORVEX_API Vector3DEqual {
    bool operator()(const aiVector3t<float>& a, const aiVector3t<float>& b) const;
};

// Hash of position, normal, uv, tangent and bitangent; uv2, color and extra
// do not enter. Tangent and bitangent may swap without changing it.
struct KORVEX_API VertexHash {
    uint64_t operator()(const kvx::nsVertex& v) const;
};

// Exact equality of position, normal, uv, tangent and bitangent.
struct KORVEX_API VertexEqual {
    bool operator()(const kvx::nsVertex& a, const kvx::nsVertex& b) const;
};

struct KORVEX_API pair_hash {
    uint64_t operator()(const std::pair<int, int>& p) const;
};

// Building blocks, exported so that other hashes of the library and of the
// host can be formed the same way.
KORVEX_API uint64_t HashFloat(float v); // +0 and -0 give the same value
KORVEX_API uint64_t HashInt(int32_t v);

} // namespace HASHER

// Independent of the order of the end points. It has no tolerance, unlike
// Edge::operator==, so hash containers merge only exactly repeated edges.
struct KORVEX_API EdgeHash {
    uint64_t operator()(const Edge& e) const;
};

// Owned by the host; the library never reads or writes them.
extern KORVEX_API std::unordered_map<std::pair<int, int>, int, HASHER::pair_hash> edgeCount;
extern KORVEX_API std::vector<vec3> g_drawPoints;
