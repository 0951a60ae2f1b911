// The BVH against Embree 3 in the same run, on the same one-million-triangle
// sphere and rays as BM_EmbreeSceneBuild and BM_EmbreeIntersect1.
#include "bench_mesh.h"
#include "embree_peer.h"

#include <korvex/bvh.h>
#include <korvex/ray.h>

#include <benchmark/benchmark.h>

namespace {

// Rays whose BVH hit differs from IntersectRayWithMesh's, in hit or in point.
// The sample rays start 2 or more units from the sphere, far above the
// traversal's 0.001 floor, so both paths must agree bit for bit.
size_t mismatchesAgainstBruteForce(const BVHNode* root, const MeshData& mesh,
                                   const std::vector<Ray>& rays, size_t sample) {
    size_t mismatches = 0;
    for (size_t i = 0; i < sample && i < rays.size(); ++i) {
        vec3 bvhPoint(0.0f), brutePoint(0.0f);
        float nearest = kFloatMax;
        const bool bvhHit = RayIntersectsBVH(rays[i], root, bvhPoint, nearest);
        const bool bruteHit =
            IntersectRayWithMesh(rays[i], mesh.vertices, mesh.indices, mat4(1.0f), brutePoint);
        if (bvhHit != bruteHit || (bvhHit && bvhPoint != brutePoint)) ++mismatches;
    }
    return mismatches;
}

} // namespace

static void BM_CreateBVHNode(benchmark::State& state) {
    const MeshData mesh = bench::makeSphere(static_cast<size_t>(state.range(0)));
    const std::vector<Triangle> triangles = bench::trianglesOf(mesh);
    for (auto _ : state) {
        std::unique_ptr<BVHNode> root = createBVHNode(triangles, 0);
        benchmark::DoNotOptimize(root.get());
        state.PauseTiming(); // releasing the tree is not part of the build
        root.reset();
        state.ResumeTiming();
    }
    state.counters["triangles"] = static_cast<double>(triangles.size());
}
BENCHMARK(BM_CreateBVHNode)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_RayIntersectsBVH(benchmark::State& state) {
    const MeshData mesh = bench::makeSphere(static_cast<size_t>(state.range(0)));
    const std::vector<Ray> rays = bench::raySet(state.range(1));
    const std::unique_ptr<BVHNode> root = createBVHNode(bench::trianglesOf(mesh), 0);
    const size_t mismatches = mismatchesAgainstBruteForce(root.get(), mesh, rays, 128);
    if (mismatches != 0) {
        state.SkipWithError("BVH hits differ from IntersectRayWithMesh");
        return;
    }
    size_t next = 0, hits = 0;
    for (auto _ : state) {
        vec3 point;
        float nearest = kFloatMax;
        hits += RayIntersectsBVH(rays[next++ % rays.size()], root.get(), point, nearest);
        benchmark::DoNotOptimize(point);
    }
    state.counters["rays/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["hit_ratio"] =
        static_cast<double>(hits) / static_cast<double>(state.iterations());
    state.counters["brute_mismatches"] = static_cast<double>(mismatches);
}
// Second argument: 0 scattered rays, 1 the rays of a camera's pixels.
BENCHMARK(BM_RayIntersectsBVH)->Args({1 << 20, 0})->Args({1 << 20, 1});
