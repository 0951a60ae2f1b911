// korvex simplify: grid simplification of a mesh file.
#include "cli.h"
#include "mesh_io.h"

#include <korvex/mesh.h>

#include <cmath>
#include <iostream>
#include <sstream>

namespace {

// The cell edge the library will use, by the same rule.
double cellEdge(const MeshData& mesh, const meshutils::SimplifyOptions& options, double& longest) {
    vec3 lo(kFloatMax), hi(-kFloatMax);
    for (const kvx::nsVertex& v : mesh.vertices) {
        lo = glm::min(lo, v.position);
        hi = glm::max(hi, v.position);
    }
    const vec3 e = hi - lo;
    longest = std::max(e.x, std::max(e.y, e.z));
    const float diagonal = std::sqrt(e.x * e.x + e.y * e.y + e.z * e.z);
    float c =
        options.cellSize > 0.0f ? options.cellSize : (diagonal * 0.01f) / std::sqrt(options.detail);
    return c <= 0.0f ? 0.001 : c;
}

int runSimplify(const cli::Args& args) {
    args.expectPositional(1, 1);
    const auto out = args.value("-o");
    if (!out) throw cli::UsageError("missing -o OUT (see --help)");
    cli::checkSavePath(*out);
    if (args.has("--cell") == args.has("--detail"))
        throw cli::UsageError("give exactly one of --cell SIZE and --detail D");

    meshutils::SimplifyOptions options{1.0f, 0.0f};
    if (args.has("--cell")) {
        options.cellSize = args.number("--cell", 0.0f);
        if (!(options.cellSize > 0.0f)) throw cli::UsageError("--cell: the size must be positive");
    } else {
        options.detail = args.number("--detail", 1.0f);
        if (!(options.detail > 0.0f)) throw cli::UsageError("--detail: D must be positive");
    }

    MeshData mesh = cli::loadInputMesh(args.positional()[0]);
    double longest = 0.0;
    const double c = cellEdge(mesh, options, longest);
    // Cell indices are 32-bit: past that the library clamps them to the
    // outermost cell, which would fold the far part of the mesh together.
    if (longest / c > 2147483647.0) {
        std::ostringstream why;
        why << "a cell of " << c << " is too small for this mesh: " << longest / c
            << " cells along its longest side, more than 32-bit cell indices hold";
        throw cli::UsageError(why.str());
    }

    std::cout << "input: " << mesh.vertices.size() << " verts, " << mesh.indices.size() / 3
              << " triangles; cell " << c << "\n";
    meshutils::SimplifyVertexClustering(mesh, options);
    if (mesh.indices.empty())
        throw cli::UsageError("every triangle collapsed, nothing to write (use a smaller cell)");
    cli::saveMesh(mesh, *out);
    std::cout << "wrote " << *out << "\n";
    return 0;
}

const cli::Registrar registrar({
    "simplify",
    "Simplify a mesh on a uniform grid (vertex clustering).",
    "simplify IN -o OUT (--cell SIZE | --detail D)\n"
    "\nIN is any mesh file Assimp reads (OBJ, PLY, STL, glTF, ...) or 'builtin' for a UV sphere\n"
    "of radius 1. All vertices in one grid cell become the first of them; triangles that lose a\n"
    "corner disappear. --cell gives the cell edge in mesh units; --detail D gives 1% of the\n"
    "bounding-box diagonal divided by sqrt(D) (1: 1%, 4: 0.5%). OUT is .obj, .ply, .stl, .gltf\n"
    "or .glb.",
    {
        {"-o", true, "OUT            file to write (.obj, .ply, .stl, .gltf, .glb)"},
        {"--cell", true, "SIZE       cell edge in mesh units"},
        {"--detail", true, "D        cell of 1% of the bounding-box diagonal / sqrt(D)"},
    },
    runSimplify,
});

} // namespace
