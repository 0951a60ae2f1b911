// The shape of the BVH: split rules, leaf rules, and whole trees against a plain sequential
// build from the same rules.
#include <korvex/bvh.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <thread>

using testmesh::sameBits;

namespace {

Triangle pointTriangle(const vec3& p) {
    return Triangle(p, p, p);
}

// The build rules followed literally, on the calling thread.
std::unique_ptr<BVHNode> referenceBuild(const std::vector<Triangle>& triangles, int depth) {
    if (triangles.empty()) return nullptr;
    auto node = std::make_unique<BVHNode>();
    node->bounds = computeBoundingBox(triangles);
    const vec3 s = node->bounds.max - node->bounds.min;
    const auto sides = splitTriangles(triangles);
    if (triangles.size() <= 6 || depth >= 64 ||
        2.0f * (s.x * s.y + s.y * s.z + s.x * s.z) < 1e-5f || sides.first.empty() ||
        sides.second.empty()) {
        node->triangles = triangles;
        return node;
    }
    node->left = referenceBuild(sides.first, depth + 1);
    node->right = referenceBuild(sides.second, depth + 1);
    return node;
}

// Node for node, bit for bit, whole triangle records (host tag included), aabb = bounds.
void expectSameTree(const BVHNode* a, const BVHNode* b, const std::string& path = "root") {
    ASSERT_EQ(a == nullptr, b == nullptr) << path;
    if (!a) return;
    EXPECT_TRUE(sameBits(a->bounds.min, b->bounds.min) && sameBits(a->bounds.max, b->bounds.max))
        << path;
    EXPECT_TRUE(sameBits(a->aabb.min, a->bounds.min) && sameBits(a->aabb.max, a->bounds.max))
        << path;
    ASSERT_EQ(a->triangles.size(), b->triangles.size()) << path;
    for (size_t i = 0; i < a->triangles.size(); ++i) {
        EXPECT_EQ(std::memcmp(&a->triangles[i], &b->triangles[i], 36), 0) << path << " #" << i;
        EXPECT_EQ(a->triangles[i].hostTag, b->triangles[i].hostTag) << path << " #" << i;
    }
    expectSameTree(a->left.get(), b->left.get(), path + "L");
    expectSameTree(a->right.get(), b->right.get(), path + "R");
}

int deepestLeaf(const BVHNode* node, int depth = 0) {
    if (!node->left && !node->right) return depth;
    return std::max(deepestLeaf(node->left.get(), depth + 1),
                    deepestLeaf(node->right.get(), depth + 1));
}

bool isLeaf(const std::unique_ptr<BVHNode>& node) {
    return node && !node->left && !node->right;
}

// Triangles in a cube of side `size`, with corner points that fix the box.
std::vector<Triangle> spreadTriangles(int count, float size, unsigned seed) {
    std::vector<Triangle> out = testmesh::randomSoup(count, size * 0.9f, seed).soup();
    out.push_back(pointTriangle(vec3(-size * 0.5f)));
    out.push_back(pointTriangle(vec3(size * 0.5f)));
    return out;
}

} // namespace

TEST(BvhSplit, BoundingBoxFoldsEveryCornerAndIgnoresNaN) {
    const BoundingBox empty = computeBoundingBox({});
    EXPECT_EQ(empty.min, vec3(3.4028235e38f));
    EXPECT_EQ(empty.max, vec3(-3.4028235e38f));
    const BoundingBox box =
        computeBoundingBox({Triangle(vec3(1, 2, 3), vec3(-1, 5, 0), vec3(0, 0, 9)),
                            Triangle(vec3(NAN, 1, 1), vec3(2, NAN, 1), vec3(0, 1, -4))});
    EXPECT_EQ(box.min, vec3(-1, 0, -4));
    EXPECT_EQ(box.max, vec3(2, 5, 9));
}

TEST(BvhSplit, LongestAxisWithTheLaterAxisWinningTies) {
    // Point triangles low on exactly one axis each: the lower side names the axis.
    const auto lowerSideAxis = [](const vec3& size) {
        const std::vector<Triangle> tris{
            pointTriangle(size), pointTriangle(vec3(0, size.y, size.z)),
            pointTriangle(vec3(size.x, 0, size.z)), pointTriangle(vec3(size.x, size.y, 0))};
        const auto sides = splitTriangles(tris);
        for (int axis = 0; axis < 3; ++axis)
            if (sides.first.size() == 1 && sides.first[0] == tris[axis + 1]) return axis;
        return -1;
    };
    EXPECT_EQ(lowerSideAxis(vec3(2, 2, 2)), 2);
    EXPECT_EQ(lowerSideAxis(vec3(2, 2, 1)), 1);
    EXPECT_EQ(lowerSideAxis(vec3(3, 2, 2)), 0);
    EXPECT_EQ(lowerSideAxis(vec3(2, 1, 2)), 2); // x ties z
    EXPECT_EQ(lowerSideAxis(vec3(1, 3, 2)), 1);
}

