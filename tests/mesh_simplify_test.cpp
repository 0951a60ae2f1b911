#include "mesh_support.h"

#include <korvex/mesh.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>

using meshtest::captureStdout;
using meshtest::vertexAt;

namespace {

meshutils::SimplifyOptions cell(float size) {
    return meshutils::SimplifyOptions{1.0f, size};
}
meshutils::SimplifyOptions detail(float d) {
    return meshutils::SimplifyOptions{d, 0.0f};
}

std::string simplify(MeshData& mesh, const meshutils::SimplifyOptions& options) {
    return captureStdout([&] { meshutils::SimplifyVertexClustering(mesh, options); });
}

MeshData meshOf(const std::vector<vec3>& points, const std::vector<unsigned int>& indices) {
    MeshData mesh;
    for (const vec3& p : points) mesh.vertices.push_back(vertexAt(p));
    mesh.indices = indices;
    return mesh;
}

std::vector<vec3> positions(const MeshData& mesh) {
    std::vector<vec3> out;
    for (const kvx::nsVertex& v : mesh.vertices) out.push_back(v.position);
    return out;
}

// The grid clustering written out plainly, with an ordered map for cells: the
// reference for meshes too large to check by hand.
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
        const std::array<int, 3> key = {static_cast<int>(std::floor((v.position.x - lo.x) / c)),
                                        static_cast<int>(std::floor((v.position.y - lo.y) / c)),
                                        static_cast<int>(std::floor((v.position.z - lo.z) / c))};
        auto [it, inserted] = cells.emplace(key, static_cast<unsigned>(out.vertices.size()));
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

TEST(SimplifyVertexClustering, EmptyListsLeaveTheMeshAloneAndPrintNothing) {
    MeshData noIndices = meshOf({vec3(0), vec3(1)}, {});
    EXPECT_EQ(simplify(noIndices, cell(0.5f)), "");
    EXPECT_EQ(noIndices.vertices.size(), 2u);

    MeshData noVertices;
    noVertices.indices = {0, 1, 2};
    EXPECT_EQ(simplify(noVertices, cell(0.5f)), "");
    EXPECT_EQ(noVertices.indices, (std::vector<unsigned int>{0, 1, 2}));
}

// Cells are half-open and start at the minimum corner of the bounds, not at
// the world origin; the first vertex of a cell represents it unchanged.
TEST(SimplifyVertexClustering, CellsAreHalfOpenFromTheMinimumCorner) {
    // Minimum x is 10: offsets 0, 0.999, 1 (exactly on a grid plane), 2.5, 0.5.
    MeshData mesh = meshOf(
        {vec3(10, 0, 0), vec3(10.999f, 0, 0), vec3(11, 0, 0), vec3(12.5f, 0, 0), vec3(10.5f, 0, 0)},
        {0, 2, 3, 1, 4, 3, 4, 0, 2});
    const MeshData before = mesh;
    EXPECT_EQ(simplify(mesh, cell(1.0f)), "[Simplify] Result: 3 verts, 1 triangles\n");
    ASSERT_EQ(mesh.vertices.size(), 3u);
    // Order of first occurrence; records copied bit for bit (colour, extra...).
    EXPECT_TRUE(meshtest::sameRecord(mesh.vertices[0], before.vertices[0]));
    EXPECT_TRUE(meshtest::sameRecord(mesh.vertices[1], before.vertices[2]));
    EXPECT_TRUE(meshtest::sameRecord(mesh.vertices[2], before.vertices[3]));
    // (1, 4, 3) and (4, 0, 2)... lose a corner: 1 and 4 merge into vertex 0.
    EXPECT_EQ(mesh.indices, (std::vector<unsigned int>{0, 1, 2}));
}

TEST(SimplifyVertexClustering, TrianglesKeepOrderAndWindingAndCollapsedOnesGo) {
    // Two clusters of three nearby points and one lone point.
    const std::vector<vec3> points = {vec3(0, 0, 0),      vec3(5, 0, 0),    vec3(0, 5, 0),
                                      vec3(0.1f, 0, 0),   vec3(5.1f, 0, 0), vec3(0, 5.1f, 0),
                                      vec3(0.2f, 0.1f, 0)};
    // (2, 1, 0) reversed winding, (3, 4, 5) a copy of the first, (0, 3, 6)
    // inside one cell, then one and two left-over entries.
    MeshData mesh = meshOf(points, {0, 1, 2, 2, 1, 0, 3, 4, 5, 0, 3, 6, 4, 5});
    EXPECT_EQ(simplify(mesh, cell(1.0f)), "[Simplify] Result: 3 verts, 3 triangles\n");
    EXPECT_EQ(positions(mesh), (std::vector<vec3>{points[0], points[1], points[2]}));
    // Coinciding triangles are all kept; the left-overs are gone.
    EXPECT_EQ(mesh.indices, (std::vector<unsigned int>{0, 1, 2, 2, 1, 0, 0, 1, 2}));

    // Fewer than three entries: the vertices are still clustered.
    MeshData pair = meshOf(points, {0, 1});
    EXPECT_EQ(simplify(pair, cell(1.0f)), "[Simplify] Result: 3 verts, 0 triangles\n");
    EXPECT_TRUE(pair.indices.empty());
}

// The computed cell is 1% of the diagonal divided by sqrt(detail).
TEST(SimplifyVertexClustering, DetailScalesTheCellWithTheDiagonal) {
    // Bounds (0,0,0)-(300,400,0): diagonal 500, so detail 1 gives cells of 5.
    const std::vector<vec3> points = {vec3(0, 0, 0), vec3(300, 400, 0), vec3(4.9f, 0, 0),
                                      vec3(5, 0, 0), vec3(9.9f, 0, 0),  vec3(10, 0, 0)};
    const std::vector<unsigned int> tri = {0, 1, 2};
    const auto count = [&](const meshutils::SimplifyOptions& options) {
        MeshData mesh = meshOf(points, tri);
        simplify(mesh, options);
        return mesh.vertices.size();
    };
    EXPECT_EQ(count(detail(1.0f)), 4u);  // {0, 4.9} {300,400} {5, 9.9} {10}
    EXPECT_EQ(count(detail(0.25f)), 3u); // cells of 10: {0, 4.9, 5, 9.9} {300,400} {10}
    EXPECT_EQ(count(detail(4.0f)), 6u);  // cells of 2.5: every point alone
    // A positive cellSize wins over detail.
    EXPECT_EQ(count(meshutils::SimplifyOptions{4.0f, 10.0f}), 3u);
}

TEST(SimplifyVertexClustering, DegenerateSettingsCollapseToOneVertex) {
    const std::vector<vec3> points = {vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)};
    for (float d : {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()}) {
        MeshData mesh = meshOf(points, {0, 1, 2});
        EXPECT_EQ(simplify(mesh, detail(d)), "[Simplify] Result: 1 verts, 0 triangles\n") << d;
    }
    MeshData big = meshOf(points, {0, 1, 2});
    EXPECT_EQ(simplify(big, cell(100.0f)), "[Simplify] Result: 1 verts, 0 triangles\n");

