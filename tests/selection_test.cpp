#include "octree_test_util.h"

#include <korvex/polygon.h>
#include <korvex/selection.h>

#include "../octree/segment_crossing.h"

#include <halvane.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <thread>

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

// Owns "dot_normal" in the host registry for one test and puts back what was there.
class Selection : public ::testing::Test {
  protected:
    void SetUp() override {
        auto& registry = GetVarRegistry();
        const auto it = registry.find("dot_normal");
        if (it != registry.end()) saved_ = it->second, hadSaved_ = true;
        setFacing(0.0f);
    }
    void TearDown() override {
        auto& registry = GetVarRegistry();
        registry.erase("dot_normal");
        if (hadSaved_) registry["dot_normal"] = saved_;
    }
    void setFacing(float t) {
        facing_ = t;
        GetVarRegistry()["dot_normal"] = RegisteredVar{&facing_};
    }
    static void forgetFacing() { GetVarRegistry().erase("dot_normal"); }

    std::vector<int> select(const OctreeNode* root, const Mesh& m, const std::vector<vec2>& polygon,
                            const Camera& cam = Camera(), float margin = 0.0f,
                            const mat4& model = mat4(1.0f), std::vector<int> result = {}) {
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            const_cast<OctreeNode*>(root), polygon, ScreenRect(1, 2, 3, 4), model, m.vertices,
            m.indices, result, cam.view, cam.projection, kWidth, kHeight, cam.eye, cam.forward,
            margin);
        return result;
    }

    float facing_ = 0.0f;

  private:
    RegisteredVar saved_{};
    bool hadSaved_ = false;
};

// The selection rules written out plainly, triangle by triangle in tree order.
std::vector<int> oracle(const OctreeNode* root, const Mesh& m, const std::vector<vec2>& polygon,
                        const Camera& cam, float margin, const mat4& model, float threshold) {
    const mat4 vp = cam.projection * cam.view;
    const ScreenRect r = meshGeometry::computePolygonBounds(polygon);
    const float limit = std::max(2000.0f, 2.0f * margin + 100.0f) + margin;
    const auto inPolygon = [&](const vec2& p) {
        return p.x >= r.minX && p.x <= r.maxX && p.y >= r.minY && p.y <= r.maxY &&
               meshGeometry::isPointInPolygon(p, polygon);
    };
    std::vector<int> out;
    for (int t : entriesInTreeOrder(root)) {
        if (t < 0 || 3 * static_cast<size_t>(t) + 2 >= m.indices.size()) continue;
        vec3 w[3];
        vec2 s[3];
        bool behind = false;
        for (int k = 0; k < 3; ++k) {
            w[k] = vec3(model * vec4(m.vertices[m.indices[3 * t + k]].position, 1.0f));
            const vec4 c = vp * vec4(w[k], 1.0f);
            behind = behind || c.w <= 0.00001f;
            s[k] = vec2((c.x / c.w * 0.5f + 0.5f) * kWidth,
                        (1.0f - (c.y / c.w * 0.5f + 0.5f)) * kHeight);
        }
        if (behind) continue;
        const vec2 sc = (s[0] + s[1] + s[2]) / 3.0f;
        const vec3 g = (w[0] + w[1] + w[2]) / 3.0f;
        if (!(inPolygon(s[0]) || inPolygon(s[1]) || inPolygon(s[2]) || inPolygon(sc) ||
              octree_detail::segmentCrossesPolygon(polygon, s[0], s[1]) ||
              octree_detail::segmentCrossesPolygon(polygon, s[1], s[2]) ||
              octree_detail::segmentCrossesPolygon(polygon, s[2], s[0])))
            continue;
        bool tooFar = false;
        for (const vec3& p : {w[0], w[1], w[2], g})
            tooFar = tooFar || glm::dot(p - cam.eye, cam.forward) > limit;
        if (tooFar) continue;
        const vec3 n = glm::normalize(glm::cross(w[1] - w[0], w[2] - w[0]));
        const vec3 v = glm::normalize(cam.eye - g);
        if (threshold > glm::dot(v, n)) continue;
        out.push_back(t);
    }
    return out;
}

