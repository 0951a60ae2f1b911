#include <korvex/mesh.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>

using testmesh::meshOf;
using testmesh::sameRecord;

namespace {

std::string subdivide(MeshData& mesh, int passes) {
    return testmesh::captureStdout([&] { meshutils::LoopSubdivide(mesh, passes); });
}

vec3 unitSum(const vec3& a, const vec3& b) {
    const vec3 s = a + b;
    return s * (1.0f / glm::length(s));
}

// Midpoints of position and uv, renormalised sums of the vectors, defaults elsewhere.
void expectEdgeVertex(const kvx::nsVertex& v, const kvx::nsVertex& p, const kvx::nsVertex& q) {
    EXPECT_EQ(v.position, (p.position + q.position) * 0.5f);
    EXPECT_EQ(v.uv, (p.uv + q.uv) * 0.5f);
    EXPECT_EQ(v.normal, unitSum(p.normal, q.normal));
    EXPECT_EQ(v.tangent, unitSum(p.tangent, q.tangent));
    EXPECT_EQ(v.bitangent, unitSum(p.bitangent, q.bitangent));
    EXPECT_EQ(v.uv2, vec2(0.0f));
    EXPECT_EQ(v.color, vec4(1.0f));
    for (uint32_t word : v.extra) EXPECT_EQ(word, 0u);
}

} // namespace

TEST(LoopSubdivide, OneTriangleSplitsIntoFourWithEdgeVerticesInEdgeOrder) {
    const MeshData original = meshOf({vec3(0, 0, 0), vec3(2, 0, 0), vec3(0, 2, 0)}, {0, 1, 2});
    MeshData mesh = original;
    EXPECT_EQ(subdivide(mesh, 1), "[Subdivide] Result: 6 verts, 4 triangles\n");
    ASSERT_EQ(mesh.vertices.size(), 6u);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(sameRecord(mesh.vertices[i], original.vertices[i]));
    // Edges (a, b), (b, c), (c, a) in that order: 3, 4, 5.
    expectEdgeVertex(mesh.vertices[3], original.vertices[0], original.vertices[1]);
    expectEdgeVertex(mesh.vertices[4], original.vertices[1], original.vertices[2]);
    expectEdgeVertex(mesh.vertices[5], original.vertices[2], original.vertices[0]);
    // Corners a, b, c, then the centre; all with the parent's winding.
    EXPECT_EQ(mesh.indices, (std::vector<unsigned int>{0, 3, 5, 3, 1, 4, 5, 4, 2, 3, 4, 5}));
    MeshData twice = original;
    EXPECT_EQ(subdivide(twice, 2), "[Subdivide] Result: 15 verts, 16 triangles\n");
}

TEST(LoopSubdivide, NoPassStillReportsAndLeftoversAreDropped) {
    MeshData mesh = meshOf({vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2});
    EXPECT_EQ(subdivide(mesh, 0), "[Subdivide] Result: 3 verts, 1 triangles\n");
    EXPECT_EQ(subdivide(mesh, -5), "[Subdivide] Result: 3 verts, 1 triangles\n");
    MeshData empty;
    EXPECT_EQ(subdivide(empty, 3), "[Subdivide] Result: 0 verts, 0 triangles\n");
    MeshData pair = meshOf({vec3(0), vec3(1, 0, 0)}, {0, 1});
    EXPECT_EQ(subdivide(pair, 1), "[Subdivide] Result: 2 verts, 0 triangles\n");
    MeshData extra = meshOf({vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2, 2, 1});
    EXPECT_EQ(subdivide(extra, 1), "[Subdivide] Result: 6 verts, 4 triangles\n");
}

