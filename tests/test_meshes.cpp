#include "test_meshes.h"

#include <halvane.h>

#include <cstring>
#include <cmath>
#include <fstream>
#include <iostream>
#include <numeric>
#include <random>
#include <sstream>

namespace testmesh {

void Mesh::add(const vec3& p) {
    positions.push_back(p);
    vertices.push_back(vertexAt(p));
}

std::vector<int> Mesh::allTriangles() const {
    std::vector<int> all(static_cast<size_t>(triangleCount()));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

MeshData Mesh::meshData() const {
    return MeshData{vertices, indices};
}

std::vector<Triangle> Mesh::soup() const {
    std::vector<Triangle> out;
    for (int t = 0; t < triangleCount(); ++t)
        out.emplace_back(corner(t, 0), corner(t, 1), corner(t, 2));
    return out;
}

Mesh loadObj(const std::string& path) {
    Mesh mesh;
    std::ifstream in(path);
    std::string line, tag, corner;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        words >> tag;
        if (tag == "v") {
            vec3 p;
            words >> p.x >> p.y >> p.z;
            mesh.add(p);
        } else if (tag == "f") {
            std::vector<unsigned int> corners;
            while (words >> corner) { // stol stops at a "/vt/vn" part
                const long raw = std::stol(corner);
                corners.push_back(static_cast<unsigned int>(
                    raw < 0 ? static_cast<long>(mesh.positions.size()) + raw : raw - 1));
            }
            for (size_t k = 2; k < corners.size(); ++k)
                mesh.indices.insert(mesh.indices.end(), {corners[0], corners[k - 1], corners[k]});
        }
    }
    return mesh;
}

const Mesh& bunny() {
    static const Mesh mesh = loadObj(KORVEX_BUNNY_PATH);
    return mesh;
}

Mesh axisPlaneLattice(int n, float scale) {
    Mesh m;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < 3; ++k) {
                vec3 a(0.0f), u(0.0f), v(0.0f);
                a[k] = static_cast<float>((i + j) % n);
                a[(k + 1) % 3] = static_cast<float>(i);
                a[(k + 2) % 3] = static_cast<float>(j);
                u[(k + 1) % 3] = 1.0f;
                v[(k + 2) % 3] = 1.0f;
                const auto first = static_cast<unsigned int>(m.positions.size());
                for (const vec3& p : {a, a + u, a + u + v, a + v}) m.add(p * scale);
                m.indices.insert(m.indices.end(),
                                 {first, first + 1, first + 2, first, first + 2, first + 3});
            }
    return m;
}

Mesh randomSoup(int triangles, float size, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> where(-size * 0.5f, size * 0.5f);
    std::uniform_real_distribution<float> jitter(-size * 0.02f, size * 0.02f);
    const auto near = [&](const vec3& c) {
        return c + vec3(jitter(rng), jitter(rng), jitter(rng));
    };
    Mesh m;
    for (int t = 0; t < triangles; ++t) {
        const vec3 c(where(rng), where(rng), where(rng));
        if (t % 4 == 0) m.add(near(c));
        const auto a = static_cast<unsigned>(m.positions.size() - 1);
        m.add(near(c));
        m.add(near(c));
        const auto n = static_cast<unsigned>(m.positions.size());
        m.indices.insert(m.indices.end(), {a, n - 2, n - 1});
    }
    return m;
}

MeshData meshOf(const std::vector<vec3>& points, const std::vector<unsigned int>& indices) {
    MeshData mesh{{}, indices};
    for (const vec3& p : points) mesh.vertices.push_back(vertexAt(p));
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

bool sameRecord(const kvx::nsVertex& a, const kvx::nsVertex& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool sameBits(const vec3& a, const vec3& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::unordered_set<Edge, EdgeHash> sliceEdges(const Mesh& mesh, float c) {
    std::unordered_set<Edge, EdgeHash> cut;
    for (int t = 0; t < mesh.triangleCount(); ++t) {
        std::vector<vec3> ends;
        for (int k = 0; k < 3; ++k) {
            unsigned i = mesh.indices[3 * t + k], j = mesh.indices[3 * t + (k + 1) % 3];
            if ((mesh.positions[i].y < c) == (mesh.positions[j].y < c)) continue;
            if (i > j) std::swap(i, j);
            const vec3 p = mesh.positions[i], q = mesh.positions[j];
            ends.push_back(p + (q - p) * ((c - p.y) / (q.y - p.y)));
        }
        if (ends.size() == 2) cut.insert(Edge(ends[0], ends[1]));
    }
    return cut;
}

LogCapture::LogCapture() {
    LOG.SetSink([this](const std::string& line) { lines.push_back(line); });
}

LogCapture::~LogCapture() {
    LOG.SetSink({});
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

} // namespace testmesh
