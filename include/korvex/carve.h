// Text cut out of a surface outline, and contours laid on a plane as an
// engraved slab. Neither goes through the ring clean-up of extrude.h.
#pragma once

#include <korvex/records.h>

#include <vector>

// The surface outline minus the text, under the non-zero rule, so ring
// direction decides what is cut: the counter of a letter whose rings run
// opposite ways stays as an island. Coordinates pass through integers at a
// scale of 100000, truncated toward zero in single precision. The result is
// flat: outer rings (positive area) and holes (negative) side by side, rings
// of fewer than 3 points dropped. Empty when the outline is empty or the
// clipping fails (also for coordinates that are not finite or too large).
KORVEX_API std::vector<std::vector<vec2>>
CarveTextFromSurface(const std::vector<vec2>& surface,
                     const std::vector<std::vector<vec2>>& textContours);

// Replaces `vertices` and `indices` with a slab over the plane through
// `origin` spanned by `axisU` (2D x) and `axisV` (2D y): a top layer on the
// plane, a bottom layer `depth` × normal behind it, and flat-shaded walls
// (four vertices per ring edge). Each ring is filled by itself with a simple
// ear clipper, so a ring needs positive area to fill and holes are not cut.
//
// Vertex order: the n collected points on top (normal `normal`), the same n
// points at the bottom (normal negated), then A, B, B', A' per ring edge.
// Index order: top triangles, bottom triangles (reversed), walls.
KORVEX_API void GenerateEngravedMeshFromContours(const std::vector<std::vector<vec2>>& contours,
                                                 const vec3& origin, const vec3& axisU,
                                                 const vec3& axisV, const vec3& normal, float depth,
                                                 std::vector<kvx::nsVertex>& vertices,
                                                 std::vector<unsigned>& indices);