TEST(LoopSubdivide, EdgeVerticesAreSharedByIndexNotByPosition) {
    // Two triangles sharing 0-2, run in opposite directions: one edge vertex.
    const std::vector<vec3> quad = {vec3(0, 0, 0), vec3(1, 0, 0), vec3(1, 1, 0), vec3(0, 1, 0)};
    MeshData shared = meshOf(quad, {0, 1, 2, 2, 3, 0});
    EXPECT_EQ(subdivide(shared, 1), "[Subdivide] Result: 9 verts, 8 triangles\n");
    // First triangle: 4 = (0,1), 5 = (1,2), 6 = (2,0); second: 7 = (2,3), 8 = (3,0).
    EXPECT_EQ(std::vector<unsigned int>(shared.indices.begin() + 12, shared.indices.end()),
              (std::vector<unsigned int>{2, 7, 6, 7, 3, 8, 6, 8, 0, 7, 8, 6}));
    // The diagonal's ends duplicated (a uv seam): two edge vertices at one place.
    MeshData seam =
        meshOf({quad[0], quad[1], quad[2], quad[2], quad[3], quad[0]}, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(subdivide(seam, 1), "[Subdivide] Result: 12 verts, 8 triangles\n");
    EXPECT_EQ(seam.vertices[8].position, seam.vertices[11].position);
}

TEST(LoopSubdivide, DegenerateAndOpposedInputIsDefined) {
    // A triangle naming vertex 0 twice: the (0, 0) edge vertex has vertex 0's position and uv.
    MeshData repeated = meshOf({vec3(3, 0, 0), vec3(0, 1, 0)}, {0, 0, 1});
    subdivide(repeated, 1);
    ASSERT_EQ(repeated.vertices.size(), 4u);
    EXPECT_EQ(repeated.vertices[2].position, vec3(3, 0, 0));
    EXPECT_EQ(repeated.vertices[2].uv, repeated.vertices[0].uv);
    EXPECT_FLOAT_EQ(glm::length(repeated.vertices[2].normal), 1.0f);
    // Opposed normals and zero tangents sum to zero: the zero vector, not NaN.
    MeshData opposed = meshOf({vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2});
    for (kvx::nsVertex& v : opposed.vertices) v.tangent = vec3(0.0f);
    opposed.vertices[0].normal = vec3(0, 0, 1);
    opposed.vertices[1].normal = vec3(0, 0, -1);
    subdivide(opposed, 1);
    EXPECT_EQ(opposed.vertices[3].normal, vec3(0.0f));
    EXPECT_EQ(opposed.vertices[3].tangent, vec3(0.0f));
    // A triangle naming a vertex that does not exist is dropped, not read.
    MeshData bad = meshOf({vec3(0), vec3(1, 0, 0), vec3(0, 1, 0)}, {0, 1, 2, 0, 1, 7});
    EXPECT_EQ(subdivide(bad, 1), "[Subdivide] Result: 6 verts, 4 triangles\n");
}

// The bunny against a plain numbering of the edges in order of first encounter; old vertices
// keep their records, edge vertices sit at the midpoints.
TEST(LoopSubdivide, BunnyMatchesThePlainReference) {
    const MeshData bunny = testmesh::bunny().meshData();
    ASSERT_EQ(bunny.indices.size(), 3u * 69666) << "bunny not found at " << KORVEX_BUNNY_PATH;
    std::map<std::pair<unsigned, unsigned>, unsigned> edgeIndex;
    std::vector<unsigned int> expected;
    const auto edge = [&](unsigned a, unsigned b) {
        const auto key = std::make_pair(std::min(a, b), std::max(a, b));
        return edgeIndex.emplace(key, bunny.vertices.size() + edgeIndex.size()).first->second;
    };
    for (size_t t = 0; t + 2 < bunny.indices.size(); t += 3) {
        const unsigned a = bunny.indices[t], b = bunny.indices[t + 1], c = bunny.indices[t + 2];
        const unsigned ab = edge(a, b), bc = edge(b, c), ca = edge(c, a);
        expected.insert(expected.end(), {a, ab, ca, ab, b, bc, ca, bc, c, ab, bc, ca});
    }
    MeshData mesh = bunny;
    const std::string line = subdivide(mesh, 1);
    ASSERT_EQ(mesh.vertices.size(), bunny.vertices.size() + edgeIndex.size());
    EXPECT_EQ(mesh.indices, expected);
    for (size_t i = 0; i < bunny.vertices.size(); ++i)
        ASSERT_TRUE(sameRecord(mesh.vertices[i], bunny.vertices[i])) << i;
    for (const auto& [key, index] : edgeIndex)
        ASSERT_EQ(mesh.vertices[index].position,
                  (bunny.vertices[key.first].position + bunny.vertices[key.second].position) *
                      0.5f);
    EXPECT_EQ(line, "[Subdivide] Result: " + std::to_string(mesh.vertices.size()) + " verts, " +
                        std::to_string(4 * 69666) + " triangles\n");
}
