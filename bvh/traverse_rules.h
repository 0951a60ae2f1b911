// What both BVH traversals count as a hit, and when the packed one may pass a box over.
#pragma once

#include <cmath>
#include <limits>

namespace korvex_detail {

// Hits this close to the origin are the surface the ray starts on.
constexpr float kMinHitDistance = 0.001f;

// Slack on the skip tests, for the rounding of the spans themselves: a box's
// span is worked out to a few units of rounding, far inside this.
constexpr float kSpanSlack = 1e-5f;

// No triangle in a box that the line enters only at or past the current
// nearest hit can count: its hit would not be strictly nearer. Nor can one in
// a box the line leaves before the 0.001 floor. The spans must be those of the
// box grown by hitStray, not of the box itself; a NaN span never skips.
inline bool beyondReach(float enter, float nearest) {
    return enter - kSpanSlack * std::fabs(enter) >= nearest;
}

// How far from its triangle the point o + d t of a reported hit may lie.
//
// The triangle test accepts by its computed barycentrics, so a hit may lie a
// little outside the triangle, and so outside the box around it. That little
// is a distance, and along an axis the ray barely moves on it is a long
// stretch of t: a ray grazing a box's face, or with a component of 1e-7, can
// hit a triangle far past where the box's span in t ends. The skip tests
// therefore take the spans of boxes grown by this distance.
//
// The three triple products of the test (a, and the numerators of u, v and
// t) each come out within about 5 units of rounding of the product of their
// factors' lengths. An accepted triangle has |a| >= 1e-6, so with edges no
// longer than `edge`, K = |d| edge^2 / 1e-6 bounds their condition, and to
// first order the barycentrics are off by 5 unit K (S / edge + 1) and the
// distance along d by 5 unit K (S + |d t|), where S, the distance from the
// origin to a corner, and |d t| are at most `reach`. The bound is twice
// that. Where 5 unit K is not small the first-order view fails, and so does
// any bound: infinity, and nothing is passed over.
inline float hitStray(float directionLength, float edge, float reach) {
    constexpr float unit = 5.9604645e-8f; // 2^-24
    const float k = directionLength * edge * edge * 1e6f;
    if (!(5.0f * unit * k < 0.05f) || !std::isfinite(reach))
        return std::numeric_limits<float>::infinity();
    return 2.0f * 5.0f * unit * k * (4.0f * reach + 2.0f * edge) + 4.0f * unit * reach;
}

} // namespace korvex_detail
