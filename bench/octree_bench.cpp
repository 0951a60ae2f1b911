// The octree against its peer, Embree 3 (BM_EmbreeSceneBuild and BM_EmbreeIntersect1 in
// brute_force_bench.cpp), on the same one-million-triangle sphere and the same rays:
//   korvex_bench --benchmark_filter='Octree|Embree|Polygon'
#include "bench_mesh.h"

#include <korvex/octree.h>
#include <korvex/polygon.h>
#include <korvex/ray.h>
#include <korvex/selection.h>

#include <halvane.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numeric>

#include <glm/gtc/matrix_transform.hpp>

namespace {

struct Indexed {
    MeshData mesh;
    std::vector<vec3> positions;
    std::vector<int> triangles;
};

Indexed makeIndexed(size_t triangles) {
    Indexed m{bench::makeSphere(triangles), {}, {}};
    for (const kvx::nsVertex& v : m.mesh.vertices) m.positions.push_back(v.position);
    m.triangles.resize(m.mesh.indices.size() / 3);
    std::iota(m.triangles.begin(), m.triangles.end(), 0);
    return m;
}

OctreeNode* buildTree(const Indexed& m) {
    return buildOctreeFromTriangleIndices(m.positions, m.mesh.indices, m.triangles, 0);
}

// The brute-force answer in the tool's terms: the nearest point, and the first triangle whose
// own hit lands exactly there.
bool bruteForce(const MeshData& mesh, const Ray& ray, vec3& point, int& triangle) {
    if (!IntersectRayWithMesh(ray, mesh.vertices, mesh.indices, mat4(1.0f), point)) return false;
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
        vec3 p;
        float d;
        if (RayIntersectsTriangle(ray, mesh.vertices[mesh.indices[t]].position,
                                  mesh.vertices[mesh.indices[t + 1]].position,
                                  mesh.vertices[mesh.indices[t + 2]].position, p, d) &&
            p == point) {
            triangle = static_cast<int>(t / 3);
            return true;
        }
    }
    return true;
}

} // namespace

static void BM_OctreeBuild(benchmark::State& state) {
    const Indexed m = makeIndexed(static_cast<size_t>(state.range(0)));
    for (auto _ : state) freeOctree(buildTree(m));
    state.counters["triangles"] = static_cast<double>(m.triangles.size());
}
BENCHMARK(BM_OctreeBuild)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_OctreeRayHit(benchmark::State& state) {
    const Indexed m = makeIndexed(static_cast<size_t>(state.range(0)));
    const std::vector<Ray> rays = bench::raySet(state.range(1)); // 0 scattered, 1 camera
    OctreeNode* root = buildTree(m);

    // Same answers as the brute-force path, on a sample of the rays (every triangle per ray).
    int checked = 0, mismatches = 0;
    for (size_t i = 0; i < rays.size(); i += 16, ++checked) {
        vec3 point(0.0f), expectedPoint(0.0f);
        int triangle = -1, expectedTriangle = -1;
        const bool hit = meshGeometry::TraverseOctreeForRayHit(
            root, rays[i], mat4(1.0f), m.mesh.vertices, m.mesh.indices, point, triangle);
        const bool expected = bruteForce(m.mesh, rays[i], expectedPoint, expectedTriangle);
        if (hit != expected || point != expectedPoint || triangle != expectedTriangle) ++mismatches;
    }

    // A tree packs its compact copy for rays once it has answered one ray per 128 triangles;
    // the rate measured is the one after that, which an editor's tree reaches in its first
    // seconds of picking.
    size_t next = 0, hits = 0;
    for (size_t i = 0; i <= m.triangles.size() / 128; ++i) {
        vec3 point;
        int triangle;
        meshGeometry::TraverseOctreeForRayHit(root, rays[next++ % rays.size()], mat4(1.0f),
                                              m.mesh.vertices, m.mesh.indices, point, triangle);
    }
    for (auto _ : state) {
        vec3 point;
        int triangle;
        hits +=
            meshGeometry::TraverseOctreeForRayHit(root, rays[next++ % rays.size()], mat4(1.0f),
                                                  m.mesh.vertices, m.mesh.indices, point, triangle);
        benchmark::DoNotOptimize(point);
    }
    state.counters["rays/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["hit_ratio"] =
        static_cast<double>(hits) / static_cast<double>(state.iterations());
    state.counters["brute_checked"] = checked;
    state.counters["brute_mismatch"] = mismatches;
    freeOctree(root);
}
BENCHMARK(BM_OctreeRayHit)->Args({1 << 20, 0})->Args({1 << 20, 1});

// A lasso over the middle of the view of the whole sphere; every triangle of the tree is
// tested, so the rate is the tree's triangle count per selection.
static void BM_PolygonSelection(benchmark::State& state) {
    const Indexed m = makeIndexed(static_cast<size_t>(state.range(0)));
    OctreeNode* root = buildTree(m);
    static float facing = 0.0f;
    GetVarRegistry()["dot_normal"] = RegisteredVar{&facing};
    const vec3 eye(0.0f, 0.0f, 3.0f);
    const mat4 view = glm::lookAt(eye, vec3(0.0f), vec3(0, 1, 0));
    const mat4 projection = glm::perspective(glm::radians(60.0f), 800.0f / 600.0f, 0.1f, 100.0f);
    std::vector<vec2> lasso;
    for (int i = 0; i < 32; ++i) {
        const float a = 6.2831853f * static_cast<float>(i) / 32.0f;
        const float r = i % 2 ? 150.0f : 220.0f;
        lasso.emplace_back(400.0f + r * std::cos(a), 300.0f + r * std::sin(a));
    }
    std::vector<int> result;
    for (auto _ : state) {
        result.clear();
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            root, lasso, meshGeometry::computePolygonBounds(lasso), mat4(1.0f), m.mesh.vertices,
            m.mesh.indices, result, view, projection, 800, 600, eye, vec3(0, 0, -1), 0.0f);
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["selected"] = static_cast<double>(result.size());
    state.counters["tris_tested/s"] = benchmark::Counter(
        static_cast<double>(m.triangles.size()) * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
    GetVarRegistry().erase("dot_normal");
    freeOctree(root);
}
BENCHMARK(BM_PolygonSelection)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
