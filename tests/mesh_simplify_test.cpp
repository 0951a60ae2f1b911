#include <korvex/mesh.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>

using testmesh::meshOf;
using testmesh::sameRecord;

namespace {

meshutils::SimplifyOptions cell(float size) {
    return meshutils::SimplifyOptions{1.0f, size};
}
meshutils::SimplifyOptions detail(float d) {
    return meshutils::SimplifyOptions{d, 0.0f};
}

std::string simplify(MeshData& mesh, const meshutils::SimplifyOptions& options) {
    return testmesh::captureStdout([&] { meshutils::SimplifyVertexClustering(mesh, options); });
}

std::string resultLine(size_t vertices, size_t triangles) {
    return "[Simplify] Result: " + std::to_string(vertices) + " verts, " +
           std::to_string(triangles) + " triangles\n";
}

// The grid clustering written plainly, with an ordered map for the cells.
MeshData oracleSimplify(const MeshData& in, float c) {
    vec3 lo(std::numeric_limits<float>::max()), hi(-std::numeric_limits<float>::max());
    for (const kvx::nsVertex& v : in.vertices) {
        lo = glm::min(lo, v.position);
        hi = glm::max(hi, v.position);
    }
    std::map<std::array<int, 3>, unsigned> cells;
    std::vector<unsigned> remap;
    MeshData out;
    for (const kvx::nsVertex& v : in.vertices) {
        const vec3 k = glm::floor((v.position - lo) / c);
        const auto [it, inserted] =
            cells.emplace(std::array<int, 3>{int(k.x), int(k.y), int(k.z)}, out.vertices.size());
        if (inserted) out.vertices.push_back(v);
        remap.push_back(it->second);
    }
    for (size_t t = 0; t + 2 < in.indices.size(); t += 3) {
        const unsigned a = remap[in.indices[t]], b = remap[in.indices[t + 1]],
                       d = remap[in.indices[t + 2]];
        if (a != b && b != d && d != a) out.indices.insert(out.indices.end(), {a, b, d});
    }
    return out;
}

} // namespace

TEST(SimplifyVertexClustering, HalfOpenCellsFromTheMinimumCornerFirstVertexCopied) {
    // Minimum x is 10: offsets 0, 0.999, 1 (exactly on a grid plane), 2.5, 0.5.
    MeshData mesh = meshOf(
        {vec3(10, 0, 0), vec3(10.999f, 0, 0), vec3(11, 0, 0), vec3(12.5f, 0, 0), vec3(10.5f, 0, 0)},
        {0, 2, 3, 1, 4, 3, 4, 0, 2});
    const MeshData before = mesh;
    EXPECT_EQ(simplify(mesh, cell(1.0f)), resultLine(3, 1));
    ASSERT_EQ(mesh.vertices.size(), 3u);
    // Order of first occurrence; whole records copied bit for bit.
    EXPECT_TRUE(sameRecord(mesh.vertices[0], before.vertices[0]));
    EXPECT_TRUE(sameRecord(mesh.vertices[1], before.vertices[2]));
    EXPECT_TRUE(sameRecord(mesh.vertices[2], before.vertices[3]));
    EXPECT_EQ(mesh.indices, (std::vector<unsigned int>{0, 1, 2}));

    // The maximum corner lands one cell past the last full one when the extent is a multiple of
    // the cell; an unused vertex moves the grid origin and can represent its cell.
    MeshData corner = meshOf({vec3(0), vec3(1.9f, 0, 0), vec3(2, 0, 0)}, {0, 1, 2});
    EXPECT_EQ(simplify(corner, cell(1.0f)), resultLine(3, 1));
    MeshData unused = meshOf(
        {vec3(-0.5f, 0, 0), vec3(0.1f, 0, 0), vec3(0.6f, 0, 0), vec3(0.6f, 0.6f, 0)}, {1, 2, 3});
    EXPECT_EQ(simplify(unused, cell(1.0f)), resultLine(2, 0));
    EXPECT_EQ(unused.vertices[0].position, vec3(-0.5f, 0, 0));
}

