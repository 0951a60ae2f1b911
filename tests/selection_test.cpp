#include "octree_test_util.h"

#include <korvex/polygon.h>
#include <korvex/selection.h>

#include "../octree/segment_crossing.h"

#include <halvane.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <thread>
#include <tuple>

#include <glm/gtc/matrix_transform.hpp>

using namespace octest;

namespace {

constexpr int kWidth = 800, kHeight = 600;

struct Camera {
    vec3 eye{0.0f, 0.0f, 5.0f};
    vec3 forward{0.0f, 0.0f, -1.0f};
    mat4 view = glm::lookAt(vec3(0, 0, 5), vec3(0), vec3(0, 1, 0));
    mat4 projection = glm::perspective(glm::radians(60.0f), 4.0f / 3.0f, 0.1f, 10000.0f);
};

// Registers "dot_normal" in the host registry for one test, at 0 unless the test changes it.
class Selection : public ::testing::Test {
  protected:
    void SetUp() override { setFacing(0.0f); }
    void TearDown() override { GetVarRegistry().erase("dot_normal"); }
    void setFacing(float t) {
        facing_ = t;
        GetVarRegistry()["dot_normal"] = RegisteredVar{&facing_};
    }

    static std::vector<int> select(const OctreeNode* root, const Mesh& m,
                                   const std::vector<vec2>& polygon, const Camera& cam = Camera(),
                                   float margin = 0.0f, const mat4& model = mat4(1.0f),
                                   std::vector<int> result = {}) {
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            const_cast<OctreeNode*>(root), polygon, ScreenRect(1, 2, 3, 4), model, m.vertices,
            m.indices, result, cam.view, cam.projection, kWidth, kHeight, cam.eye, cam.forward,
            margin);
        return result;
    }
    static std::vector<int> selectOne(const Mesh& m, const std::vector<vec2>& polygon,
                                      const Camera& cam = Camera(), float margin = 0.0f) {
        return select(buildTree(m).get(), m, polygon, cam, margin);
    }

    float facing_ = 0.0f;
};

// The selection rules written plainly, triangle by triangle in tree order.
std::vector<int> oracle(const OctreeNode* root, const Mesh& m, const std::vector<vec2>& polygon,
                        const mat4& model, float threshold, const Camera& cam = Camera(),
                        float margin = 0.0f) {
    const float limit = std::max(2000.0f, margin + margin + 100.0f) + margin;
    const mat4 vp = cam.projection * cam.view;
    const ScreenRect r = meshGeometry::computePolygonBounds(polygon);
    const auto inPolygon = [&](const vec2& p) {
        return p.x >= r.minX && p.x <= r.maxX && p.y >= r.minY && p.y <= r.maxY &&
               meshGeometry::isPointInPolygon(p, polygon);
    };
    std::vector<int> out;
    for (int t : entriesInTreeOrder(root)) {
        if (t < 0 || 3 * static_cast<size_t>(t) + 2 >= m.indices.size()) continue;
        vec3 w[3];
        vec2 s[3];
        bool behind = false, tooFar = false;
        for (int k = 0; k < 3; ++k) {
            w[k] = vec3(model * vec4(m.vertices[m.indices[3 * t + k]].position, 1.0f));
            const vec4 c = vp * vec4(w[k], 1.0f);
            behind = behind || c.w <= 0.00001f;
            s[k] = vec2((c.x / c.w * 0.5f + 0.5f) * kWidth,
                        (1.0f - (c.y / c.w * 0.5f + 0.5f)) * kHeight);
        }
        const vec3 g = (w[0] + w[1] + w[2]) / 3.0f;
        for (const vec3& p : {w[0], w[1], w[2], g})
            tooFar = tooFar || glm::dot(p - cam.eye, cam.forward) > limit;
        if (behind || tooFar) continue;
        bool overlaps = inPolygon(s[0]) || inPolygon(s[1]) || inPolygon(s[2]) ||
                        inPolygon((s[0] + s[1] + s[2]) / 3.0f);
        for (int k = 0; k < 3; ++k)
            overlaps =
                overlaps || octree_detail::segmentCrossesPolygon(polygon, s[k], s[(k + 1) % 3]);
        const vec3 n = glm::normalize(glm::cross(w[1] - w[0], w[2] - w[0]));
        if (overlaps && !(threshold > glm::dot(glm::normalize(cam.eye - g), n))) out.push_back(t);
    }
    return out;
}

