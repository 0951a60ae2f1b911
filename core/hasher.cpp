#include <korvex/hasher.h>

#include <cstring>

#include <glm/gtc/epsilon.hpp>

namespace {

constexpr uint64_t kFnvOffset = 0xcbf29ce484222325ull;
constexpr uint64_t kFnvPrime = 0x100000001b3ull;

// FNV-1a over four bytes taken least significant first, which is address
// order on the little-endian machines the hash values are fixed for.
uint64_t Fnv1a32(uint32_t bits) {
    uint64_t h = kFnvOffset;
    for (int i = 0; i < 4; ++i) {
        h ^= (bits >> (8 * i)) & 0xffu;
        h *= kFnvPrime;
    }
    return h;
}

uint64_t MixVec3(uint64_t x, uint64_t y, uint64_t z) {
    return ((x ^ (y << 1)) >> 1) ^ (z << 1);
}

uint64_t HashVec3(const vec3& v) {
    using HASHER::HashFloat;
    return MixVec3(HashFloat(v.x), HashFloat(v.y), HashFloat(v.z));
}

} // namespace

namespace HASHER {

uint64_t HashFloat(float v) {
    if (v == 0.0f) v = 0.0f; // -0 hashes as +0
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return Fnv1a32(bits);
}

uint64_t HashInt(int32_t v) {
    return Fnv1a32(static_cast<uint32_t>(v));
}

uint64_t Vec3Hash::operator()(const vec3& v) const {
    return HashVec3(v);
}

bool Vec3Equal::operator()(const vec3& a, const vec3& b) const {
    return glm::all(glm::epsilonEqual(a, b, 1e-5f));
}

uint64_t Vector3DHash::operator()(const aiVector3t<float>& v) const {
    return HashFloat(v.x) ^ ((HashFloat(v.y) ^ (HashFloat(v.z) << 1)) << 1);
}

bool Vector3DEqual::operator()(const aiVector3t<float>& a, const aiVector3t<float>& b) const {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

uint64_t VertexHash::operator()(const kvx::nsVertex& v) const {
    const uint64_t a = HashVec3(v.position);
    const uint64_t b = HashVec3(v.normal);
    const uint64_t c = HashFloat(v.uv.x) ^ (HashFloat(v.uv.y) << 1);
    const uint64_t d = HashVec3(v.tangent);
    const uint64_t e = HashVec3(v.bitangent);
    const uint64_t x = (a ^ (b << 1)) >> 1;
    const uint64_t y = (x ^ (c << 1)) >> 1;
    return y ^ ((d ^ e) << 1);
}

bool VertexEqual::operator()(const kvx::nsVertex& a, const kvx::nsVertex& b) const {
    return a.position == b.position && a.normal == b.normal && a.uv == b.uv &&
           a.tangent == b.tangent && a.bitangent == b.bitangent;
}

uint64_t pair_hash::operator()(const std::pair<int, int>& p) const {
    return HashInt(p.first) ^ (HashInt(p.second) << 1);
}

} // namespace HASHER

uint64_t EdgeHash::operator()(const Edge& e) const {
    const uint64_t h = HashVec3(e.a) ^ HashVec3(e.b);
    return (h << 1) ^ h;
}

bool Edge::operator==(const Edge& other) const {
    const HASHER::Vec3Equal eq;
    return (eq(a, other.a) && eq(b, other.b)) || (eq(a, other.b) && eq(b, other.a));
}

std::unordered_map<std::pair<int, int>, int, HASHER::pair_hash> edgeCount;
std::vector<vec3> g_drawPoints;
