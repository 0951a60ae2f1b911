// Ring clean-up and the even-odd union into polygons with holes.
#include "text/ring_cleanup.h"
#include "text/ring_union.h"

#include <korvex/extrude.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace textgeom;
using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;

namespace {

const float kNan = std::numeric_limits<float>::quiet_NaN();

Ring square(float x0, float y0, float side, bool ccw = true) {
    Ring r{{x0, y0}, {x0 + side, y0}, {x0 + side, y0 + side}, {x0, y0 + side}};
    if (!ccw) std::reverse(r.begin(), r.end());
    return r;
}

std::vector<RingPolygon> unionOf(const Rings& rings) {
    PolyTree64 tree;
    unionRingsToTree(rings, tree, kClipScale);
    std::vector<RingPolygon> polygons;
    for (const PolyPath64* child : tree.Childs) collectPolygons(*child, kClipScale, polygons);
    return polygons;
}

// A clean-up case: the input ring, the limit, and which input points stay.
struct Cleanup {
    Ring in;
    float limit;
    std::vector<int> kept;
    const char* what;
};

template <class F> void expectKept(const std::vector<Cleanup>& cases, F cleanUp) {
    for (const Cleanup& c : cases) {
        Ring ring = c.in, expected;
        for (int k : c.kept) expected.push_back(c.in[size_t(k)]);
        cleanUp(ring, c.limit);
        EXPECT_EQ(ring, expected) << c.what;
    }
}

} // namespace

TEST(TextUnion, NormalizeRingMergesAgainstTheLastKeptPoint) {
    expectKept({{{}, 1.0f, {}, "empty"},
                {{{3, 4}}, 1.0f, {0}, "one point"},
                {{{0, 0}, {0.5f, 0}}, 1.0f, {0}, "the last point goes, only once"},
                {{{0, 0}, {1, 0}, {1, 1}, {0, 0}}, 1e-6f, {0, 1, 2}, "closing repeat"},
                {{{0, 0}, {1, 0}, {1, 0}, {1, 1}, {0, 0}}, 0.0f, {0, 1, 3, 4}, "limit 0"},
                {{{0, 0}, {0.6f, 0}, {1.2f, 0}, {1.8f, 0}, {2.4f, 0}, {3, 0}}, 1, {0, 2, 4}, "0.6"},
                {{{0, 0}, {0.5f, 0}, {5, 5}}, 0.5f, {0, 2}, "exactly at the limit"},
                {{{0, 0}, {5, 0}, {0.5f, 0}, {1.2f, 0}}, 1.0f, {0, 1, 2}, "no second look"}},
               normalizeRing);
}

TEST(TextUnion, DropCollinearDuplicatesNeedsBothCollinearAndNear) {
    expectKept({{{{0, 0}, {0.0005f, 0}, {1, 0}, {1, 1}, {0, 1}}, 1e-4f, {0, 2, 3, 4}, "near"},
                {{{0, 0}, {0.01f, 0}, {1, 0}, {1, 1}, {0, 1}}, 1e-4f, {0, 1, 2, 3, 4}, "far"},
                {{{0, 0}, {0.0005f, 0}, {0.0005f, 1}, {0, 1}}, 1e-4f, {0, 1, 2, 3}, "corner"},
                {{{0, 0}, {0, 0}}, 1e-4f, {0, 1}, "under 3 points: untouched"},
                {{{0, 0}, {0, 0}, {0, 0}}, 1e-4f, {0}, "the first is always kept"}},
               dropCollinearDuplicates);
}

TEST(TextUnion, DegenerateRingLimitsAreAbsolute) {
    EXPECT_TRUE(isRingDegenerate({{0, 0}, {1, 0}}));
    EXPECT_TRUE(isRingDegenerate(square(0, 0, 0.3f))); // area 0.09
    EXPECT_FALSE(isRingDegenerate(square(0, 0, 0.32f)));
    EXPECT_FALSE(isRingDegenerate(square(0, 0, 0.32f, false)));
    // Large, but the closing edge is 0.008 long.
    EXPECT_TRUE(isRingDegenerate({{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0.008f}}));
    EXPECT_FALSE(isRingDegenerate({{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0.011f}}));
    EXPECT_DOUBLE_EQ(ringSignedArea2(square(0, 0, 2)), 8.0);
    EXPECT_DOUBLE_EQ(ringSignedArea2(square(0, 0, 2, false)), -8.0);
    EXPECT_EQ(ringSignedArea2({}), 0.0);
    // Summed in double: float would lose the small ring far from the origin.
    EXPECT_DOUBLE_EQ(ringSignedArea2(square(1e6f, 1e6f, 1)), 2.0);
}