// A lasso of `points` vertices round the screen centre, wavy enough to be far from convex.
std::vector<vec2> wavyLasso(int points, float radius, float wave, int waves) {
    std::vector<vec2> lasso;
    for (int i = 0; i < points; ++i) {
        const float a = 6.2831853f * static_cast<float>(i) / static_cast<float>(points);
        const float r = radius + wave * std::cos(static_cast<float>(waves) * a);
        lasso.emplace_back(400.0f + r * std::cos(a), 300.0f + 0.8f * r * std::sin(a));
    }
    return lasso;
}

Mesh singleTriangle(const vec3& a, const vec3& b, const vec3& c) {
    Mesh m;
    for (const vec3& p : {a, b, c}) m.add(p);
    m.indices = {0, 1, 2};
    return m;
}

} // namespace

TEST_F(Selection, MatchesThePlainRulesOnRealMeshesAndLassosOfEverySize) {
    const mat4 model =
        glm::rotate(glm::translate(mat4(1.0f), vec3(0.2f, -0.1f, 0.3f)), 0.5f, vec3(0, 1, 0));
    // A star, a two-vertex lasso, triangles cutting through the bunny; then lassos of one word
    // of edge sides, several, and more than the split test handles.
    const std::vector<std::vector<vec2>> lassos{wavyLasso(14, 150, 70, 7),
                                                {{100, 300}, {700, 310}},
                                                {{390, 290}, {410, 290}, {400, 310}},
                                                {{400, 250}, {440, 330}, {380, 320}},
                                                wavyLasso(40, 120, 80, 7),
                                                wavyLasso(100, 120, 80, 7),
                                                wavyLasso(300, 120, 80, 7)};
    // A soup whose triangles use far-apart vertex numbers, with a tree that also holds numbers
    // of no triangle, and the same tree given too short an index array.
    Mesh scattered = testmesh::randomSoup(5000, 3.0f, 83), shortened;
    std::mt19937 rng(5);
    for (unsigned int& index : scattered.indices)
        if (rng() % 3 == 0) index = static_cast<unsigned int>(rng() % scattered.vertices.size());
    shortened = scattered;
    shortened.indices.resize(scattered.indices.size() / 2 + 1);
    std::vector<int> list = scattered.allTriangles();
    list.insert(list.begin() + 100, {-1, 1 << 30});
    const Tree withBad(
        buildOctreeFromTriangleIndices(scattered.positions, scattered.indices, list, 0));
    const Tree bunnyTree = buildTree(testmesh::bunny());
    // The bunny with the small lassos (the large ones take it whole), the soups with all.
    const std::tuple<const OctreeNode*, const Mesh*, size_t> cases[] = {
        {bunnyTree.get(), &testmesh::bunny(), 4},
        {withBad.get(), &scattered, lassos.size()},
        {withBad.get(), &shortened, lassos.size()}};
    for (const auto& [tree, m, lassoCount] : cases)
        for (float threshold : {-2.0f, 0.0f, 0.6f}) {
            setFacing(threshold);
            for (size_t l = 0; l < lassoCount; ++l) {
                const std::vector<int> expected = oracle(tree, *m, lassos[l], model, threshold);
                // Appended to what the list held.
                std::vector<int> got = select(tree, *m, lassos[l], Camera(), 0.0f, model, {-3});
                ASSERT_EQ(got.front(), -3);
                EXPECT_EQ(std::vector<int>(got.begin() + 1, got.end()), expected)
                    << lassos[l].size() << " lasso points, threshold " << threshold;
                if (lassos[l].size() > 3) {
                    EXPECT_GT(expected.size(), 10u);
                }
            }
        }
}