TEST(BvhSplit, CentroidOnTheSplitGoesUpperAndIsATrueDivisionByThree) {
    // Box x from 0 to 3: the split is at 1.5. Input order is kept on both sides.
    const std::vector<Triangle> tris{
        pointTriangle(vec3(0.0f)), pointTriangle(vec3(3, 0, 0)),
        Triangle(vec3(0, 0, 0), vec3(1.5f, 0, 0), vec3(3, 0, 0)), // centroid 1.5
        pointTriangle(vec3(1.5f, 0, 0)), pointTriangle(vec3(std::nextafter(1.5f, 0.0f), 0, 0))};
    const auto sides = splitTriangles(tris);
    EXPECT_EQ(sides.first, (std::vector<Triangle>{tris[0], tris[4]}));
    EXPECT_EQ(sides.second, (std::vector<Triangle>{tris[1], tris[2], tris[3]}));

    // A corner sum whose product with 1/3 differs from its quotient by 3; the split sits on the
    // larger of the two, so the two roundings fall on different sides.
    float sum = 0.0f;
    for (int i = 1; sum == 0.0f; ++i)
        if (i * 0.37f * (1.0f / 3.0f) != i * 0.37f / 3.0f) sum = i * 0.37f;
    const float quotient = sum / 3.0f, split = std::max(quotient, sum * (1.0f / 3.0f));
    const Triangle probe(vec3(sum, 0, 0), vec3(0.0f), vec3(0.0f));
    const auto divided =
        splitTriangles({pointTriangle(vec3(0.0f)), pointTriangle(vec3(2.0f * split, 0, 0)), probe});
    EXPECT_EQ(divided.first.back() == probe, quotient < split);
}

TEST(BvhSplit, OneSidedSplitIsReportedOnTheOtherSide) {
    // The long triangle spans x 0..9 (centre 4.5) with its centroid at 3: all lower.
    std::vector<Triangle> low{Triangle(vec3(0, 0, 0), vec3(0, 0, 0), vec3(9, 0, 0)),
                              pointTriangle(vec3(1, 0, 0)), pointTriangle(vec3(4, 0, 0))};
    low[1].hostTag = 11;
    auto sides = splitTriangles(low);
    EXPECT_TRUE(sides.first.empty());
    ASSERT_EQ(sides.second, low);
    EXPECT_EQ(sides.second[1].hostTag, 11u); // whole records
    // Centroid at 6, the others at or above 4.5: all upper.
    const std::vector<Triangle> high{Triangle(vec3(0, 0, 0), vec3(9, 0, 0), vec3(9, 0, 0)),
                                     pointTriangle(vec3(4.5f, 0, 0)), pointTriangle(vec3(8, 0, 0))};
    sides = splitTriangles(high);
    EXPECT_EQ(sides.first, high);
    EXPECT_TRUE(sides.second.empty());
    sides = splitTriangles({});
    EXPECT_TRUE(sides.first.empty() && sides.second.empty());
}

TEST(BvhBuild, LeafRulesAtTheirThresholds) {
    EXPECT_EQ(createBVHNode({}, 0), nullptr);
    // Six spread triangles: one leaf in input order; a seventh: an inner node without triangles.
    std::vector<Triangle> tris;
    for (int i = 0; i < 6; ++i) tris.push_back(pointTriangle(vec3(i * 10.0f, 0, 0)));
    tris[0].p1 = vec3(0, 1, 1);
    auto root = createBVHNode(tris, 0);
    ASSERT_TRUE(isLeaf(root));
    EXPECT_EQ(root->triangles, tris);
    EXPECT_EQ(root->bounds.max, vec3(50, 1, 1));
    EXPECT_EQ(root->aabb.max, vec3(50, 1, 1));
    tris.push_back(pointTriangle(vec3(60, 0, 0)));
    root = createBVHNode(tris, 0);
    EXPECT_TRUE(root->left && root->right && root->triangles.empty());

    // Identical triangles: every centroid on one side, one leaf of all.
    EXPECT_EQ(createBVHNode(std::vector<Triangle>(100, tris[0]), 0)->triangles.size(), 100u);
    // Box surface 6e-6 is below 1e-5: a leaf; 2.4e-5 is not.
    EXPECT_TRUE(isLeaf(createBVHNode(spreadTriangles(50, 1e-3f, 1), 0)));
    EXPECT_FALSE(isLeaf(createBVHNode(spreadTriangles(50, 2e-3f, 1), 0)));
    // Depth 64 given: a leaf at once; 63: two children, which are leaves.
    const std::vector<Triangle> many = spreadTriangles(200, 10.0f, 2);
    EXPECT_EQ(createBVHNode(many, 64)->triangles.size(), many.size());
    root = createBVHNode(many, 63);
    EXPECT_TRUE(isLeaf(root->left) && isLeaf(root->right));
}

