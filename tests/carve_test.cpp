// Carving text out of a surface outline: non-zero difference, integer
// conversion truncating in single precision.
#include "text_mesh_check.h"

#include <korvex/carve.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;

namespace {

Ring rect(float x0, float y0, float x1, float y1, bool ccw = true) {
    Ring r{{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
    if (!ccw) std::reverse(r.begin(), r.end());
    return r;
}

// A capital O as a font gives it: each ring closed on a repeat of its first
// point, the counter running against the outer ring unless `sameWay`.
Rings letterO(float x, float y, bool sameWay = false) {
    Rings o{rect(x, y, x + 4, y + 6, false), rect(x + 1, y + 1, x + 3, y + 5, !sameWay)};
    for (Ring& r : o) r.push_back(r.front());
    return o;
}

std::vector<double> signedAreas(const Rings& rings) {
    std::vector<double> areas;
    for (const Ring& r : rings) areas.push_back(textcheck::shoelace(r));
    std::sort(areas.begin(), areas.end());
    return areas;
}

bool samePoints(Ring a, Ring b) {
    auto less = [](const vec2& p, const vec2& q) { return p.x < q.x || (p.x == q.x && p.y < q.y); };
    std::sort(a.begin(), a.end(), less);
    std::sort(b.begin(), b.end(), less);
    return a == b;
}

} // namespace

TEST(Carve, WithoutTextTheOutlineMakesTheTripThroughTheIntegers) {
    // Truncation in single precision: 0.7f * 100000 is exactly 70000 in
    // float (69999.9988 in double), 5.7f likewise gives 570000, and 1562.5
    // truncates to 1562 on either side of zero.
    const Rings result = CarveTextFromSurface(rect(-0.7f, -0.015625f, 10.015625f, 5.7f, false), {});
    ASSERT_EQ(result.size(), 1u);
    EXPECT_TRUE(samePoints(result[0], rect(-0.7f, -0.01562f, 10.01562f, 5.7f)));
    EXPECT_GT(textcheck::shoelace(result[0]), 0.0); // direction as the clipper delivers it

    EXPECT_TRUE(CarveTextFromSurface({}, letterO(0, 0)).empty());
    const Rings outside = CarveTextFromSurface(rect(0, 0, 10, 10), letterO(20, 0));
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_TRUE(samePoints(outside[0], rect(0, 0, 10, 10)));
}

TEST(Carve, RingDirectionDecidesWhatIsCut) {
    // The counter of an O runs against its outer ring: winding 0, so its
    // island stays: outline, a hole for the letter, the island.
    const Rings o = CarveTextFromSurface(rect(0, 0, 10, 10), letterO(3, 2));
    EXPECT_EQ(signedAreas(o), std::vector<double>({-24.0, 8.0, 100.0}));
    for (const Ring& r : o) EXPECT_NE(r.front(), r.back()); // no closing repeat
    // Both rings running the same way are both cut.
    EXPECT_EQ(signedAreas(CarveTextFromSurface(rect(0, 0, 10, 10), letterO(3, 2, true))),
              std::vector<double>({-24.0, 100.0}));
    // Overlapping glyphs running the same way are cut as their union.
    EXPECT_EQ(
        signedAreas(CarveTextFromSurface(rect(0, 0, 10, 10), {rect(1, 1, 5, 5), rect(3, 3, 7, 7)})),
        std::vector<double>({-28.0, 100.0}));
    // Across the edge: a notch, no hole.
    EXPECT_EQ(signedAreas(CarveTextFromSurface(rect(0, 0, 10, 10), {rect(8, 2, 12, 4)})),
              std::vector<double>({96.0}));
}

TEST(Carve, BadInputGivesAnEmptyResult) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(CarveTextFromSurface(rect(0, 0, 10, 10), {{{1, 1}, {nan, 1}, {2, 2}}}).empty());
    EXPECT_TRUE(CarveTextFromSurface({{0, 0}, {1e30f, 0}, {0, 1}}, {}).empty());
    EXPECT_TRUE(CarveTextFromSurface({{0, 0}, {1, 1}}, {}).empty()); // no area
    // Short text rings enclose nothing and cut nothing.
    EXPECT_EQ(CarveTextFromSurface(rect(0, 0, 10, 10), {{}, {{1, 1}}, {{1, 1}, {2, 2}}}).size(),
              1u);
}