// The selection keeps each vertex's placement in one of two ways: all vertices placed up front
// (four at a time, the last few one by one) when the tree holds much of the mesh, or a small
// cache when it holds little. Both must give the plain rules' answers, also for vertices at
// infinity, NaN, huge, on and behind the camera plane.
TEST_F(Selection, BothVertexStoresMatchThePlainRules) {
    const std::vector<std::vector<vec2>> lassos{
        wavyLasso(14, 150, 70, 7), wavyLasso(100, 160, 80, 7), {{100, 300}, {700, 310}}};
    // A tree over every fifth bunny triangle: fewer entries than half the vertices.
    const Mesh& bunny = testmesh::bunny();
    std::vector<int> fifth;
    for (int t = 0; t < bunny.triangleCount(); t += 5) fifth.push_back(t);
    ASSERT_LT(2 * fifth.size(), bunny.vertices.size());
    const Tree sparse(buildOctreeFromTriangleIndices(bunny.positions, bunny.indices, fifth, 0));

    // A lattice facing the camera and ten odd vertices, 1,691 in all (not a multiple of four), and
    // a fan of triangles from odd vertices to it.
    Mesh odd;
    for (int i = 0; i < 41; ++i)
        for (int j = 0; j < 41; ++j)
            odd.add(vec3(-2.0f + 0.1f * static_cast<float>(i),
                         -1.5f + 0.075f * static_cast<float>(j),
                         0.1f * std::sin(static_cast<float>(i * j))));
    for (int i = 0; i < 40; ++i)
        for (int j = 0; j < 40; ++j) {
            const unsigned int a = static_cast<unsigned int>(41 * i + j);
            odd.indices.insert(odd.indices.end(), {a, a + 41, a + 1, a + 1, a + 41, a + 42});
        }
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const vec3 strange[] = {{nan, 0, 0},    {0, inf, 0},           {-inf, 0, 0},    {1e30f, 0, 0},
                            {0, 0, 5.0f},   {0, 0, 4.9999995f},    {0, 0, 4.9999f}, {0.1f, 0, 6},
                            {0, 0, -1e30f}, {0.2f, 0.1f, -2500.0f}};
    for (const vec3& p : strange) {
        const unsigned int v = static_cast<unsigned int>(odd.positions.size());
        odd.add(p);
        for (unsigned int a : {20u * 41 + 20, 10u * 41 + 30, 30u * 41 + 5})
            odd.indices.insert(odd.indices.end(), {v, a, a + 1, a + 42, v, a});
    }
    ASSERT_NE(odd.vertices.size() % 4, 0u);
    const Tree whole = buildTree(odd);

    // The usual camera, and an oblique one with a forward vector not of unit length and a
    // depth limit (2000 + margin) through the middle of the mesh.
    Camera oblique;
    oblique.eye = vec3(1.5f, 1.0f, 4.5f);
    oblique.forward = glm::normalize(-oblique.eye) * 1.7f;
    oblique.view = glm::lookAt(oblique.eye, vec3(0), vec3(0, 1, 0));
    const auto middleDepth = [&](const Mesh& m) {
        std::vector<float> depths;
        for (const vec3& p : m.positions)
            if (std::isfinite(glm::dot(p, p)))
                depths.push_back(glm::dot(p - oblique.eye, oblique.forward));
        std::nth_element(depths.begin(), depths.begin() + depths.size() / 2, depths.end());
        return depths[depths.size() / 2];
    };

    const std::tuple<const OctreeNode*, const Mesh*> cases[] = {{sparse.get(), &bunny},
                                                                {whole.get(), &odd}};
    for (const auto& [tree, m] : cases)
        for (const auto& [cam, margin] :
             {std::pair(Camera(), 0.0f), std::pair(oblique, middleDepth(*m) - 2000.0f)})
            for (float threshold : {-2.0f, 0.3f})
                for (const mat4& model :
                     {mat4(1.0f), glm::rotate(mat4(1.0f), 0.3f, vec3(1, 1, 0))}) {
                    setFacing(threshold);
                    for (const auto& lasso : lassos) {
                        const std::vector<int> expected =
                            oracle(tree, *m, lasso, model, threshold, cam, margin);
                        EXPECT_EQ(select(tree, *m, lasso, cam, margin, model), expected)
                            << m->vertices.size() << " vertices, " << lasso.size()
                            << " lasso points, threshold " << threshold << ", margin " << margin;
                        if (lasso.size() > 2) {
                            EXPECT_GT(expected.size(), 20u);
                        }
                    }
                }
}

