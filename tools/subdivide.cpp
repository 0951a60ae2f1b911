// korvex subdivide: one-to-four midpoint subdivision of a mesh file.
#include "cli.h"
#include "mesh_io.h"

#include <korvex/mesh.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

size_t distinctEdges(const MeshData& mesh) {
    std::vector<uint64_t> keys;
    keys.reserve(mesh.indices.size());
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3)
        for (int e = 0; e < 3; ++e) {
            const uint64_t a = mesh.indices[t + e], b = mesh.indices[t + (e + 1) % 3];
            keys.push_back(a < b ? (a << 32) | b : (b << 32) | a);
        }
    std::sort(keys.begin(), keys.end());
    return static_cast<size_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
}

// MemAvailable of /proc/meminfo in bytes, or 0 where it cannot be read.
double availableMemory() {
    std::ifstream in("/proc/meminfo");
    std::string key;
    double kilobytes = 0.0;
    while (in >> key >> kilobytes) {
        if (key == "MemAvailable:") return kilobytes * 1024.0;
        in.ignore(256, '\n');
    }
    return 0.0;
}

std::string gigabytes(double bytes) {
    std::ostringstream s;
    s.precision(3);
    s << bytes / (1024.0 * 1024.0 * 1024.0) << " GB";
    return s.str();
}

// What a run of passes needs: the counts after it and the peak memory.
struct Estimate {
    double vertices, triangles, bytes;
};

// A pass takes V vertices, E edges and T triangles to V + E, 2E + 3T and 4T.
Estimate estimate(const MeshData& mesh, size_t edges, int passes) {
    const double record = sizeof(kvx::nsVertex);
    double v = static_cast<double>(mesh.vertices.size());
    double e = static_cast<double>(edges);
    double t = static_cast<double>(mesh.indices.size() / 3);
    double peak = 0.0;
    for (int pass = 0; pass < passes; ++pass) {
        // Old and new lists side by side, the edge table (16-byte slots at
        // most half full, rounded up to a power of two), the edge order and
        // the per-triangle edge vertices.
        peak = std::max(peak,
                        v * record + 12.0 * t + (v + e) * record + 48.0 * t + 72.0 * e + 12.0 * t);
        const double nextE = 2.0 * e + 3.0 * t;
        v += e;
        e = nextE;
        t *= 4.0;
    }
    // Writing: the mesh plus Assimp's copy (positions, normals, one small
    // allocation per face) and the exporter's text.
    peak = std::max(peak, v * (record + 24.0 + 40.0) + t * (12.0 + 48.0 + 30.0));
    return Estimate{v, t, peak * 1.1};
}

// Refuses, before any work, a pass count whose result would not fit 32-bit
// indices (and counts) or the machine's available memory, and says how many
// passes would.
void checkPassCount(const MeshData& mesh, int passes) {
    const size_t edges = distinctEdges(mesh);
    const double available = availableMemory();
    const auto fitsIndices = [](const Estimate& e) {
        return e.vertices <= 4294967295.0 && e.triangles <= 4294967295.0;
    };
    const auto fitsMemory = [&](const Estimate& e) {
        return available <= 0.0 || e.bytes <= available;
    };
    const Estimate wanted = estimate(mesh, edges, passes);
    if (fitsIndices(wanted) && fitsMemory(wanted)) return;

    int most = 0;
    while (most < passes) {
        const Estimate next = estimate(mesh, edges, most + 1);
        if (!fitsIndices(next) || !fitsMemory(next)) break;
        ++most;
    }
    std::ostringstream why;
    why.precision(3);
    why << "-n " << passes << " would make " << wanted.vertices << " vertices and "
        << wanted.triangles << " triangles";
    if (!fitsIndices(wanted))
        why << ", more than 32-bit indices can address (4294967295)";
    else
        why << ", needing about " << gigabytes(wanted.bytes) << " of memory with "
            << gigabytes(available) << " available";
    why << "; this mesh allows at most -n " << most;
    throw cli::UsageError(why.str());
}

int runSubdivide(const cli::Args& args) {
    args.expectPositional(1, 1);
    const auto out = args.value("-o");
    if (!out) throw cli::UsageError("missing -o OUT (see --help)");
    cli::checkSavePath(*out);
    if (!args.has("-n")) throw cli::UsageError("missing -n PASSES (see --help)");
    const int passes = args.integer("-n", 1);
    if (passes < 0) throw cli::UsageError("-n: the pass count must be 0 or more");

    MeshData mesh = cli::loadInputMesh(args.positional()[0]);
    checkPassCount(mesh, passes);
    std::cout << "input: " << mesh.vertices.size() << " verts, " << mesh.indices.size() / 3
              << " triangles\n";
    meshutils::LoopSubdivide(mesh, passes);
    cli::saveMesh(mesh, *out);
    std::cout << "wrote " << *out << "\n";
    return 0;
}

const cli::Registrar registrar({
    "subdivide",
    "Split every triangle of a mesh into four, PASSES times (midpoint subdivision).",
    "subdivide IN -o OUT -n PASSES\n"
    "\nIN is any mesh file Assimp reads (OBJ, PLY, STL, glTF, ...) or 'builtin' for a UV sphere\n"
    "of radius 1. Each pass puts one vertex at the middle of every edge, shared by the\n"
    "triangles on it; no vertex moves. The mesh grows fourfold per pass: a count whose result\n"
    "would not fit 32-bit indices or the available memory is refused before any work.\n"
    "OUT is .obj, .ply, .stl, .gltf or .glb.",
    {
        {"-o", true, "OUT            file to write (.obj, .ply, .stl, .gltf, .glb)"},
        {"-n", true, "PASSES         number of passes (0 or more)"},
    },
    runSubdivide,
});

} // namespace
