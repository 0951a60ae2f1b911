// Mesh processing against its peers, on the same meshes in the same run:
// grid simplification against meshoptimizer's sloppy simplifier at the same
// output size, one subdivision pass against OpenMesh's uniform subdividers,
// and the non-manifold edge search over a million triangles.
#include "bench_mesh.h"
#include "openmesh_peer.h"

#include <korvex/hasher.h>
#include <korvex/mesh.h>
#include <korvex/plane.h>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <cfloat>
#include <iostream>
#include <streambuf>
#include <unordered_map>

namespace {

// The mesh operations print one result line per call; inside a timed loop
// that would flood the benchmark's own output, so std::cout is pointed at a
// stream buffer that drops everything while a silencer lives.
class NullBuffer : public std::streambuf {
  protected:
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

class CoutSilencer {
  public:
    CoutSilencer() : saved_(std::cout.rdbuf(&null_)) {}
    ~CoutSilencer() { std::cout.rdbuf(saved_); }

  private:
    NullBuffer null_;
    std::streambuf* saved_;
};

// The benchmark sphere with full vertex records (the plain sphere leaves
// tangents and uvs unset), so every algorithm reads defined data.
MeshData sphere(size_t triangles) {
    MeshData mesh = bench::makeSphere(triangles);
    for (kvx::nsVertex& v : mesh.vertices) {
        v.tangent = glm::normalize(glm::cross(vec3(0, 1, 0), v.position) + vec3(1e-3f, 0, 0));
        v.bitangent = glm::cross(v.normal, v.tangent);
        v.uv = vec2(v.position.x, v.position.z);
    }
    return mesh;
}

// The clustering cell is given as a fraction of the sphere's box diagonal,
// state.range(1) per ten thousand.
meshutils::SimplifyOptions cellOptions(const benchmark::State& state) {
    return meshutils::SimplifyOptions{1.0f, std::sqrt(12.0f) * static_cast<float>(state.range(1)) /
                                                10000.0f};
}

size_t clusteredTriangles(const MeshData& input, const meshutils::SimplifyOptions& options) {
    CoutSilencer quiet;
    MeshData copy = input;
    meshutils::SimplifyVertexClustering(copy, options);
    return copy.indices.size() / 3;
}

void BM_SimplifyVertexClustering(benchmark::State& state) {
    const MeshData input = sphere(static_cast<size_t>(state.range(0)));
    const meshutils::SimplifyOptions options = cellOptions(state);
    size_t outTriangles = 0;
    {
        CoutSilencer quiet;
        for (auto _ : state) {
            state.PauseTiming();
            MeshData mesh = input;
            state.ResumeTiming();
            meshutils::SimplifyVertexClustering(mesh, options);
            outTriangles = mesh.indices.size() / 3;
            benchmark::DoNotOptimize(mesh.indices.data());
        }
    }
    state.counters["in_tris"] = static_cast<double>(input.indices.size() / 3);
    state.counters["out_tris"] = static_cast<double>(outTriangles);
    state.counters["in_tris/s"] = benchmark::Counter(static_cast<double>(input.indices.size() / 3) *
                                                         static_cast<double>(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}

// The peer, asked for the triangle count that clustering reached with the
// same cell; it writes only an index list over the input vertices.
void BM_MeshoptSimplifySloppy(benchmark::State& state) {
    const MeshData input = sphere(static_cast<size_t>(state.range(0)));
    const size_t target = clusteredTriangles(input, cellOptions(state)) * 3;
    std::vector<unsigned int> out(input.indices.size());
    size_t written = 0;
    for (auto _ : state) {
        written = meshopt_simplifySloppy(out.data(), input.indices.data(), input.indices.size(),
                                         &input.vertices[0].position.x, input.vertices.size(),
                                         sizeof(kvx::nsVertex), target, FLT_MAX, nullptr);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["in_tris"] = static_cast<double>(input.indices.size() / 3);
    state.counters["out_tris"] = static_cast<double>(written / 3);
    state.counters["in_tris/s"] = benchmark::Counter(static_cast<double>(input.indices.size() / 3) *
                                                         static_cast<double>(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}

// Cells of 1% and 0.25% of the diagonal on a million-triangle sphere.
BENCHMARK(BM_SimplifyVertexClustering)
    ->Args({1 << 20, 100})
    ->Args({1 << 20, 25})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MeshoptSimplifySloppy)
    ->Args({1 << 20, 100})
    ->Args({1 << 20, 25})
    ->Unit(benchmark::kMillisecond);

void BM_LoopSubdivideOnePass(benchmark::State& state) {
    const MeshData input = sphere(static_cast<size_t>(state.range(0)));
    size_t outTriangles = 0;
    {
        CoutSilencer quiet;
        for (auto _ : state) {
            state.PauseTiming();
            MeshData mesh = input;
            state.ResumeTiming();
            meshutils::LoopSubdivide(mesh, 1);
            outTriangles = mesh.indices.size() / 3;
            benchmark::DoNotOptimize(mesh.indices.data());
        }
    }
    state.counters["out_tris"] = static_cast<double>(outTriangles);
    state.counters["in_tris/s"] = benchmark::Counter(static_cast<double>(input.indices.size() / 3) *
                                                         static_cast<double>(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}

void openMeshOnePass(benchmark::State& state, void (*pass)(bench::OpenMeshMesh*)) {
    bench::OpenMeshMesh* input = bench::openMeshBuild(sphere(static_cast<size_t>(state.range(0))));
    const size_t inTriangles = bench::openMeshFaces(input);
    size_t outTriangles = 0;
    for (auto _ : state) {
        state.PauseTiming();
        bench::OpenMeshMesh* mesh = bench::openMeshCopy(input);
        state.ResumeTiming();
        pass(mesh);
        outTriangles = bench::openMeshFaces(mesh);
        state.PauseTiming();
        bench::openMeshRelease(mesh);
        state.ResumeTiming();
    }
    bench::openMeshRelease(input);
    state.counters["out_tris"] = static_cast<double>(outTriangles);
    state.counters["in_tris/s"] = benchmark::Counter(static_cast<double>(inTriangles) *
                                                         static_cast<double>(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}

// The named peer: midpoint subdivision (new vertices on edge midpoints, old
// vertices replaced by faces).
void BM_OpenMeshMidpointOnePass(benchmark::State& state) {
    openMeshOnePass(state, bench::openMeshMidpointPass);
}

// The same one-to-four split as LoopSubdivide, with Loop's smoothing on top.
void BM_OpenMeshLoopOnePass(benchmark::State& state) {
    openMeshOnePass(state, bench::openMeshLoopPass);
}

BENCHMARK(BM_LoopSubdivideOnePass)->Arg(1 << 18)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenMeshMidpointOnePass)->Arg(1 << 18)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenMeshLoopOnePass)->Arg(1 << 18)->Unit(benchmark::kMillisecond);

std::vector<Triangle> soup(size_t triangles) {
    return bench::trianglesOf(bench::makeSphere(triangles));
}

void BM_DetectNonManifoldEdges(benchmark::State& state) {
    const std::vector<Triangle> triangles = soup(static_cast<size_t>(state.range(0)));
    size_t found = 0;
    for (auto _ : state) {
        const std::vector<Edge> edges = DetectNonManifoldEdges(triangles);
        found = edges.size();
        benchmark::DoNotOptimize(edges.data());
    }
    state.counters["tris"] = static_cast<double>(triangles.size());
    state.counters["non_manifold"] = static_cast<double>(found);
    state.counters["tris/s"] = benchmark::Counter(static_cast<double>(triangles.size()) *
                                                      static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}

// The plain way, for scale: std::unordered_map with the library's functors.
void BM_NonManifoldUnorderedMapBaseline(benchmark::State& state) {
    const std::vector<Triangle> triangles = soup(static_cast<size_t>(state.range(0)));
    size_t found = 0;
    for (auto _ : state) {
        std::unordered_map<Edge, int, EdgeHash> count;
        for (const Triangle& t : triangles) {
            ++count[MakeEdge(t.p0, t.p1)];
            ++count[MakeEdge(t.p1, t.p2)];
            ++count[MakeEdge(t.p2, t.p0)];
        }
        found = 0;
        for (const auto& [edge, n] : count) found += n > 2;
        benchmark::DoNotOptimize(found);
    }
    state.counters["non_manifold"] = static_cast<double>(found);
    state.counters["tris/s"] = benchmark::Counter(static_cast<double>(triangles.size()) *
                                                      static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}

BENCHMARK(BM_DetectNonManifoldEdges)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NonManifoldUnorderedMapBaseline)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

} // namespace