TEST(TextUnion, IntegerConversionRoundsInDouble) {
    // 0.015625 * 100000 is exactly 1562.5: halves round away from zero.
    // 0.7f * 100000 is 69999.9988 in double, rounded to 70000.
    const Paths64 paths =
        ringsToPaths64({{{0.015625f, -0.015625f}, {0.7f, -0.7f}}, {}}, kClipScale);
    ASSERT_EQ(paths.size(), 2u); // one path per ring, also an empty one
    EXPECT_EQ(paths[0], Path64({{1563, -1563}, {70000, -70000}}));
    EXPECT_EQ(pathToRing(paths[0], kClipScale), Ring({{0.01563f, -0.01563f}, {0.7f, -0.7f}}));
    // Values without an integer form are marked, not converted.
    const Paths64 bad = ringsToPaths64({{{kNan, 0}, {1e30f, 0}}}, kClipScale);
    EXPECT_EQ(bad[0][0].X, kNoCoord);
    EXPECT_EQ(bad[0][1].X, kNoCoord);
}

TEST(TextUnion, NestingPairsHolesAndFixesDirections) {
    // Three nested squares in mixed directions, two with repeated closing
    // points: the outermost with the middle as its hole, then the innermost.
    Ring a = square(0, 0, 10, false), b = square(2, 2, 6, false);
    a.push_back(a.front());
    b.push_back(b.front());
    const std::vector<RingPolygon> polygons = unionOf({square(4, 4, 2), a, b});
    ASSERT_EQ(polygons.size(), 2u);
    EXPECT_EQ(polygons[0].outer.size(), 4u);
    EXPECT_DOUBLE_EQ(ringSignedArea2(polygons[0].outer), 200.0);
    ASSERT_EQ(polygons[0].holes.size(), 1u);
    EXPECT_DOUBLE_EQ(ringSignedArea2(polygons[0].holes[0]), -72.0);
    EXPECT_DOUBLE_EQ(ringSignedArea2(polygons[1].outer), 8.0);
    EXPECT_TRUE(polygons[1].holes.empty());

    // Overlaps count twice: crossing squares leave their overlap open,
    // identical rings cancel.
    double area = 0.0;
    for (const RingPolygon& p : unionOf({square(0, 0, 2), square(1, 1, 2, false)})) {
        area += 0.5 * ringSignedArea2(p.outer);
        for (const Ring& h : p.holes) area += 0.5 * ringSignedArea2(h);
    }
    EXPECT_DOUBLE_EQ(area, 6.0);
    EXPECT_TRUE(unionOf({square(0, 0, 2), square(0, 0, 2, false)}).empty());
}

TEST(TextUnion, SmallRingsVanish) {
    EXPECT_TRUE(unionOf({square(0, 0, 0.3f)}).empty());
    // A small hole goes alone; its polygon stays.
    std::vector<RingPolygon> polygons = unionOf({square(0, 0, 10), square(5, 5, 0.3f)});
    ASSERT_EQ(polygons.size(), 1u);
    EXPECT_TRUE(polygons[0].holes.empty());
    // An outer ring with an edge of 0.008 goes with its hole, but an island
    // inside that hole is still reached.
    const Ring notched{{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 5.008f}, {0.005f, 5.002f}};
    polygons = unionOf({notched, square(2, 2, 6), square(4, 4, 2)});
    ASSERT_EQ(polygons.size(), 1u);
    EXPECT_DOUBLE_EQ(ringSignedArea2(polygons[0].outer), 8.0);
    // Points nearer than 0.005 after the union merge.
    polygons = unionOf({{{0, 0}, {5, 0}, {5.003f, 0.002f}, {5, 5}, {0, 5}}});
    ASSERT_EQ(polygons.size(), 1u);
    EXPECT_EQ(polygons[0].outer.size(), 4u);
}

TEST(TextUnion, BadInputGivesNoPolygons) {
    EXPECT_TRUE(unionOf({}).empty());
    EXPECT_TRUE(unionOf({{}, {{1, 1}}, {{0, 0}, {1, 1}}}).empty());
    // A coordinate without an integer form fails the whole run. Not a number
    // after the first point of a ring is passed over by the clean-up.
    EXPECT_TRUE(unionOf({square(0, 0, 1), {{kNan, 0}, {0, 0}, {1, 1}}}).empty());
    EXPECT_EQ(unionOf({{{0, 0}, {kNan, 0}, {1, 0}, {1, 1}, {0, 1}}}).size(), 1u);
    EXPECT_TRUE(unionOf({square(0, 0, 1), square(1e30f, 0, 1)}).empty());
    EXPECT_EQ(unionOf({square(1e12f, 1e12f, 1e6f)}).size(), 1u); // large but in range
}