TEST_F(Selection, OverlapAndFacingCases) {
    const std::vector<vec2> lasso{{350, 250}, {450, 250}, {450, 350}, {350, 350}};
    const vec3 a(-0.1f, -0.1f, 0), b(0.1f, -0.1f, 0), c(0, 0.1f, 0);
    const struct {
        Mesh mesh;
        float threshold;
        bool selected;
    } cases[] = {
        // Small and wholly inside, counter-clockwise seen from the camera; its back face goes
        // at threshold 0 and stays at -2.
        {singleTriangle(a, b, c), 0.0f, true},
        {singleTriangle(a, c, b), 0.0f, false},
        {singleTriangle(a, c, b), -2.0f, true},
        // Huge round the lasso with its centroid outside: no; with the centroid inside: yes.
        {singleTriangle(vec3(-30, -30, 0), vec3(90, -30, 0), vec3(-30, 30, 0)), 0.0f, false},
        {singleTriangle(vec3(-30, -30, 0), vec3(60, -30, 0), vec3(-30, 60, 0)), 0.0f, true},
        // Only an edge through the lasso.
        {singleTriangle(vec3(-3, 0.01f, 0), vec3(3, -0.01f, 0), vec3(3, 3, 0)), 0.0f, true},
        // One vertex behind the camera, though two lie inside the lasso.
        {singleTriangle(a, b, vec3(0, 0, 6)), -2.0f, false},
        // Zero area: a NaN facing value, which is not rejected.
        {singleTriangle(vec3(0), vec3(0.1f, 0, 0), vec3(0.2f, 0, 0)), 0.9f, true},
    };
    for (const auto& one : cases) {
        setFacing(one.threshold);
        EXPECT_EQ(selectOne(one.mesh, lasso).size(), one.selected ? 1u : 0u)
            << one.mesh.positions[0].x << " " << one.mesh.positions[2].z;
    }
    // A two-vertex lasso selects what its segment crosses.
    setFacing(0.0f);
    EXPECT_EQ(selectOne(singleTriangle(a, b, c), {{300, 300}, {500, 300}}).size(), 1u);

    // Seen straight on, facing is exactly 1: a threshold of 1 passes, the next float up not.
    const Mesh m = singleTriangle(a, b, vec3(-0.1f, 0.1f, 0));
    const vec3 g = (m.positions[0] + m.positions[1] + m.positions[2]) / 3.0f;
    Camera cam;
    cam.eye = vec3(g.x, g.y, 5.0f);
    cam.view = glm::lookAt(cam.eye, vec3(g.x, g.y, 0.0f), vec3(0, 1, 0));
    ASSERT_EQ(glm::dot(glm::normalize(cam.eye - g), vec3(0, 0, 1)), 1.0f);
    setFacing(1.0f);
    EXPECT_EQ(selectOne(m, lasso, cam).size(), 1u);
    setFacing(std::nextafter(1.0f, 2.0f));
    EXPECT_TRUE(selectOne(m, lasso, cam).empty());
}

