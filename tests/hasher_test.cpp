#include <korvex/hasher.h>

#include <gtest/gtest.h>

#include <unordered_set>

// The values are fixed bit for bit: the host hashes the same keys.
TEST(Hasher, FloatAndVectorHashesHaveTheirFixedValues) {
    EXPECT_EQ(HASHER::HashFloat(0.0f), 0x4d25767f9dce13f5ull);
    EXPECT_EQ(HASHER::HashFloat(-0.0f), 0x4d25767f9dce13f5ull);
    EXPECT_EQ(HASHER::HashFloat(1.0f), 0x4b72477f9c5c2f98ull);
    EXPECT_EQ(HASHER::Vec3Hash()(vec3(1, 2, 3)), 0xf00bf93f69c92e93ull);
    EXPECT_EQ(HASHER::Vector3DHash()(aiVector3t<float>(1, 2, 3)), 0xe017f27ed3925d26ull);
    EXPECT_EQ(HASHER::pair_hash()({1, 2}), 0xb71f5757d3eb4d4aull);
    EXPECT_EQ(HASHER::Vec3Hash()(vec3(-0.0f, 2, 3)), HASHER::Vec3Hash()(vec3(0.0f, 2, 3)));
}

TEST(Hasher, EdgeHashIgnoresOrderButNotTolerance) {
    const vec3 a(0, 0, 0), b(1, 0, 0);
    EXPECT_EQ(EdgeHash()(Edge(a, b)), 0x57ca980015b225aull);
    EXPECT_EQ(EdgeHash()(Edge(b, a)), EdgeHash()(Edge(a, b)));
    EXPECT_EQ(EdgeHash()(Edge(b, b)), 0u);
    EXPECT_EQ(EdgeHash()(Edge(a, a)), 0u);

    const Edge moved(a, b + vec3(0.000001f, 0, 0));
    EXPECT_TRUE(Edge(a, b) == moved);
    EXPECT_TRUE(Edge(b, a) == moved);
    EXPECT_NE(EdgeHash()(moved), EdgeHash()(Edge(a, b)));
}

TEST(Hasher, EqualityTolerancesAreStrict) {
    const HASHER::Vec3Equal eq;
    // Strictly less than 1e-5 per axis; pick values whose float difference is
    // clearly on either side of the limit.
    EXPECT_TRUE(eq(vec3(1, 1, 1), vec3(1.0f + 9e-6f, 1, 1)));
    EXPECT_FALSE(eq(vec3(1, 1, 1), vec3(1.0f + 1.2e-5f, 1, 1)));
    EXPECT_FALSE(eq(vec3(0, 0, 0), vec3(0, 0, 1e-5f))); // exactly 1e-5 apart
    EXPECT_FALSE(eq(vec3(NAN, 0, 0), vec3(NAN, 0, 0)));
    EXPECT_FALSE(Edge(vec3(0, 0, 0), vec3(1, 0, 0)) == Edge(vec3(0, 0, 0), vec3(1, 1e-5f, 0)));

    const HASHER::Vector3DEqual exact;
    EXPECT_TRUE(exact(aiVector3t<float>(1, 2, 3), aiVector3t<float>(1, 2, 3)));
    EXPECT_FALSE(exact(aiVector3t<float>(1, 2, 3), aiVector3t<float>(1, 2, 3.000001f)));
}

TEST(Hasher, VertexHashAndEqualityLookAtFiveFields) {
    kvx::nsVertex v(vec3(1, 2, 3), vec3(0, 0, 1));
    v.tangent = vec3(1, 0, 0);
    v.bitangent = vec3(0, 1, 0);
    v.uv = vec2(0.25f, 0.75f);
    kvx::nsVertex w = v;
    w.color = vec4(0.5f);
    w.uv2 = vec2(9.0f);
    w.extra[3] = 42;
    const HASHER::VertexHash hash;
    const HASHER::VertexEqual equal;
    EXPECT_TRUE(equal(v, w));
    EXPECT_EQ(hash(v), hash(w));

    // Tangent and bitangent may swap places without changing the hash, but
    // not the equality.
    kvx::nsVertex swapped = v;
    std::swap(swapped.tangent, swapped.bitangent);
    EXPECT_EQ(hash(swapped), hash(v));
    EXPECT_FALSE(equal(swapped, v));

    kvx::nsVertex otherUv = v;
    otherUv.uv.y = 0.5f;
    EXPECT_FALSE(equal(otherUv, v));
    EXPECT_NE(hash(otherUv), hash(v));

    kvx::nsVertex withNan = v;
    withNan.normal.x = NAN;
    EXPECT_FALSE(equal(withNan, withNan));

    // The formula, spelled out once from the parts.
    const HASHER::Vec3Hash h;
    const uint64_t c = HASHER::HashFloat(0.25f) ^ (HASHER::HashFloat(0.75f) << 1);
    const uint64_t x = (h(v.position) ^ (h(v.normal) << 1)) >> 1;
    const uint64_t y = (x ^ (c << 1)) >> 1;
    EXPECT_EQ(hash(v), y ^ ((h(v.tangent) ^ h(v.bitangent)) << 1));
}

TEST(Hasher, GlobalsStartEmptyAndWorkAsContainers) {
    EXPECT_TRUE(g_drawPoints.empty());
    EXPECT_TRUE(edgeCount.empty());
    edgeCount[{1, 2}] += 1;
    edgeCount[{1, 2}] += 1;
    EXPECT_EQ(edgeCount.at({1, 2}), 2);
    edgeCount.clear();

    std::unordered_set<Edge, EdgeHash> edges;
    edges.insert(Edge(vec3(0), vec3(1, 0, 0)));
    edges.insert(Edge(vec3(1, 0, 0), vec3(0))); // the same edge reversed
    EXPECT_EQ(edges.size(), 1u);
}
