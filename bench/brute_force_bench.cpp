// The brute-force reference: every triangle of a mesh tested against a ray.
// Every acceleration structure is measured against this rate.
#include "bench_mesh.h"

#include <korvex/ray.h>

#include <benchmark/benchmark.h>

static void BM_IntersectRayWithMesh(benchmark::State& state) {
    const MeshData mesh = bench::makeSphere(static_cast<size_t>(state.range(0)));
    const std::vector<Ray> rays = bench::makeRays(64);
    const mat4 model(1.0f);
    size_t next = 0, hits = 0;
    for (auto _ : state) {
        vec3 point;
        hits += IntersectRayWithMesh(rays[next++ % rays.size()], mesh.vertices, mesh.indices, model,
                                     point);
        benchmark::DoNotOptimize(point);
    }
    const double triangles = static_cast<double>(mesh.indices.size() / 3);
    state.counters["triangles"] = triangles;
    state.counters["tris_tested/s"] = benchmark::Counter(
        triangles * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["hit_ratio"] =
        static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_IntersectRayWithMesh)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

#include "embree_peer.h"

// The peer on the same mesh and rays, so the two rates sit side by side.
static void BM_EmbreeIntersect1(benchmark::State& state) {
    const MeshData mesh = bench::makeSphere(static_cast<size_t>(state.range(0)));
    const std::vector<Ray> rays = bench::raySet(state.range(1));
    bench::EmbreeScene* scene = bench::embreeBuild(mesh);
    size_t next = 0;
    for (auto _ : state) {
        float t;
        unsigned triangle;
        benchmark::DoNotOptimize(
            bench::embreeIntersect(scene, rays[next++ % rays.size()], t, triangle));
    }
    state.counters["rays/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    bench::embreeRelease(scene);
}
// Second argument: 0 scattered rays, 1 the rays of a camera's pixels.
BENCHMARK(BM_EmbreeIntersect1)->Args({1 << 20, 0})->Args({1 << 20, 1});

static void BM_EmbreeSceneBuild(benchmark::State& state) {
    const MeshData mesh = bench::makeSphere(static_cast<size_t>(state.range(0)));
    for (auto _ : state) bench::embreeRelease(bench::embreeBuild(mesh));
}
BENCHMARK(BM_EmbreeSceneBuild)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();