TEST(SimplifyVertexClustering, TrianglesKeepOrderAndWindingAndCollapsedOnesGo) {
    const std::vector<vec3> points = {vec3(0, 0, 0),      vec3(5, 0, 0),    vec3(0, 5, 0),
                                      vec3(0.1f, 0, 0),   vec3(5.1f, 0, 0), vec3(0, 5.1f, 0),
                                      vec3(0.2f, 0.1f, 0)};
    // Reversed winding, a copy of the first, one inside a single cell, two left-over entries.
    MeshData mesh = meshOf(points, {0, 1, 2, 2, 1, 0, 3, 4, 5, 0, 3, 6, 4, 5});
    EXPECT_EQ(simplify(mesh, cell(1.0f)), resultLine(3, 3));
    EXPECT_EQ(mesh.indices, (std::vector<unsigned int>{0, 1, 2, 2, 1, 0, 0, 1, 2}));
    // Fewer than three entries: the vertices are still clustered.
    MeshData pair = meshOf(points, {0, 1});
    EXPECT_EQ(simplify(pair, cell(1.0f)), resultLine(3, 0));
    EXPECT_TRUE(pair.indices.empty());
    // Fine cells: only exact duplicates merge.
    MeshData fine =
        meshOf({vec3(0), vec3(1, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 3, 0, 2, 3, 1, 2, 3});
    EXPECT_EQ(simplify(fine, cell(1e-4f)), resultLine(3, 2));
    EXPECT_EQ(fine.indices, (std::vector<unsigned int>{0, 1, 2, 0, 1, 2}));
}

TEST(SimplifyVertexClustering, CellFromDetailAndDegenerateSettings) {
    // Bounds (0,0,0)-(300,400,0): diagonal 500, so detail 1 gives cells of 5.
    const std::vector<vec3> points = {vec3(0, 0, 0), vec3(300, 400, 0), vec3(4.9f, 0, 0),
                                      vec3(5, 0, 0), vec3(9.9f, 0, 0),  vec3(10, 0, 0)};
    const auto count = [&](const meshutils::SimplifyOptions& options) {
        MeshData mesh = meshOf(points, {0, 1, 2});
        simplify(mesh, options);
        return mesh.vertices.size();
    };
    EXPECT_EQ(count(detail(1.0f)), 4u);  // {0, 4.9} {300,400} {5, 9.9} {10}
    EXPECT_EQ(count(detail(0.25f)), 3u); // cells of 10
    EXPECT_EQ(count(detail(4.0f)), 6u);  // cells of 2.5
    EXPECT_EQ(count(meshutils::SimplifyOptions{4.0f, 10.0f}), 3u); // cellSize wins

    // Detail 0, negative or NaN, a cell larger than the mesh, or all at one point (diagonal 0,
    // cell 0 becomes 0.001): one vertex, no triangles.
    for (const auto& options : {detail(0.0f), detail(-1.0f), detail(NAN), cell(100.0f)}) {
        MeshData mesh = meshOf({vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2});
        EXPECT_EQ(simplify(mesh, options), resultLine(1, 0)) << options.detail;
    }
    MeshData point = meshOf({vec3(2), vec3(2), vec3(2)}, {0, 1, 2});
    EXPECT_EQ(simplify(point, detail(1.0f)), resultLine(1, 0));
    // An infinite detail makes the computed cell 0, which becomes 0.001.
    MeshData tiny = meshOf({vec3(0), vec3(0.0009f, 0, 0), vec3(0.0011f, 0, 0)}, {0, 1, 2});
    EXPECT_EQ(simplify(tiny, detail(INFINITY)), resultLine(2, 0));
}

TEST(SimplifyVertexClustering, EmptyHugeAndNonFiniteInputStaysDefined) {
    // No indices or no vertices: the mesh stays as it was and nothing is printed.
    MeshData noIndices = meshOf({vec3(0), vec3(1)}, {}), noVertices{{}, {0, 1, 2}};
    EXPECT_EQ(simplify(noIndices, cell(0.5f)) + simplify(noVertices, cell(0.5f)), "");
    EXPECT_EQ(noIndices.vertices.size(), 2u);
    EXPECT_EQ(noVertices.indices, (std::vector<unsigned int>{0, 1, 2}));
    // Cell indices beyond 32 bits clamp to the outermost cell: the second triangle collapses.
    MeshData huge = meshOf({vec3(0), vec3(1e30f, 0, 0), vec3(2e30f, 0, 0), vec3(0, 1e-30f, 0)},
                           {0, 1, 3, 1, 2, 3});
    EXPECT_EQ(simplify(huge, cell(1e-30f)), resultLine(3, 1));
    // A NaN vertex stays out of the bounds and gets a cell of its own.
    MeshData withNan =
        meshOf({vec3(0), vec3(NAN, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2, 0, 2, 3});
    EXPECT_EQ(simplify(withNan, cell(0.5f)), resultLine(4, 2));
    // Infinite coordinates and a triangle naming a missing vertex.
    const float inf = std::numeric_limits<float>::infinity();
    MeshData infinite = meshOf({vec3(-inf, 0, 0), vec3(0), vec3(inf, 1, 0)}, {0, 1, 2, 0, 1, 99});
    simplify(infinite, detail(1.0f));
    EXPECT_LE(infinite.indices.size(), 3u);
}

TEST(SimplifyVertexClustering, BunnyMatchesThePlainReference) {
    const MeshData bunny = testmesh::bunny().meshData();
    ASSERT_EQ(bunny.indices.size(), 3u * 69666) << "bunny not found at " << KORVEX_BUNNY_PATH;
    vec3 lo(1e30f), hi(-1e30f);
    for (const kvx::nsVertex& v : bunny.vertices) {
        lo = glm::min(lo, v.position);
        hi = glm::max(hi, v.position);
    }
    const vec3 e = hi - lo;
    const float diagonal = std::sqrt(e.x * e.x + e.y * e.y + e.z * e.z);
    for (float d : {1.0f, 16.0f}) {
        MeshData mesh = bunny;
        const std::string line = simplify(mesh, detail(d));
        const MeshData expected = oracleSimplify(bunny, (diagonal * 0.01f) / std::sqrt(d));
        ASSERT_EQ(mesh.vertices.size(), expected.vertices.size()) << d;
        for (size_t i = 0; i < mesh.vertices.size(); ++i)
            ASSERT_TRUE(sameRecord(mesh.vertices[i], expected.vertices[i])) << i;
        EXPECT_EQ(mesh.indices, expected.indices);
        EXPECT_EQ(line, resultLine(expected.vertices.size(), expected.indices.size() / 3));
        EXPECT_LT(mesh.indices.size(), bunny.indices.size() * (d < 2.0f ? 1 : 4) / 3);
    }
}