// Lassos that run exactly through projected corners and centroids, along rows and columns of
// projected points and along triangle edges, with repeated and collinear vertices. There the
// point test meets crossings exactly at the point's x and level vertices, and the crossing test
// meets zero cross products: ties that random lassos never produce. An affine projection puts
// every corner of an integer lattice on a multiple of 1/32 pixel, so these lassos are exact.
// The lattice is large enough for the lasso grid; a tree over every fourth triangle takes the
// vertex cache; a lasso of more than 256 points takes the plain crossing test.
TEST_F(Selection, LassosThroughProjectedCornersMatchThePlainRules) {
    constexpr int side = 110;
    Mesh lattice;
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i)
            lattice.add(vec3(static_cast<float>(5 * i - 270), static_cast<float>(4 * j - 216), 0));
    for (int j = 0; j + 1 < side; ++j)
        for (int i = 0; i + 1 < side; ++i) {
            // Both diagonals occur, every triangle counter-clockwise seen from +z.
            const unsigned int a = static_cast<unsigned int>(side * j + i), b = a + 1, c = a + side,
                               d = c + 1;
            if ((i + j) % 3 == 0)
                lattice.indices.insert(lattice.indices.end(), {a, b, c, b, d, c});
            else
                lattice.indices.insert(lattice.indices.end(), {a, b, d, a, d, c});
        }
    Camera cam;
    cam.view = mat4(1.0f);
    cam.projection = glm::scale(mat4(1.0f), vec3(1.0f / 512, 1.0f / 384, 1.0f / 4096));
    const auto screen = [&](const vec3& p) {
        const vec4 c = cam.projection * cam.view * vec4(p, 1.0f);
        return vec2((c.x / c.w * 0.5f + 0.5f) * kWidth,
                    (1.0f - (c.y / c.w * 0.5f + 0.5f)) * kHeight);
    };
    const auto at = [&](int i, int j) { return screen(lattice.positions[side * j + i]); };
    const auto centroid = [&](int t) {
        return (screen(lattice.corner(t, 0)) + screen(lattice.corner(t, 1)) +
                screen(lattice.corner(t, 2))) /
               3.0f;
    };
    ASSERT_EQ(at(1, 1) - at(0, 0), vec2(3.90625f, -3.125f));

    // Up a diagonal of cells and back down another: over 256 points.
    std::vector<vec2> steps;
    for (int k = 0; k < 190; ++k) steps.push_back(at(5 + k / 2, 10 + (k + 1) / 2));
    for (int k = 0; k < 170; ++k) steps.push_back(at(99 - k / 2, 95 - (k + 1) / 2));
    const std::vector<std::vector<vec2>> lassos{
        // Rows and columns, a repeated vertex, collinear runs, a column edge on a lattice column.
        {at(20, 20), at(50, 20), at(50, 20), at(50, 35), at(60, 35), at(70, 35), at(70, 60),
         at(30, 60), at(30, 45), at(10, 45), at(10, 30), at(10, 20)},
        // Along the diagonals of cells, where they are triangle edges, and a bow-tie.
        {at(30, 30), at(60, 60), at(30, 60)},
        {at(15, 15), at(80, 70), at(80, 15), at(15, 70)},
        // Corners at centroids, and a lasso of two points along a row.
        {centroid(4000), centroid(9000), centroid(6100)},
        {at(10, 50), at(90, 50)},
        steps};

    std::vector<int> fourth;
    for (int t = 0; t < lattice.triangleCount(); t += 4) fourth.push_back(t);
    const Tree whole = buildTree(lattice);
    const Tree sparse(
        buildOctreeFromTriangleIndices(lattice.positions, lattice.indices, fourth, 0));
    for (const OctreeNode* tree : {whole.get(), sparse.get()})
        for (const auto& lasso : lassos) {
            const std::vector<int> expected = oracle(tree, lattice, lasso, mat4(1.0f), 0.0f, cam);
            EXPECT_EQ(select(tree, lattice, lasso, cam), expected) << lasso.size() << " points";
            EXPECT_GT(expected.size(), 20u);
        }
}

