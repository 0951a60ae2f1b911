#include "mesh_support.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <fstream>
#include <iostream>
#include <sstream>

namespace meshtest {

namespace {

// An OBJ index: 1-based, or negative to count back from the last vertex.
long resolveIndex(long raw, size_t vertexCount) {
    return raw < 0 ? static_cast<long>(vertexCount) + raw : raw - 1;
}

} // namespace

MeshData loadObj(const std::string& path) {
    MeshData mesh;
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const char* p = text.c_str();
    std::vector<long> corners;
    while (*p) {
        const char* end = std::strchr(p, '\n');
        if (!end) end = p + std::strlen(p);
        const std::string line(p, end);
        p = *end ? end + 1 : end;
        const char* c = line.c_str();
        if (c[0] == 'v' && c[1] == ' ') {
            char* next = nullptr;
            vec3 v;
            v.x = std::strtof(c + 2, &next);
            v.y = std::strtof(next, &next);
            v.z = std::strtof(next, &next);
            mesh.vertices.push_back(vertexAt(v));
        } else if (c[0] == 'f' && c[1] == ' ') {
            corners.clear();
            const char* q = c + 2;
            for (;;) {
                char* next = nullptr;
                const long raw = std::strtol(q, &next, 10);
                if (next == q) break;
                corners.push_back(resolveIndex(raw, mesh.vertices.size()));
                q = next;
                while (*q && *q != ' ' && *q != '\t') ++q; // skip "/vt/vn"
            }
            for (size_t k = 2; k < corners.size(); ++k)
                for (long i : {corners[0], corners[k - 1], corners[k]})
                    mesh.indices.push_back(static_cast<unsigned int>(i));
        }
    }
    return mesh;
}

const MeshData& bunny() {
    static const MeshData mesh = loadObj(KORVEX_BUNNY_PATH);
    return mesh;
}

kvx::nsVertex vertexAt(const vec3& p) {
    const float len = glm::length(p);
    kvx::nsVertex v(p, len > 0.0f ? p / len : vec3(0.0f, 1.0f, 0.0f));
    v.tangent = glm::normalize(vec3(1.0f, p.y * 0.1f, 0.0f));
    v.bitangent = glm::normalize(vec3(0.0f, 1.0f, p.x * 0.1f));
    v.uv = vec2(p.x, p.y);
    v.uv2 = vec2(p.z, 7.0f);
    v.color = vec4(0.25f, 0.5f, 0.75f, 1.0f);
    for (uint32_t i = 0; i < 8; ++i) v.extra[i] = 0xa0 + i;
    return v;
}

std::string captureStdout(const std::function<void()>& f) {
    std::ostringstream captured;
    std::streambuf* saved = std::cout.rdbuf(captured.rdbuf());
    try {
        f();
    } catch (...) {
        std::cout.rdbuf(saved);
        throw;
    }
    std::cout.rdbuf(saved);
    return captured.str();
}

std::vector<Triangle> toSoup(const MeshData& mesh) {
    std::vector<Triangle> soup;
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3)
        soup.emplace_back(mesh.vertices[mesh.indices[t]].position,
                          mesh.vertices[mesh.indices[t + 1]].position,
                          mesh.vertices[mesh.indices[t + 2]].position);
    return soup;
}

bool sameRecord(const kvx::nsVertex& a, const kvx::nsVertex& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace meshtest