std::vector<vec2> starLasso(vec2 centre, float outer, float inner) {
    std::vector<vec2> star;
    for (int i = 0; i < 14; ++i) {
        const float a = 0.4487989f * static_cast<float>(i);
        const float r = i % 2 ? inner : outer;
        star.emplace_back(centre.x + r * std::cos(a), centre.y + r * std::sin(a));
    }
    return star;
}

Mesh singleTriangle(const vec3& a, const vec3& b, const vec3& c) {
    Mesh m;
    m.add(a);
    m.add(b);
    m.add(c);
    m.indices = {0, 1, 2};
    return m;
}

} // namespace

TEST_F(Selection, MatchesThePlainRulesOnRealMeshes) {
    const mat4 model =
        glm::rotate(glm::translate(mat4(1.0f), vec3(0.2f, -0.1f, 0.3f)), 0.5f, vec3(0, 1, 0));
    const std::vector<std::vector<vec2>> lassos{starLasso(vec2(400, 300), 220, 90),
                                                starLasso(vec2(250, 200), 120, 30),
                                                {{100, 300}, {700, 310}},
                                                {{390, 290}, {410, 290}, {400, 310}}};
    for (const Mesh& m : {loadBunny(), uvSphere(40, 20, 1.2f), randomSoup(2000, 3.0f, 81)}) {
        const Tree tree = buildTree(m);
        for (float threshold : {-2.0f, 0.0f, 0.6f}) {
            setFacing(threshold);
            for (const auto& lasso : lassos) {
                const std::vector<int> got = select(tree.get(), m, lasso, Camera(), 0.0f, model);
                EXPECT_EQ(got, oracle(tree.get(), m, lasso, Camera(), 0.0f, model, threshold));
            }
        }
        // Wider lassos and looser thresholds select more.
        setFacing(-2.0f);
        const size_t all = select(tree.get(), m, lassos[0]).size();
        setFacing(0.0f);
        const size_t front = select(tree.get(), m, lassos[0]).size();
        EXPECT_GT(all, front);
        EXPECT_GT(front, 0u);
    }
}

// Lassos of every size class (one word of edge sides, several, and more than the split test
// handles), a mesh whose triangles use far-apart vertex numbers, and a model matrix.
TEST_F(Selection, LassoSizesAndScatteredVerticesMatchThePlainRules) {
    Mesh m = randomSoup(20000, 3.0f, 83);
    std::mt19937 rng(5);
    for (unsigned int& index : m.indices)
        if (rng() % 3 == 0) index = static_cast<unsigned int>(rng() % m.vertices.size());
    const Tree tree = buildTree(m);
    const mat4 model = glm::rotate(mat4(1.0f), 0.4f, vec3(0.3f, 1, 0));
    setFacing(-0.2f);
    for (int points : {5, 40, 100, 300}) {
        std::vector<vec2> lasso;
        for (int i = 0; i < points; ++i) {
            const float a = 6.2831853f * static_cast<float>(i) / static_cast<float>(points);
            const float r = 120.0f + 80.0f * std::sin(7.0f * a);
            lasso.emplace_back(400.0f + r * std::cos(a), 300.0f + 0.8f * r * std::sin(a));
        }
        const std::vector<int> expected =
            oracle(tree.get(), m, lasso, Camera(), 0.0f, model, -0.2f);
        ASSERT_GT(expected.size(), 100u);
        EXPECT_EQ(select(tree.get(), m, lasso, Camera(), 0.0f, model), expected)
            << points << " lasso points";
    }
}