TEST_F(Selection, DepthLimitCountsEveryVertexAndTheCentroid) {
    // Triangles straight ahead at growing depths, each over the centre pixel.
    const auto at = [](float depth) {
        const float s = depth * 0.05f, z = 5 - depth;
        return singleTriangle(vec3(-s, -s, z), vec3(s, -s, z), vec3(0, s, z));
    };
    const std::vector<vec2> lasso{{390, 290}, {410, 290}, {410, 310}, {390, 310}};
    // Limit max(2000, 2 margin + 100) + margin: 2000, 2950, 3100.
    for (const auto& [margin, limit] :
         {std::pair(0.0f, 2000.0f), std::pair(950.0f, 2950.0f), std::pair(1000.0f, 3100.0f)}) {
        EXPECT_EQ(selectOne(at(limit - 1.0f), lasso, Camera(), margin).size(), 1u) << margin;
        EXPECT_TRUE(selectOne(at(limit + 1.0f), lasso, Camera(), margin).empty()) << margin;
    }
    // One vertex tilted beyond the limit rejects the whole triangle.
    Mesh tilted = at(1990.0f);
    tilted.vertices[2].position.z -= 20.0f;
    EXPECT_TRUE(selectOne(tilted, lasso).empty());
    // Depth is measured along the forward vector as given, not normalised.
    Camera stretched;
    stretched.forward = vec3(0, 0, -2);
    EXPECT_TRUE(selectOne(at(1100.0f), lasso, stretched).empty());
}

TEST_F(Selection, MissingFacingVariableOnlyWhenATriangleReachesIt) {
    const Mesh m = testmesh::randomSoup(300, 2.0f, 33);
    const Tree tree = buildTree(m);
    GetVarRegistry().erase("dot_normal");
    const std::vector<vec2> lasso = wavyLasso(14, 140, 60, 7);
    // Nothing reaches the facing test: an empty lasso, a lasso beside the mesh, the mesh
    // behind the camera or beyond the depth limit, no tree.
    EXPECT_TRUE(select(tree.get(), m, {}).empty());
    EXPECT_TRUE(select(tree.get(), m, {{0, 0}, {20, 0}, {20, 20}}).empty());
    const mat4 behind = glm::translate(mat4(1.0f), vec3(0, 0, 10));
    EXPECT_TRUE(select(tree.get(), m, lasso, Camera(), 0.0f, behind).empty());
    const mat4 far = glm::scale(glm::translate(mat4(1.0f), vec3(0, 0, -3000)), vec3(500.0f));
    EXPECT_TRUE(select(tree.get(), m, lasso, Camera(), 0.0f, far).empty());
    EXPECT_TRUE(select(nullptr, m, lasso).empty());

    // A candidate reaches it: the error, and the caller's list as it was.
    std::vector<int> result{7, 8};
    try {
        const Camera cam;
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            tree.get(), lasso, ScreenRect(), mat4(1.0f), m.vertices, m.indices, result, cam.view,
            cam.projection, kWidth, kHeight, cam.eye, cam.forward, 0.0f);
        FAIL() << "expected the missing variable to be reported";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Variable not found: dot_normal");
    }
    EXPECT_EQ(result, (std::vector<int>{7, 8}));
    // Registered with no storage counts as missing.
    GetVarRegistry()["dot_normal"] = RegisteredVar{nullptr};
    EXPECT_THROW(select(tree.get(), m, lasso), std::runtime_error);
}

// Lasso selections from several threads on one tree; the registry is left alone meanwhile.
TEST_F(Selection, ConcurrentSelectionsOnOneTreeAgree) {
    const Mesh& m = testmesh::bunny();
    const Tree tree = buildTree(m);
    const std::vector<vec2> lasso = wavyLasso(14, 180, 60, 7);
    const std::vector<int> alone = select(tree.get(), m, lasso);
    ASSERT_FALSE(alone.empty());
    std::vector<std::vector<int>> results(4);
    std::vector<std::thread> threads;
    for (auto& r : results) threads.emplace_back([&] { r = select(tree.get(), m, lasso); });
    for (std::thread& t : threads) t.join();
    for (const auto& r : results) EXPECT_EQ(r, alone);
}
