// The shape of the BVH: split rules, leaf rules, and the tree as a whole
// against a plain recursive build written from the rules.
#include <korvex/bvh.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

namespace {

Triangle pointTriangle(const vec3& p) {
    return Triangle(p, p, p);
}

bool sameBits(const vec3& a, const vec3& b) {
    return std::memcmp(&a, &b, sizeof(vec3)) == 0;
}

// The rules, followed literally: copies at every level, plain recursion.
std::unique_ptr<BVHNode> referenceBuild(const std::vector<Triangle>& triangles, int depth) {
    if (triangles.empty()) return nullptr;
    auto node = std::make_unique<BVHNode>();
    node->bounds = computeBoundingBox(triangles);
    node->aabb = AABB(node->bounds.min, node->bounds.max);
    const vec3 s = node->bounds.max - node->bounds.min;
    const float area = 2.0f * (s.x * s.y + s.y * s.z + s.x * s.z);
    if (triangles.size() <= 6 || depth >= 64 || area < 1e-5f) {
        node->triangles = triangles;
        return node;
    }
    auto sides = splitTriangles(triangles);
    if (sides.first.empty() || sides.second.empty() || sides.first.size() == triangles.size() ||
        sides.second.size() == triangles.size()) {
        node->triangles = triangles;
        return node;
    }
    node->left = referenceBuild(sides.first, depth + 1);
    node->right = referenceBuild(sides.second, depth + 1);
    return node;
}

// Node for node, bit for bit, triangle records whole (host tag included).
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

size_t countTriangles(const BVHNode* node) {
    if (!node) return 0;
    return node->triangles.size() + countTriangles(node->left.get()) +
           countTriangles(node->right.get());
}

// Triangles whose box is a cube of side `size`, centroids spread through it.
std::vector<Triangle> spreadTriangles(size_t count, float size, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(0.0f, size);
    std::vector<Triangle> out;
    for (size_t i = 0; i < count; ++i) {
        const vec3 p(unit(rng), unit(rng), unit(rng));
        out.emplace_back(p, p + vec3(size * 0.01f, 0, 0), p + vec3(0, size * 0.01f, 0));
    }
    out.push_back(pointTriangle(vec3(0.0f)));
    out.push_back(pointTriangle(vec3(size)));
    return out;
}

} // namespace

TEST(BvhSplit, BoundingBoxFoldsEveryCornerAndIgnoresNaN) {
    const BoundingBox empty = computeBoundingBox({});
    EXPECT_EQ(empty.min, vec3(3.4028235e38f));
    EXPECT_EQ(empty.max, vec3(-3.4028235e38f));

    std::vector<Triangle> tris{Triangle(vec3(1, 2, 3), vec3(-1, 5, 0), vec3(0, 0, 9)),
                               Triangle(vec3(NAN, 1, 1), vec3(2, NAN, 1), vec3(0, 1, -4))};
    const BoundingBox box = computeBoundingBox(tris);
    EXPECT_EQ(box.min, vec3(-1, 0, -4));
    EXPECT_EQ(box.max, vec3(2, 5, 9));
}

// Triangles low on exactly one axis each: the lower side names the axis.
TEST(BvhSplit, LongestAxisWithLaterAxisWinningTies) {
    auto lowerSideAxis = [](const vec3& size) {
        const std::vector<Triangle> tris{
            pointTriangle(size), pointTriangle(vec3(0, size.y, size.z)),
            pointTriangle(vec3(size.x, 0, size.z)), pointTriangle(vec3(size.x, size.y, 0))};
        const auto sides = splitTriangles(tris);
        EXPECT_EQ(sides.first.size(), 1u);
        for (int axis = 0; axis < 3; ++axis)
            if (!sides.first.empty() && sides.first[0] == tris[axis + 1]) return axis;
        return -1;
    };
    EXPECT_EQ(lowerSideAxis(vec3(2, 2, 2)), 2);
    EXPECT_EQ(lowerSideAxis(vec3(2, 2, 1)), 1);
    EXPECT_EQ(lowerSideAxis(vec3(3, 2, 2)), 0);
    EXPECT_EQ(lowerSideAxis(vec3(2, 1, 2)), 2); // x ties z: z
    EXPECT_EQ(lowerSideAxis(vec3(1, 2, 2)), 2); // y ties z: z
    EXPECT_EQ(lowerSideAxis(vec3(1, 3, 2)), 1);
    EXPECT_EQ(lowerSideAxis(vec3(1, 2, 3)), 2);
}