TEST_F(Selection, OverlapCases) {
    // Far side of the screen from the lasso: nothing.
    const std::vector<vec2> lasso{{350, 250}, {450, 250}, {450, 350}, {350, 350}};
    // A small triangle wholly inside the lasso (counter-clockwise seen from the camera).
    const Mesh small =
        singleTriangle(vec3(-0.1f, -0.1f, 0), vec3(0.1f, -0.1f, 0), vec3(0, 0.1f, 0));
    EXPECT_EQ(select(buildTree(small).get(), small, lasso), (std::vector<int>{0}));
    // Its back face is rejected at threshold 0, kept at -2.
    const Mesh back = singleTriangle(vec3(-0.1f, -0.1f, 0), vec3(0, 0.1f, 0), vec3(0.1f, -0.1f, 0));
    EXPECT_TRUE(select(buildTree(back).get(), back, lasso).empty());
    setFacing(-2.0f);
    EXPECT_EQ(select(buildTree(back).get(), back, lasso), (std::vector<int>{0}));
    setFacing(0.0f);
    // A huge triangle around the lasso with its centroid outside: not selected. Moved so the
    // centroid lies inside: selected.
    const Mesh huge = singleTriangle(vec3(-30, -30, 0), vec3(90, -30, 0), vec3(-30, 30, 0));
    EXPECT_TRUE(select(buildTree(huge).get(), huge, lasso).empty());
    const Mesh centred = singleTriangle(vec3(-30, -30, 0), vec3(60, -30, 0), vec3(-30, 60, 0));
    EXPECT_EQ(select(buildTree(centred).get(), centred, lasso), (std::vector<int>{0}));
    // Only an edge passing through the lasso.
    const Mesh sliver = singleTriangle(vec3(-3, 0.01f, 0), vec3(3, -0.01f, 0), vec3(3, 3, 0));
    EXPECT_EQ(select(buildTree(sliver).get(), sliver, lasso), (std::vector<int>{0}));
    // A two-vertex lasso selects what its segment crosses.
    EXPECT_EQ(select(buildTree(small).get(), small, {{300, 300}, {500, 300}}),
              (std::vector<int>{0}));
    // One vertex behind the camera rules the triangle out, though two lie inside the lasso.
    const Mesh behind = singleTriangle(vec3(-0.1f, -0.1f, 0), vec3(0.1f, -0.1f, 0), vec3(0, 0, 6));
    setFacing(-2.0f);
    EXPECT_TRUE(select(buildTree(behind).get(), behind, lasso).empty());
    // A zero-area triangle has a NaN facing value, which is not rejected.
    setFacing(0.9f);
    const Mesh flat = singleTriangle(vec3(0), vec3(0.1f, 0, 0), vec3(0.2f, 0, 0));
    EXPECT_EQ(select(buildTree(flat).get(), flat, lasso), (std::vector<int>{0}));
}

TEST_F(Selection, FacingValueEqualToTheThresholdPasses) {
    // Seen straight on, facing is exactly 1.
    const Mesh m =
        singleTriangle(vec3(-0.1f, -0.1f, 0), vec3(0.1f, -0.1f, 0), vec3(-0.1f, 0.1f, 0));
    const vec3 g = (m.positions[0] + m.positions[1] + m.positions[2]) / 3.0f;
    Camera cam;
    cam.eye = vec3(g.x, g.y, 5.0f);
    cam.view = glm::lookAt(cam.eye, vec3(g.x, g.y, 0.0f), vec3(0, 1, 0));
    const float f = glm::dot(glm::normalize(cam.eye - g), vec3(0, 0, 1));
    ASSERT_EQ(f, 1.0f);
    const std::vector<vec2> lasso{{300, 200}, {500, 200}, {500, 400}, {300, 400}};
    setFacing(1.0f);
    EXPECT_EQ(select(buildTree(m).get(), m, lasso, cam), (std::vector<int>{0}));
    setFacing(std::nextafter(1.0f, 2.0f));
    EXPECT_TRUE(select(buildTree(m).get(), m, lasso, cam).empty());
}

TEST_F(Selection, DepthLimitCountsEveryVertexAndTheCentroid) {
    // Triangles straight ahead at growing depths, each spanning the centre pixel.
    const auto at = [](float depth) {
        const float s = depth * 0.05f;
        return singleTriangle(vec3(-s, -s, 5 - depth), vec3(s, -s, 5 - depth),
                              vec3(0, s, 5 - depth));
    };
    const std::vector<vec2> lasso{{390, 290}, {410, 290}, {410, 310}, {390, 310}};
    const auto selected = [&](const Mesh& m, float margin) {
        return !select(buildTree(m).get(), m, lasso, Camera(), margin).empty();
    };
    EXPECT_TRUE(selected(at(1999.0f), 0.0f));
    EXPECT_FALSE(selected(at(2001.0f), 0.0f));
    EXPECT_TRUE(selected(at(2949.0f), 950.0f));
    EXPECT_FALSE(selected(at(2951.0f), 950.0f));
    EXPECT_TRUE(selected(at(3099.0f), 1000.0f));
    EXPECT_FALSE(selected(at(3101.0f), 1000.0f));
    // One vertex tilted beyond the limit rejects the whole triangle.
    Mesh tilted = at(1990.0f);
    tilted.vertices[2].position.z -= 20.0f;
    EXPECT_FALSE(selected(tilted, 0.0f));
    // Depth is measured along the forward vector as given, not normalised.
    Camera stretched;
    stretched.forward = vec3(0, 0, -2);
    EXPECT_FALSE(!select(buildTree(at(1100.0f)).get(), at(1100.0f), lasso, stretched).empty());
}

