#include "bench_mesh.h"

#include <cmath>
#include <random>

namespace bench {

MeshData makeSphere(size_t triangles) {
    // slices * stacks * 2 triangles, with slices = 2 * stacks.
    const int stacks =
        std::max(2, static_cast<int>(std::sqrt(static_cast<double>(triangles) / 4.0)));
    const int slices = 2 * stacks;
    const float pi = 3.14159265358979f;
    MeshData mesh;
    mesh.vertices.reserve(static_cast<size_t>(slices + 1) * (stacks + 1));
    for (int j = 0; j <= stacks; ++j) {
        const float phi = pi * static_cast<float>(j) / static_cast<float>(stacks);
        for (int i = 0; i <= slices; ++i) {
            const float theta = 2.0f * pi * static_cast<float>(i) / static_cast<float>(slices);
            const vec3 p(std::sin(phi) * std::cos(theta), std::cos(phi),
                         std::sin(phi) * std::sin(theta));
            mesh.vertices.emplace_back(p, p);
        }
    }
    const unsigned row = static_cast<unsigned>(slices) + 1;
    mesh.indices.reserve(static_cast<size_t>(slices) * stacks * 6);
    for (unsigned j = 0; j < static_cast<unsigned>(stacks); ++j)
        for (unsigned i = 0; i < static_cast<unsigned>(slices); ++i) {
            const unsigned a = j * row + i, b = a + row, c = b + 1, d = a + 1;
            mesh.indices.insert(mesh.indices.end(), {a, d, b, d, c, b});
        }
    return mesh;
}

std::vector<Triangle> trianglesOf(const MeshData& mesh) {
    std::vector<Triangle> out;
    out.reserve(mesh.indices.size() / 3);
    for (size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        out.emplace_back(mesh.vertices[mesh.indices[i]].position,
                         mesh.vertices[mesh.indices[i + 1]].position,
                         mesh.vertices[mesh.indices[i + 2]].position);
    return out;
}

std::vector<Ray> makeRays(size_t count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<Ray> rays;
    rays.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const float angle = 6.2831853f * static_cast<float>(i) / static_cast<float>(count);
        const vec3 origin(3.0f * std::cos(angle), unit(rng), 3.0f * std::sin(angle));
        const vec3 target(unit(rng) * 0.8f, unit(rng) * 0.8f, unit(rng) * 0.8f);
        rays.emplace_back(origin, glm::normalize(target - origin));
    }
    return rays;
}

std::vector<Ray> makeCameraRays(int side) {
    const vec3 eye(0.0f, 0.0f, 3.0f);
    const float halfWidth =
        std::tan(0.5f * 40.0f * 3.14159265f / 180.0f); // the sphere fills the view
    std::vector<Ray> rays;
    rays.reserve(static_cast<size_t>(side) * static_cast<size_t>(side));
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const float u =
                (2.0f * (static_cast<float>(x) + 0.5f) / static_cast<float>(side) - 1.0f);
            const float v =
                (1.0f - 2.0f * (static_cast<float>(y) + 0.5f) / static_cast<float>(side));
            rays.emplace_back(eye, glm::normalize(vec3(u * halfWidth, v * halfWidth, -1.0f)));
        }
    return rays;
}

std::vector<Ray> raySet(int64_t kind) {
    return kind == 0 ? makeRays(4096) : makeCameraRays(64);
}

} // namespace bench
