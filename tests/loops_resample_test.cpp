#include <korvex/loops.h>

#include "test_meshes.h"

#include <gtest/gtest.h>

#include <cmath>

using meshGeometry::decimate;
using meshGeometry::resampleLoopToCount;

namespace {

const std::vector<vec3> kSquare{vec3(0, 0, 0), vec3(1, 0, 0), vec3(1, 1, 0), vec3(0, 1, 0)};

std::vector<vec3> onX(std::initializer_list<float> xs) {
    std::vector<vec3> points;
    for (float x : xs) points.emplace_back(x, 0, 0);
    return points;
}

// A real outline: the bunny's cross-section at y = 0.1, walked by orderLoop.
std::vector<vec3> bunnySection() {
    std::vector<vec3> loop;
    testmesh::LogCapture quiet;
    meshGeometry::orderLoop(testmesh::sliceEdges(testmesh::bunny(), 0.1f), loop);
    return loop;
}

} // namespace

TEST(ResampleLoop, KnownPointsOnSmallLoops) {
    // Fewer than 2 points or a count below 3: a copy.
    EXPECT_TRUE(resampleLoopToCount({}, 5).empty());
    EXPECT_EQ(resampleLoopToCount({vec3(1, 2, 3)}, 5), std::vector<vec3>{vec3(1, 2, 3)});
    for (int count : {2, -7}) EXPECT_EQ(resampleLoopToCount(kSquare, count), kSquare);

    // Two points 5 apart: work list p, q, p of perimeter 10; q lies on the first segment's end
    // (t = 1), the strict test keeps it there.
    const vec3 p(0, 0, 0), q(3, 4, 0), mid(1.5f, 2, 0);
    EXPECT_EQ(resampleLoopToCount({p, q}, 4), (std::vector<vec3>{p, mid, q, mid}));

    // A square gives its corners, closed implicitly, explicitly, or within 1e-5.
    EXPECT_EQ(resampleLoopToCount(kSquare, 4), kSquare);
    std::vector<vec3> closed = kSquare;
    closed.push_back(kSquare.front());
    EXPECT_EQ(resampleLoopToCount(closed, 4), kSquare);
    // A last point 2e-5 from the first gets a closing segment: perimeter 4, the corners again.
    // At 9e-6 it counts as closing the loop: the perimeter falls short, the corners drift.
    closed.back() = vec3(0, 2e-5f, 0);
    const std::vector<vec3> farGap = resampleLoopToCount(closed, 4);
    for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(glm::distance(farGap[i], kSquare[i]), 0, 1e-6);
    closed.back() = vec3(0, 9e-6f, 0);
    EXPECT_GT(resampleLoopToCount(closed, 4).at(3).x, 5e-6f);

    // A repeated corner is a segment of length 0, passed over without dividing by it.
    const std::vector<vec3> repeated{kSquare[0], kSquare[1], kSquare[1], kSquare[2], kSquare[3]};
    EXPECT_EQ(
        resampleLoopToCount(repeated, 8),
        (std::vector<vec3>{vec3(0, 0, 0), vec3(0.5f, 0, 0), vec3(1, 0, 0), vec3(1, 0.5f, 0),
                           vec3(1, 1, 0), vec3(0.5f, 1, 0), vec3(0, 1, 0), vec3(0, 0.5f, 0)}));
    const vec3 r(2, -1, 4);
    EXPECT_EQ(resampleLoopToCount({r, r, r}, 6), std::vector<vec3>(6, r));
}

