#include <korvex/loops.h>

#include "loops_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using meshGeometry::decimate;
using meshGeometry::resampleLoopToCount;

namespace {

const std::vector<vec3> kSquare{vec3(0, 0, 0), vec3(1, 0, 0), vec3(1, 1, 0), vec3(0, 1, 0)};

// The point at arc length `at` along the closed polyline, walked in double.
vec3 pointAtArcLength(const std::vector<vec3>& loop, double at) {
    for (size_t i = 0; i < loop.size(); ++i) {
        const glm::dvec3 p(loop[i]), q(loop[(i + 1) % loop.size()]);
        const double length = glm::distance(p, q);
        if (at <= length && length > 0.0) return vec3(p + (q - p) * (at / length));
        at -= length;
    }
    return loop.front();
}

double perimeterOf(const std::vector<vec3>& loop) {
    double sum = 0.0;
    for (size_t i = 0; i < loop.size(); ++i) {
        sum += glm::distance(glm::dvec3(loop[i]), glm::dvec3(loop[(i + 1) % loop.size()]));
    }
    return sum;
}

// A real outline: the bunny's cross-section at y = 0.1, walked by orderLoop.
std::vector<vec3> bunnySection() {
    const loopstest::ObjMesh& bunny = loopstest::bunny();
    const float c = 0.1f;
    std::unordered_set<Edge, EdgeHash> cut;
    for (size_t t = 0; t < bunny.indices.size(); t += 3) {
        std::vector<vec3> ends;
        for (int k = 0; k < 3; ++k) {
            unsigned i = bunny.indices[t + k], j = bunny.indices[t + (k + 1) % 3];
            if ((bunny.positions[i].y < c) == (bunny.positions[j].y < c)) continue;
            if (i > j) std::swap(i, j);
            const vec3 p = bunny.positions[i], q = bunny.positions[j];
            ends.push_back(p + (q - p) * ((c - p.y) / (q.y - p.y)));
        }
        if (ends.size() == 2) cut.insert(Edge(ends[0], ends[1]));
    }
    std::vector<vec3> loop;
    loopstest::LogCapture quiet;
    meshGeometry::orderLoop(cut, loop);
    return loop;
}

} // namespace

TEST(ResampleLoop, ShortInputOrCountBelow3ReturnsACopy) {
    EXPECT_TRUE(resampleLoopToCount({}, 5).empty());
    EXPECT_EQ(resampleLoopToCount({vec3(1, 2, 3)}, 5), std::vector<vec3>{vec3(1, 2, 3)});
    for (int count : {2, 1, 0, -7}) EXPECT_EQ(resampleLoopToCount(kSquare, count), kSquare);
}