TEST_F(Selection, MissingFacingVariableOnlyWhenATriangleReachesIt) {
    const Mesh m = uvSphere(16, 8, 1.0f);
    const Tree tree = buildTree(m);
    forgetFacing();
    const std::vector<vec2> lasso = starLasso(vec2(400, 300), 200, 80);
    // Nothing reaches the facing test: empty lasso, lasso beside the mesh, mesh behind the
    // camera, mesh beyond the depth limit.
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
        meshGeometry::findTrianglesInOctreeInPolygonCompact(
            tree.get(), lasso, ScreenRect(), mat4(1.0f), m.vertices, m.indices, result,
            Camera().view, Camera().projection, kWidth, kHeight, Camera().eye, Camera().forward,
            0.0f);
        FAIL() << "expected the missing variable to be reported";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Variable not found: dot_normal");
    }
    EXPECT_EQ(result, (std::vector<int>{7, 8}));
    // Registered with no storage counts as missing.
    GetVarRegistry()["dot_normal"] = RegisteredVar{nullptr};
    EXPECT_THROW(select(tree.get(), m, lasso), std::runtime_error);
}

TEST_F(Selection, AppendsAndSkipsBadNumbers) {
    const Mesh m = uvSphere(24, 12, 1.0f);
    const Tree tree = buildTree(m);
    const std::vector<vec2> lasso = starLasso(vec2(400, 300), 250, 100);
    const std::vector<int> once = select(tree.get(), m, lasso);
    const std::vector<int> appended =
        select(tree.get(), m, lasso, Camera(), 0.0f, mat4(1.0f), {-3});
    ASSERT_EQ(appended.size(), once.size() + 1);
    EXPECT_EQ(appended[0], -3);
    EXPECT_TRUE(std::equal(once.begin(), once.end(), appended.begin() + 1));
    // Numbers past a shortened index array, and a tree holding invalid numbers, are passed
    // over without a report.
    Mesh shortened = m;
    shortened.indices.resize(m.indices.size() / 2 + 1);
    const std::vector<int> fewer = select(tree.get(), shortened, lasso);
    for (int t : fewer) EXPECT_LT(3 * t + 2, static_cast<int>(shortened.indices.size()));
    std::vector<int> list = m.allTriangles();
    list.insert(list.end(), {-1, 1 << 30});
    Tree withBad(buildOctreeFromTriangleIndices(m.positions, m.indices, list, 0));
    std::vector<int> a = select(withBad.get(), m, lasso), b = once;
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    EXPECT_EQ(a, b);
}

// Lasso selections from several threads on one tree; the registry is left alone meanwhile.
TEST_F(Selection, ConcurrentSelectionsOnOneTreeAgree) {
    const Mesh& m = loadBunny();
    const Tree tree = buildTree(m);
    const std::vector<vec2> lasso = starLasso(vec2(400, 300), 250, 120);
    const std::vector<int> alone = select(tree.get(), m, lasso);
    ASSERT_FALSE(alone.empty());
    std::vector<std::vector<int>> results(4);
    std::vector<std::thread> threads;
    for (auto& r : results)
        threads.emplace_back([&] {
            meshGeometry::findTrianglesInOctreeInPolygonCompact(
                tree.get(), lasso, ScreenRect(), mat4(1.0f), m.vertices, m.indices, r,
                Camera().view, Camera().projection, kWidth, kHeight, Camera().eye, Camera().forward,
                0.0f);
        });
    for (std::thread& t : threads) t.join();
    for (const auto& r : results) EXPECT_EQ(r, alone);
}