    // All at one point: diagonal 0, the computed cell of 0 becomes 0.001.
    MeshData point = meshOf({vec3(2), vec3(2), vec3(2)}, {0, 1, 2});
    EXPECT_EQ(simplify(point, detail(1.0f)), "[Simplify] Result: 1 verts, 0 triangles\n");
}

TEST(SimplifyVertexClustering, UnusedVerticesCountForBoundsAndCanRepresent) {
    // Vertex 0 is used by no triangle but moves the grid origin to x = -0.5
    // and is the first in its cell, so it represents vertex 1.
    MeshData mesh = meshOf(
        {vec3(-0.5f, 0, 0), vec3(0.1f, 0, 0), vec3(0.6f, 0, 0), vec3(0.6f, 0.6f, 0)}, {1, 2, 3});
    EXPECT_EQ(simplify(mesh, cell(1.0f)), "[Simplify] Result: 2 verts, 0 triangles\n");
    EXPECT_EQ(mesh.vertices[0].position, vec3(-0.5f, 0, 0));
    // Fine cells: nothing merges except exact duplicates.
    MeshData fine =
        meshOf({vec3(0), vec3(1, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 3, 0, 2, 3, 1, 2, 3});
    EXPECT_EQ(simplify(fine, cell(1e-4f)), "[Simplify] Result: 3 verts, 2 triangles\n");
    EXPECT_EQ(fine.indices, (std::vector<unsigned int>{0, 1, 2, 0, 1, 2}));
}

// The maximum corner lands one cell past the last full one when the extent
// is a multiple of the cell.
TEST(SimplifyVertexClustering, MaximumCornerOnAGridPlaneGetsItsOwnCell) {
    MeshData mesh = meshOf({vec3(0), vec3(1.9f, 0, 0), vec3(2, 0, 0)}, {0, 1, 2});
    EXPECT_EQ(simplify(mesh, cell(1.0f)), "[Simplify] Result: 3 verts, 1 triangles\n");
}

// Cell indices that do not fit 32 bits, NaN coordinates and invalid indices
// must give a defined result (the sanitizer build checks there is no UB).
TEST(SimplifyVertexClustering, HugeAndNonFiniteInputStaysDefined) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    MeshData huge = meshOf({vec3(0), vec3(1e30f, 0, 0), vec3(2e30f, 0, 0), vec3(0, 1e-30f, 0)},
                           {0, 1, 3, 1, 2, 3});
    // Both far vertices clamp to the outermost cell, so the second triangle
    // collapses; the first keeps three distinct cells.
    EXPECT_EQ(simplify(huge, cell(1e-30f)), "[Simplify] Result: 3 verts, 1 triangles\n");

    // A NaN vertex stays out of the bounds and gets a cell of its own.
    MeshData withNan =
        meshOf({vec3(0), vec3(nan, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2, 0, 2, 3});
    EXPECT_EQ(simplify(withNan, cell(0.5f)), "[Simplify] Result: 4 verts, 2 triangles\n");

    // Infinite coordinates, a triangle naming a missing vertex.
    const float inf = std::numeric_limits<float>::infinity();
    MeshData infinite = meshOf({vec3(-inf, 0, 0), vec3(0), vec3(inf, 1, 0)}, {0, 1, 2, 0, 1, 99});
    simplify(infinite, detail(1.0f));
    EXPECT_LE(infinite.indices.size(), 3u);
}

// The real scanned bunny against the plain reference, at two resolutions.
TEST(SimplifyVertexClustering, BunnyMatchesThePlainReference) {
    const MeshData& bunny = meshtest::bunny();
    ASSERT_GT(bunny.indices.size(), 200000u) << "bunny not found at " << KORVEX_BUNNY_PATH;

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
            ASSERT_TRUE(meshtest::sameRecord(mesh.vertices[i], expected.vertices[i])) << i;
        EXPECT_EQ(mesh.indices, expected.indices);
        EXPECT_EQ(line, "[Simplify] Result: " + std::to_string(expected.vertices.size()) +
                            " verts, " + std::to_string(expected.indices.size() / 3) +
                            " triangles\n");
        EXPECT_LT(mesh.indices.size(), bunny.indices.size() * (d < 2.0f ? 1 : 4) / 3);
    }
}
