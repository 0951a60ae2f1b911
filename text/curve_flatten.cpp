// Adaptive flattening of the quadratic and cubic segments of glyph outlines.
#include <korvex/font.h>

#include <cmath>

namespace {

// A quadratic is split until its tolerance is met, as deep as that takes when the tolerance is
// positive: each split quarters its deviation, and where rounding stops the points from moving,
// the deviation comes out 0 (the halving is exact) or a half repeats its whole (see `repeats`).
// 64 levels and 2^20 splits per curve bound it in every case. A tolerance that can never be met
// (zero, negative) stops at 12 levels, 16^12 ~ 2.8e14 below the starting squared deviation.
//
// Cubics stop at 12 levels for any tolerance: their thirds are rounded, so near the resolution
// of float their measure need not reach 0 and a deep split could run on through every branch.
constexpr int kCappedDepth = 12;
constexpr int kMaxQuadDepth = 64;
constexpr size_t kMaxQuadSplits = size_t(1) << 20;

// A curve that cannot be measured (NaN tolerance, NaN or infinite points) is
// left as its chord rather than split without end.
bool stopSplitting(float squaredDeviation, float tolerance, int depth, int maxDepth) {
    return tolerance >= squaredDeviation || depth >= maxDepth || !std::isfinite(squaredDeviation) ||
           std::isnan(tolerance);
}

// True when a half is its whole again: splitting it would repeat forever.
bool repeats(const vec2 (&half)[3], const vec2 (&whole)[3]) {
    return half[0] == whole[0] && half[1] == whole[1] && half[2] == whole[2];
}

struct QuadLimits {
    int maxDepth;
    size_t splitsLeft;
};

void flattenQuad(std::vector<vec2>& ring, const vec2& p0, const vec2& c, const vec2& p1,
                 float tolerance, int depth, QuadLimits& limits) {
    const vec2 d = c - (p0 + p1) * 0.5f;
    if (stopSplitting(glm::dot(d, d), tolerance, depth, limits.maxDepth) ||
        limits.splitsLeft == 0) {
        ring.push_back(p1);
        return;
    }
    const vec2 l = (p0 + c) * 0.5f;
    const vec2 r = (c + p1) * 0.5f;
    const vec2 m = (l + r) * 0.5f;
    const vec2 whole[3] = {p0, c, p1}, first[3] = {p0, l, m}, second[3] = {m, r, p1};
    if (repeats(first, whole) || repeats(second, whole)) {
        ring.push_back(p1);
        return;
    }
    --limits.splitsLeft;
    flattenQuad(ring, p0, l, m, tolerance, depth + 1, limits);
    flattenQuad(ring, m, r, p1, tolerance, depth + 1, limits);
}

void flattenCubic(std::vector<vec2>& ring, const vec2& p0, const vec2& c1, const vec2& c2,
                  const vec2& p1, float tolerance, int depth) {
    // Control points against the chord's thirds, scaled by 1.5 so that a
    // degree-raised quadratic measures exactly its quadratic deviation.
    const vec2 d1 = (c1 - (p0 * 2.0f + p1) / 3.0f) * 1.5f;
    const vec2 d2 = (c2 - (p0 + p1 * 2.0f) / 3.0f) * 1.5f;
    const float s1 = glm::dot(d1, d1);
    const float s2 = glm::dot(d2, d2);
    const float squaredDeviation = (std::isnan(s1) || s1 > s2) ? s1 : s2; // NaN wins
    if (stopSplitting(squaredDeviation, tolerance, depth, kCappedDepth)) {
        ring.push_back(p1);
        return;
    }
    const vec2 p01 = (p0 + c1) * 0.5f;
    const vec2 p12 = (c1 + c2) * 0.5f;
    const vec2 p23 = (c2 + p1) * 0.5f;
    const vec2 p012 = (p01 + p12) * 0.5f;
    const vec2 p123 = (p12 + p23) * 0.5f;
    const vec2 m = (p012 + p123) * 0.5f;
    flattenCubic(ring, p0, p01, p012, m, tolerance, depth + 1);
    flattenCubic(ring, m, p123, p23, p1, tolerance, depth + 1);
}

} // namespace

void addQuadAdaptive(std::vector<vec2>& ring, const vec2& p0, const vec2& control, const vec2& p1,
                     float tolerance) {
    QuadLimits limits{tolerance > 0.0f ? kMaxQuadDepth : kCappedDepth, kMaxQuadSplits};
    flattenQuad(ring, p0, control, p1, tolerance, 0, limits);
}

void addCubicAdaptive(std::vector<vec2>& ring, const vec2& p0, const vec2& c1, const vec2& c2,
                      const vec2& p1, float tolerance) {
    flattenCubic(ring, p0, c1, c2, p1, tolerance, 0);
}
