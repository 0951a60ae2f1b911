// Measures and clean-up passes for single rings (closed point lists, a
// repeated closing point allowed). Internal to the library; the exported
// normalizeRing is declared in korvex/extrude.h.
#pragma once

#include <korvex/records.h>

#include <vector>

namespace textgeom {

// Squared distance, in single precision as the clean-up limits are given.
inline float distanceSq(const vec2& a, const vec2& b) {
    const float dx = b.x - a.x;
    const float dy = b.y - a.y;
    return dx * dx + dy * dy;
}

// A mesh vertex of the text solids: the tangent frame is not computed and is
// left at zero rather than undefined, as is uv.
inline kvx::nsVertex solidVertex(const vec3& position, const vec3& normal) {
    kvx::nsVertex v(position, normal);
    v.tangent = vec3(0.0f);
    v.bitangent = vec3(0.0f);
    v.uv = vec2(0.0f, 0.0f);
    return v;
}

// Twice the signed area (shoelace, summed in double; positive when the points
// turn from +x towards +y). 0 for an empty ring.
double ringSignedArea2(const std::vector<vec2>& ring);

// True when the ring has fewer than 3 points, an area below 0.1, or an edge
// (the closing one included) whose squared length is below 0.0001.
bool isRingDegenerate(const std::vector<vec2>& ring);

// Drops a point only when it is collinear (|cross| <= limit) and within
// 0.001 of the last point kept. Neighbours are read from the unchanged input.
// Rings of fewer than 3 points are left alone.
void dropCollinearDuplicates(std::vector<vec2>& ring, float limit);

} // namespace textgeom
