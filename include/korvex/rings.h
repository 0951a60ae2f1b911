// Rays against flat rings: circle, ring, arc and the flat torus of rotation
// handles. Each intersects the ray with the ring's plane and then looks at
// where the hit lies; none is a curved-surface test. They differ on purpose
// in what they normalise, their parallel limit, the side of the plane they
// accept and what they write. Single precision, angles in radians. A miss
// leaves the out value unwritten; a null pointer only means nothing is written.
#pragma once

#include <korvex/records.h>

// Direction and normal normalised (copies). Parallel when |dot(d, n)| <
// 0.0001. A plane behind the origin is not a miss: t is replaced by |t|, so
// the point tested is the mirror of the plane hit ahead of the origin. Hit
// when inner <= |p - centre| <= outer.
KORVEX_API bool IntersectRayWithCircle(vec3 origin, vec3 direction, vec3 center, vec3 normal,
                                       float innerRadius, float outerRadius);

// Direction as given, normal normalised. Parallel when |dot(d, n)| < 1e-6;
// misses when dot(d, n) > 0 (the ray must run against the normal) or t < 0.
// Hit when inner <= r <= outer; writes t to `distance`.
KORVEX_API bool IntersectRayWithCirclePrecise(const vec3& origin, const vec3& direction,
                                              const vec3& center, const vec3& normal,
                                              float innerRadius, float outerRadius,
                                              float* distance);

// Direction as given, axis normalised. Parallel when |dot(d, n)| < 1e-6;
// misses when t < 0. r is the distance of the plane hit from the axis. Hit
// when |r - ringRadius| <= tolerance; writes the picking score
// t * 0.01 + |r - ringRadius| (lower is better; t in units of |d|).
KORVEX_API bool IntersectRayWithTorusApprox(const vec3& origin, const vec3& direction,
                                            const vec3& center, const vec3& axis, float ringRadius,
                                            float tolerance, float* score);

// Direction and normal as given. Parallel when |dot(d, n)| < 1e-6; misses
// when t < 0. Hit when ringRadius - halfWidth <= r <= ringRadius + halfWidth
// and the hit's angle from `startDirection` (unit, in the plane), turning
// positively about the normal, lies in 0..sweepAngle. Angles come from acos,
// so they run from -pi to pi: a sweep beyond pi covers no more than a half
// turn. Writes t to `distance`.
KORVEX_API bool IntersectRayWithArc(const vec3& origin, const vec3& direction, const vec3& center,
                                    const vec3& normal, const vec3& startDirection,
                                    float sweepAngle, float ringRadius, float halfWidth,
                                    float* distance);