TEST(ResampleLoop, SmallLoopsLandOnKnownPoints) {
    // Two points 5 apart: the work list p, q, p has perimeter 10; positions
    // 2.5, 5 and 7.5 give the midpoint, q (t = 1 on the first segment) and
    // the midpoint again.
    const vec3 p(0, 0, 0), q(3, 4, 0), mid(1.5f, 2, 0);
    EXPECT_EQ(resampleLoopToCount({p, q}, 4), (std::vector<vec3>{p, mid, q, mid}));

    // A unit square to 4 points gives its corners, closed implicitly or not.
    EXPECT_EQ(resampleLoopToCount(kSquare, 4), kSquare);
    std::vector<vec3> closed = kSquare;
    closed.push_back(kSquare.front());
    EXPECT_EQ(resampleLoopToCount(closed, 4), kSquare);
    // A last point within 1e-5 of the first counts as closing the loop.
    closed.back() = vec3(0, 5e-6f, 0);
    const std::vector<vec3> nearlyClosed = resampleLoopToCount(closed, 4);
    ASSERT_EQ(nearlyClosed.size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(glm::distance(nearlyClosed[i], kSquare[i]), 0, 1e-5);

    // To 8 points: corners and side midpoints. To 5: corners are cut.
    const std::vector<vec3> eight = resampleLoopToCount(kSquare, 8);
    EXPECT_EQ(eight, (std::vector<vec3>{vec3(0, 0, 0), vec3(0.5f, 0, 0), vec3(1, 0, 0),
                                        vec3(1, 0.5f, 0), vec3(1, 1, 0), vec3(0.5f, 1, 0),
                                        vec3(0, 1, 0), vec3(0, 0.5f, 0)}));
    const std::vector<vec3> five = resampleLoopToCount(kSquare, 5);
    const vec3 expected[] = {vec3(0, 0, 0), vec3(0.8f, 0, 0), vec3(1, 0.6f, 0), vec3(0.6f, 1, 0),
                             vec3(0, 0.8f, 0)};
    ASSERT_EQ(five.size(), 5u);
    for (size_t i = 0; i < 5; ++i) EXPECT_NEAR(glm::distance(five[i], expected[i]), 0, 1e-6);
}

TEST(ResampleLoop, RepeatedAndCoincidentPointsGiveNoNaN) {
    // A repeated corner is a segment of length 0: passed over, not divided by.
    const std::vector<vec3> repeated{kSquare[0], kSquare[1], kSquare[1], kSquare[2], kSquare[3]};
    EXPECT_EQ(resampleLoopToCount(repeated, 8), resampleLoopToCount(kSquare, 8));
    // A loop of one point repeated has no length: every entry is that point.
    const vec3 p(2, -1, 4);
    EXPECT_EQ(resampleLoopToCount({p, p, p}, 6), std::vector<vec3>(6, p));
}

TEST(ResampleLoop, RealOutlineGetsEqualArcLengthSpacing) {
    const std::vector<vec3> section = bunnySection();
    ASSERT_GT(section.size(), 50u);
    const double perimeter = perimeterOf(section);
    for (int count : {3, 17, 64, 1000}) {
        SCOPED_TRACE(count);
        const std::vector<vec3> resampled = resampleLoopToCount(section, count);
        ASSERT_EQ(resampled.size(), size_t(count));
        EXPECT_EQ(resampled.front(), section.front());
        const double spacing = perimeter / count;
        for (int k = 0; k < count; ++k) {
            EXPECT_NEAR(glm::distance(resampled[k], pointAtArcLength(section, k * spacing)), 0.0,
                        2e-5)
                << "point " << k;
            // A chord is never longer than the arc it spans.
            const vec3 next = resampled[(k + 1) % count];
            EXPECT_LE(glm::distance(resampled[k], next), spacing + 1e-5);
        }
    }
}

TEST(Decimate, KeepsPointsStrictlyFartherThanTheToleranceFromTheLastKept) {
    EXPECT_TRUE(decimate({}, 0.5f).empty());
    const vec3 p(1, 2, 3);
    EXPECT_EQ(decimate({p}, 0.0f), std::vector<vec3>{p});
    EXPECT_EQ(decimate({p}, 1.0f), std::vector<vec3>{p});

    auto onX = [](std::initializer_list<float> xs) {
        std::vector<vec3> points;
        for (float x : xs) points.emplace_back(x, 0, 0);
        return points;
    };
    // Exactly the tolerance apart is not farther: 1 and 3 go, and the far end
    // 2 gets the first point appended to close the loop.
    EXPECT_EQ(decimate(onX({0, 1, 2, 3}), 1.0f), onX({0, 2, 0}));
    // Distance is to the last point kept, not to the previous input point.
    EXPECT_EQ(decimate(onX({0, 0.6f, 1.2f, 1.8f, 2.4f}), 1.0f), onX({0, 1.2f, 2.4f, 0}));
    // Tolerance 0 drops only repeats, and closes when the end differs.
    EXPECT_EQ(decimate(onX({0, 0, 1, 1, 1, 2, 0}), 0.0f), onX({0, 1, 2, 0}));
    EXPECT_EQ(decimate(onX({0, 0, 1, 2}), 0.0f), onX({0, 1, 2, 0}));
    // Everything within the tolerance of the first: the first alone.
    EXPECT_EQ(decimate(onX({0, 0.1f, -0.2f, 0.3f}), 0.5f), onX({0}));
    // A last kept point within the tolerance of the first: no closing copy.
    EXPECT_EQ(decimate(onX({0, 2, 4, 2.5f, 0.75f}), 1.0f), onX({0, 2, 4, 2.5f, 0.75f}));
}

TEST(Decimate, ThinsARealOutline) {
    const std::vector<vec3> section = bunnySection();
    for (float tolerance : {0.0f, 0.005f, 0.02f, 0.1f}) {
        SCOPED_TRACE(tolerance);
        std::vector<vec3> kept = decimate(section, tolerance);
        ASSERT_GE(kept.size(), 2u);
        EXPECT_EQ(kept.front(), section.front());
        // The closing copy is there exactly when the last kept point is far
        // from the first; set it aside for the checks below.
        const bool closedByCopy = kept.back() == kept.front();
        if (closedByCopy) kept.pop_back();
        EXPECT_EQ(closedByCopy, glm::distance(kept.back(), kept.front()) > tolerance);
        // An ordered subsequence of the input, kept points more than the
        // tolerance apart, and each dropped point within it of the last kept.
        size_t j = 0;
        for (size_t i = 0; i < kept.size(); ++i) {
            if (i > 0) {
                EXPECT_GT(glm::distance(kept[i], kept[i - 1]), tolerance);
            }
            ASSERT_LT(j, section.size());
            ASSERT_EQ(section[j], kept[i]);
            for (++j; j < section.size() && (i + 1 == kept.size() || section[j] != kept[i + 1]);
                 ++j) {
                EXPECT_LE(glm::distance(section[j], kept[i]), tolerance);
            }
        }
        if (tolerance == 0.0f) {
            EXPECT_EQ(kept.size(), section.size());
        }
    }
}

TEST(Decimate, NaNAndNegativeTolerances) {
    const std::vector<vec3> points{vec3(0, 0, 0), vec3(0, 0, 0), vec3(1, 0, 0)};
    // No distance is greater than NaN: only the first point stays.
    EXPECT_EQ(decimate(points, std::nanf("")), std::vector<vec3>{vec3(0, 0, 0)});
    // Every distance is greater than a negative tolerance, repeats included.
    EXPECT_EQ(decimate(points, -1.0f).size(), 4u);
    // A NaN point is never farther than the tolerance, so it is dropped.
    EXPECT_EQ(decimate({vec3(0, 0, 0), vec3(std::nanf(""), 0, 0), vec3(2, 0, 0)}, 0.5f),
              (std::vector<vec3>{vec3(0, 0, 0), vec3(2, 0, 0), vec3(0, 0, 0)}));
}