TEST(BvhSplit, CentroidOnTheSplitGoesUpper) {
    // Box x from 0 to 3: the split is at 1.5.
    const std::vector<Triangle> tris{
        pointTriangle(vec3(0.0f)), pointTriangle(vec3(3, 0, 0)),
        Triangle(vec3(0, 0, 0), vec3(1.5f, 0, 0), vec3(3, 0, 0)), // centroid 1.5
        pointTriangle(vec3(1.5f, 0, 0)), pointTriangle(vec3(std::nextafter(1.5f, 0.0f), 0, 0))};
    const auto sides = splitTriangles(tris);
    ASSERT_EQ(sides.first.size(), 2u);
    EXPECT_EQ(sides.first[0], tris[0]);
    EXPECT_EQ(sides.first[1], tris[4]);
    ASSERT_EQ(sides.second.size(), 3u);
    EXPECT_EQ(sides.second[0], tris[1]);
    EXPECT_EQ(sides.second[1], tris[2]);
    EXPECT_EQ(sides.second[2], tris[3]);
}

TEST(BvhSplit, CentroidIsATrueDivisionByThree) {
    // A corner sum whose product with 1/3 differs from its quotient by 3.
    float sum = 0.0f;
    for (int i = 1; i < 1000 && sum == 0.0f; ++i) {
        const float s = static_cast<float>(i) * 0.37f;
        if (s * (1.0f / 3.0f) != s / 3.0f) sum = s;
    }
    ASSERT_NE(sum, 0.0f);
    const float quotient = sum / 3.0f, product = sum * (1.0f / 3.0f);
    // The split sits on the larger of the two, so they fall on different sides.
    const float split = std::max(quotient, product);
    const std::vector<Triangle> tris{pointTriangle(vec3(0.0f)),
                                     pointTriangle(vec3(2.0f * split, 0, 0)),
                                     Triangle(vec3(sum, 0, 0), vec3(0.0f), vec3(0.0f))};
    const auto sides = splitTriangles(tris);
    const bool centroidLower = quotient < split;
    const auto& lower = sides.first;
    ASSERT_EQ(lower.size(), centroidLower ? 2u : 1u);
    EXPECT_EQ(lower.back() == tris[2], centroidLower);
}

TEST(BvhSplit, OneSidedSplitIsReportedOnTheOtherSide) {
    // The long triangle spans x 0..9 (centre 4.5) with its centroid at 3.
    std::vector<Triangle> low{Triangle(vec3(0, 0, 0), vec3(0, 0, 0), vec3(9, 0, 0)),
                              pointTriangle(vec3(1, 0, 0)), pointTriangle(vec3(4, 0, 0))};
    low[1].hostTag = 11;
    auto sides = splitTriangles(low);
    EXPECT_TRUE(sides.first.empty());
    ASSERT_EQ(sides.second.size(), 3u);
    EXPECT_EQ(sides.second[1].hostTag, 11u); // whole records, input order
    EXPECT_EQ(sides.second[2], low[2]);

    // Centroid at 6, the others at or above 4.5.
    const std::vector<Triangle> high{Triangle(vec3(0, 0, 0), vec3(9, 0, 0), vec3(9, 0, 0)),
                                     pointTriangle(vec3(4.5f, 0, 0)), pointTriangle(vec3(8, 0, 0))};
    sides = splitTriangles(high);
    ASSERT_EQ(sides.first.size(), 3u);
    EXPECT_TRUE(sides.second.empty());
    EXPECT_EQ(sides.first[1], high[1]);

    sides = splitTriangles({});
    EXPECT_TRUE(sides.first.empty() && sides.second.empty());
}