TEST(BvhBuild, DepthLimitBoundsDegenerateLists) {
    // Centroids at 3^i: every split peels off one triangle, so only the depth limit stops the
    // recursion, at depth 64 with the rest in one leaf.
    std::vector<Triangle> tris;
    for (int i = 0; i < 80; ++i) tris.push_back(pointTriangle(vec3(float(std::pow(3.0, i)))));
    const auto root = createBVHNode(tris, 0);
    EXPECT_EQ(deepestLeaf(root.get()), 64);
    expectSameTree(root.get(), referenceBuild(tris, 0).get());
    // A negative depth builds a whole tree rather than lifting the limit.
    expectSameTree(createBVHNode(tris, -20).get(), root.get());
    EXPECT_EQ(deepestLeaf(createBVHNode(tris, 60).get()), 4);
}

TEST(BvhBuild, SameTreeAsThePlainSequentialBuild) {
    for (int round = 0; round < 3; ++round) {
        std::vector<Triangle> tris = testmesh::randomSoup(300 + round * 1500, 100.0f, round).soup();
        for (size_t i = 0; i < tris.size(); ++i) {
            tris[i].hostTag = static_cast<uint32_t>(i);
            if (round == 1) tris[i].p0.y *= 0.1f; // flat boxes
        }
        for (size_t i = 0; i < tris.size(); i += 97) tris.push_back(tris[i]); // duplicates
        // Signed zeros and a NaN corner.
        tris.push_back(pointTriangle(vec3(0.0f, -0.0f, 0.0f)));
        tris.push_back(Triangle(vec3(NAN, 1, 1), vec3(1, 1, 1), vec3(2, 2, 2)));
        expectSameTree(createBVHNode(tris, 0).get(), referenceBuild(tris, 0).get());
        if (round == 0) expectSameTree(createBVHNode(tris, 5).get(), referenceBuild(tris, 5).get());
    }
}

TEST(BvhBuild, RootIsTakenAndReleased) {
    auto root = createBVHNode(spreadTriangles(100, 1.0f, 3), 0);
    std::unique_ptr<BVHNode>& holder = getBVHRoot(std::move(root));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(holder, nullptr);
    EXPECT_EQ(getBVHRoot(nullptr), nullptr);
}

// Built nodes share blocks of memory, yet each must stay free-standing: a host may detach
// subtrees, keep them past the rest of the tree, release them on other threads, and mix
// them with nodes it made itself. ASan and TSan runs check the releases.
TEST(BvhBuild, NodesOfABuiltTreeAreReleasedOneByOne) {
    const std::vector<Triangle> tris = spreadTriangles(4000, 10.0f, 11);
    auto root = createBVHNode(tris, 0);
    auto sequential = createBVHNode(tris, 4); // one arena, no tasks
    ASSERT_TRUE(root->left && sequential->left);

    // Keep a deep subtree alive after its tree is gone, and give a built node a hand-made child.
    std::unique_ptr<BVHNode> kept = std::move(sequential->left->left);
    sequential.reset();
    ASSERT_TRUE(kept);
    BVHNode* leaf = kept.get();
    while (leaf->left) leaf = leaf->left.get();
    leaf->left = std::make_unique<BVHNode>();
    leaf->left.reset();

    // Release the halves of the other tree on two threads, the root last.
    std::unique_ptr<BVHNode> left = std::move(root->left), right = std::move(root->right);
    std::thread a([&] { left.reset(); }), b([&] { right.reset(); });
    a.join();
    b.join();
    root.reset();

    // The kept subtree still answers queries.
    vec3 hit(0.0f);
    float nearest = kFloatMax;
    const vec3 centre = (kept->bounds.min + kept->bounds.max) * 0.5f;
    const Ray ray(centre + vec3(0, 0, 100), vec3(0, 0, -1));
    RayIntersectsBVH(ray, kept.get(), hit, nearest);
    kept.reset();
    auto single = std::make_unique<BVHNode>();
    EXPECT_TRUE(single->triangles.empty() && !single->left && !single->right);
}
