// korvex select: the triangles of a mesh under a lasso drawn on the screen.
#include "cli.h"
#include "mesh_io.h"
#include "view.h"

#include <korvex/octree.h>
#include <korvex/polygon.h>
#include <korvex/selection.h>

#include <halvane.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <numeric>
#include <sstream>
#include <unordered_map>

namespace {

// "x,y x,y ...": numbers separated by commas or white space, taken in pairs.
std::vector<vec2> parsePolygon(const std::string& text, const std::string& what) {
    std::string spaced = text;
    for (char& c : spaced)
        if (c == ',' || c == ';') c = ' ';
    std::istringstream in(spaced);
    std::vector<float> numbers;
    std::string word;
    while (in >> word) numbers.push_back(cli::parseNumber(word, what));
    if (numbers.size() % 2 != 0)
        throw cli::UsageError(what + ": expected pairs X,Y, got an odd count of numbers");
    std::vector<vec2> polygon;
    for (size_t i = 0; i < numbers.size(); i += 2) polygon.emplace_back(numbers[i], numbers[i + 1]);
    if (polygon.size() < 3) throw cli::UsageError(what + ": a lasso needs at least 3 points");
    return polygon;
}

std::vector<vec2> polygonOption(const cli::Args& args) {
    const auto inline_ = args.value("--polygon");
    const auto file = args.value("--polygon-file");
    if (inline_ && file) throw cli::UsageError("give either --polygon or --polygon-file, not both");
    if (inline_) return parsePolygon(*inline_, "--polygon");
    if (!file) throw cli::UsageError("missing lasso: give --polygon or --polygon-file");
    std::ifstream in(*file);
    if (!in) throw cli::UsageError("cannot read polygon file '" + *file + "'");
    std::string text, line;
    while (std::getline(in, line)) {
        // '#' starts a comment that runs to the end of the line.
        text += line.substr(0, line.find('#'));
        text += ' ';
    }
    return parsePolygon(text, *file);
}

// The selected triangles with only the vertices they use, renumbered in order of first use.
MeshData extractTriangles(const MeshData& mesh, const std::vector<int>& triangles) {
    MeshData out;
    std::unordered_map<unsigned int, unsigned int> renumbered;
    for (int t : triangles)
        for (int k = 0; k < 3; ++k) {
            const unsigned int v = mesh.indices[3 * static_cast<size_t>(t) + k];
            const auto [it, fresh] =
                renumbered.emplace(v, static_cast<unsigned int>(out.vertices.size()));
            if (fresh) out.vertices.push_back(mesh.vertices[v]);
            out.indices.push_back(it->second);
        }
    return out;
}

int runSelect(const cli::Args& args) {
    args.expectPositional(0, 1);
    const std::vector<vec2> polygon = polygonOption(args);
    const std::string* path = args.positional().empty() ? nullptr : &args.positional()[0];
    const MeshData mesh = cli::loadMeshOrDefault(path);
    const cli::View view = cli::makeView(args, mesh);

    // The library reads the facing threshold from the host's registry, as in the editor.
    static float facing = 0.0f;
    facing = args.number("--facing", 0.0f);
    GetVarRegistry()["dot_normal"] = RegisteredVar{&facing};
    const float depthMargin = args.number("--depth-margin", 0.0f);

    std::vector<vec3> positions(mesh.vertices.size());
    for (size_t i = 0; i < mesh.vertices.size(); ++i) positions[i] = mesh.vertices[i].position;
    std::vector<int> all(mesh.indices.size() / 3);
    std::iota(all.begin(), all.end(), 0);
    OctreeNode* root = buildOctreeFromTriangleIndices(positions, mesh.indices, all, 0);

    std::vector<int> selected;
    try {
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            root, polygon, meshGeometry::computePolygonBounds(polygon), mat4(1.0f), mesh.vertices,
            mesh.indices, selected, view.view, view.projection, view.width, view.height, view.eye,
            glm::normalize(view.target - view.eye), depthMargin);
    } catch (...) {
        freeOctree(root);
        throw;
    }
    freeOctree(root);
    // The tree reports in its own order; users read numbers in mesh order.
    std::sort(selected.begin(), selected.end());

    if (auto out = args.value("-o")) {
        if (selected.empty())
            throw cli::UsageError("nothing selected: no mesh written to '" + *out + "'");
        cli::saveMesh(extractTriangles(mesh, selected), *out);
    }
    if (args.has("--json")) {
        std::cout << "{\"selected\":" << selected.size() << ",\"triangles\":[";
        for (size_t i = 0; i < selected.size(); ++i) std::cout << (i ? "," : "") << selected[i];
        std::cout << "]}\n";
    } else {
        std::cout << "selected " << selected.size() << " triangle"
                  << (selected.size() == 1 ? "" : "s") << "\n";
    }
    return 0;
}

const cli::Registrar registrar({
    "select",
    "Select the triangles of a mesh under a lasso polygon on the screen.",
    "select [MESH] (--polygon \"X,Y X,Y X,Y ...\" | --polygon-file FILE) [--facing T]\n"
    "              [--depth-margin M] [--eye X,Y,Z] [--target X,Y,Z] [--fov DEG] [--size WxH]\n"
    "              [--json] [-o OUT]\n"
    "\nMESH is any file Assimp reads; without it a built-in UV sphere of radius 1 is used. The\n"
    "lasso is in pixels, origin at the top left, closed from its last point to its first; a\n"
    "polygon file holds the same pairs, '#' starting a comment. A triangle is selected when it\n"
    "lies in front of the camera, overlaps the lasso, lies within the depth band and faces the\n"
    "camera: dot(view, normal) >= T (the host variable dot_normal).",
    cli::withViewOptions({
        {"--polygon", true, "\"X,Y ...\"  lasso vertices in pixels (at least 3)"},
        {"--polygon-file", true, "FILE  lasso vertices from a file"},
        {"--facing", true, "T          facing threshold, dot_normal (default 0; -2 takes all)"},
        {"--depth-margin", true, "M    widens the depth band max(2000, 2M + 100) + M (default 0)"},
        {"--json", false, "            count and triangle numbers as JSON"},
        {"-o", true,
         "OUT               write the selected triangles as a mesh (obj, ply, stl, gltf, glb)"},
    }),
    runSelect,
});

} // namespace