TEST(ResampleLoop, RealOutlineGetsEqualArcLengthSpacing) {
    const std::vector<vec3> section = bunnySection();
    ASSERT_GT(section.size(), 50u);
    // Arc-length walk in double: the oracle for each resampled point.
    const auto pointAt = [&](double at) {
        for (size_t i = 0; i < section.size(); ++i) {
            const glm::dvec3 p(section[i]), q(section[(i + 1) % section.size()]);
            const double length = glm::distance(p, q);
            if (at <= length && length > 0.0) return vec3(p + (q - p) * (at / length));
            at -= length;
        }
        return section.front();
    };
    double perimeter = 0.0;
    for (size_t i = 0; i < section.size(); ++i)
        perimeter +=
            glm::distance(glm::dvec3(section[i]), glm::dvec3(section[(i + 1) % section.size()]));
    for (int count : {3, 64, 1000}) {
        SCOPED_TRACE(count);
        const std::vector<vec3> resampled = resampleLoopToCount(section, count);
        ASSERT_EQ(resampled.size(), size_t(count));
        EXPECT_EQ(resampled.front(), section.front());
        for (int k = 0; k < count; ++k)
            EXPECT_NEAR(glm::distance(resampled[k], pointAt(k * perimeter / count)), 0.0, 2e-5)
                << "point " << k;
    }
}

TEST(Decimate, KeepsPointsStrictlyFartherThanTheToleranceFromTheLastKept) {
    EXPECT_TRUE(decimate({}, 0.5f).empty());
    EXPECT_EQ(decimate({vec3(1, 2, 3)}, 0.0f), std::vector<vec3>{vec3(1, 2, 3)});
    // Exactly the tolerance apart is not farther; the far end gets the first point appended.
    EXPECT_EQ(decimate(onX({0, 1, 2, 3}), 1.0f), onX({0, 2, 0}));
    // Measured to the last point kept, not to the previous input point.
    EXPECT_EQ(decimate(onX({0, 0.6f, 1.2f, 1.8f, 2.4f}), 1.0f), onX({0, 1.2f, 2.4f, 0}));
    // Tolerance 0 drops only repeats.
    EXPECT_EQ(decimate(onX({0, 0, 1, 1, 1, 2, 0}), 0.0f), onX({0, 1, 2, 0}));
    EXPECT_EQ(decimate(onX({0, 0.1f, -0.2f, 0.3f}), 0.5f), onX({0}));
    // A last kept point within the tolerance of the first: no closing copy.
    EXPECT_EQ(decimate(onX({0, 2, 4, 2.5f, 0.75f}), 1.0f), onX({0, 2, 4, 2.5f, 0.75f}));
    // No distance is greater than NaN; every one is greater than a negative tolerance; a NaN
    // point is never farther than the tolerance.
    EXPECT_EQ(decimate(onX({0, 0, 1}), std::nanf("")), onX({0}));
    EXPECT_EQ(decimate(onX({0, 0, 1}), -1.0f).size(), 4u);
    EXPECT_EQ(decimate({vec3(0), vec3(std::nanf(""), 0, 0), vec3(2, 0, 0)}, 0.5f), onX({0, 2, 0}));
}

TEST(Decimate, ThinsARealOutline) {
    const std::vector<vec3> section = bunnySection();
    for (float tolerance : {0.0f, 0.005f, 0.1f}) {
        SCOPED_TRACE(tolerance);
        std::vector<vec3> kept = decimate(section, tolerance);
        ASSERT_GE(kept.size(), 2u);
        // The closing copy is there exactly when the last kept point is far from the first.
        const bool closedByCopy = kept.back() == kept.front();
        if (closedByCopy) kept.pop_back();
        EXPECT_EQ(closedByCopy, glm::distance(kept.back(), kept.front()) > tolerance);
        // An ordered subsequence of the input, kept points more than the tolerance apart, each
        // dropped point within it of the last kept.
        size_t j = 0;
        for (size_t i = 0; i < kept.size(); ++i) {
            if (i > 0) {
                EXPECT_GT(glm::distance(kept[i], kept[i - 1]), tolerance);
            }
            ASSERT_EQ(section.at(j), kept[i]);
            for (++j; j < section.size() && (i + 1 == kept.size() || section[j] != kept[i + 1]);
                 ++j)
                EXPECT_LE(glm::distance(section[j], kept[i]), tolerance);
        }
        if (tolerance == 0.0f) {
            EXPECT_EQ(kept.size(), section.size());
        }
    }
}
