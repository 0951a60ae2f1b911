// What both BVH traversals count as a hit, and when they may pass a box over.
#pragma once

#include <cmath>

namespace korvex_detail {

// Hits this close to the origin are the surface the ray starts on.
constexpr float kMinHitDistance = 0.001f;

// Slack on the skip tests below. The triangle test's t and the box's span
// are computed differently; only for a triangle seen almost edge-on, where
// the triangle test itself is unreliable, can they differ by this much.
constexpr float kSpanSlack = 0.01f;

// No triangle in a box that the line leaves before the 0.001 floor, or enters
// only at or past the current nearest hit, can count: its hit would not be
// strictly nearer. A NaN or infinite span never skips.
inline bool beyondReach(float enter, float nearest) {
    return enter - kSpanSlack * std::fabs(enter) >= nearest;
}
inline bool behindFloor(float exit) {
    return exit + kSpanSlack * std::fabs(exit) <= kMinHitDistance;
}

} // namespace korvex_detail