TEST(BvhBuild, LeafRules) {
    EXPECT_EQ(createBVHNode({}, 0), nullptr);

    // Six spread triangles: one leaf, in input order, bounds and aabb set.
    std::vector<Triangle> six;
    for (int i = 0; i < 6; ++i) six.push_back(pointTriangle(vec3(i * 10.0f, 0, 0)));
    six[0].p1 = vec3(0, 1, 1);
    auto root = createBVHNode(six, 0);
    ASSERT_NE(root, nullptr);
    EXPECT_FALSE(root->left || root->right);
    ASSERT_EQ(root->triangles.size(), 6u);
    EXPECT_EQ(root->triangles[5], six[5]);
    EXPECT_EQ(root->bounds.min, vec3(0, 0, 0));
    EXPECT_EQ(root->bounds.max, vec3(50, 1, 1));
    EXPECT_EQ(root->aabb.max, vec3(50, 1, 1));

    // A seventh: an inner node with no triangles of its own.
    six.push_back(pointTriangle(vec3(60, 0, 0)));
    root = createBVHNode(six, 0);
    ASSERT_TRUE(root->left && root->right);
    EXPECT_TRUE(root->triangles.empty());
    EXPECT_EQ(countTriangles(root.get()), 7u);

    // Identical triangles: every centroid on one side, one leaf of all.
    const std::vector<Triangle> same(100, Triangle(vec3(0, 0, 0), vec3(1, 0, 0), vec3(0, 1, 0)));
    root = createBVHNode(same, 0);
    EXPECT_FALSE(root->left || root->right);
    EXPECT_EQ(root->triangles.size(), 100u);

    // Surface 6e-6 is below 1e-5: a leaf; 2.4e-5 is not.
    root = createBVHNode(spreadTriangles(50, 1e-3f, 1), 0);
    EXPECT_FALSE(root->left || root->right);
    root = createBVHNode(spreadTriangles(50, 2e-3f, 1), 0);
    EXPECT_TRUE(root->left && root->right);

    // Depth 64 given: a leaf at once; 63: children, which are leaves.
    const std::vector<Triangle> many = spreadTriangles(200, 10.0f, 2);
    root = createBVHNode(many, 64);
    EXPECT_EQ(root->triangles.size(), many.size());
    root = createBVHNode(many, 63);
    ASSERT_TRUE(root->left && root->right);
    EXPECT_FALSE(root->left->left || root->right->left);
    EXPECT_GT(root->left->triangles.size() + root->right->triangles.size(), 12u);
}

// Centroids at 3^i: every split peels off one triangle, so only the depth
// limit stops the recursion, at depth 64 with the rest in one leaf.
TEST(BvhBuild, DepthLimitBoundsDegenerateLists) {
    std::vector<Triangle> tris;
    for (int i = 0; i < 80; ++i)
        tris.push_back(pointTriangle(vec3(static_cast<float>(std::pow(3.0, i)))));
    const auto root = createBVHNode(tris, 0);
    EXPECT_EQ(deepestLeaf(root.get()), 64);
    EXPECT_EQ(countTriangles(root.get()), tris.size());
    expectSameTree(root.get(), referenceBuild(tris, 0).get());
    // A negative depth counts as a whole tree rather than lifting the limit.
    expectSameTree(createBVHNode(tris, -20).get(), root.get());
    // Started deeper, the limit comes sooner.
    EXPECT_EQ(deepestLeaf(createBVHNode(tris, 60).get()), 4);
}

TEST(BvhBuild, SameTreeAsThePlainRecursiveBuild) {
    std::mt19937 rng(7);
    for (int round = 0; round < 6; ++round) {
        std::uniform_real_distribution<float> coord(-50.0f, 50.0f), edge(-2.0f, 2.0f);
        std::vector<Triangle> tris;
        const size_t count = 200 + round * 700;
        for (size_t i = 0; i < count; ++i) {
            const vec3 p(coord(rng), coord(rng) * (round % 2 ? 0.1f : 1.0f), coord(rng));
            Triangle t(p, p + vec3(edge(rng), edge(rng), edge(rng)),
                       p + vec3(edge(rng), edge(rng), edge(rng)));
            t.hostTag = static_cast<uint32_t>(i);
            tris.push_back(t);
            if (i % 97 == 0) tris.push_back(t); // duplicates
        }
        // Exact coordinates that sit on split positions, signed zeros, a NaN corner.
        tris.push_back(pointTriangle(vec3(0.0f, -0.0f, 0.0f)));
        tris.push_back(Triangle(vec3(NAN, 1, 1), vec3(1, 1, 1), vec3(2, 2, 2)));
        const auto built = createBVHNode(tris, 0);
        expectSameTree(built.get(), referenceBuild(tris, 0).get());
        EXPECT_EQ(countTriangles(built.get()), tris.size());
        if (round == 0) expectSameTree(createBVHNode(tris, 5).get(), referenceBuild(tris, 5).get());
    }
}

TEST(BvhBuild, RootIsTakenAndReleased) {
    auto root = createBVHNode(spreadTriangles(100, 1.0f, 3), 0);
    std::unique_ptr<BVHNode>& holder = getBVHRoot(std::move(root));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(holder, nullptr);
    EXPECT_EQ(getBVHRoot(nullptr), nullptr);

    BVHNode fresh;
    EXPECT_FALSE(fresh.left || fresh.right);
    EXPECT_TRUE(fresh.triangles.empty());
}
