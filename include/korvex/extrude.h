// Text solids: ring clean-up, extrusion of a contour list into a closed mesh,
// and alignment of the result. A contour list is a flat list of closed rings
// (no tag for outer or hole, a repeated closing point allowed), as the font
// outline stage produces it.
#pragma once

#include <korvex/records.h>

#include <functional>
#include <vector>

// Cleans one ring in place with the distance `limit` (squared inside):
// drops the last point when it lies closer than `limit` to the first, then
// keeps only points farther than `limit` from the last point kept. Rings of 0
// or 1 point stay as they are.
KORVEX_API void normalizeRing(std::vector<vec2>& ring, float limit);

// Turns `contours` into a closed triangle mesh, appended to `vertices` and
// `indices` (never cleared). The rings are cleaned and merged under the
// even-odd rule first, so direction and overlap of the input do not matter;
// rings too small to use (area below 0.1 or an edge below 0.01, in contour
// units) are dropped.
//
// Per polygon: one front vertex per ring point at (shiftX + x, shiftY + y,
// height(shiftX + x, shiftY + y)), normal (0, 0, 1), or (0, 0, -1) for a
// negative depth; then one back vertex per point, `depth` lower in z with the
// normal negated. Indices: the front cap, the back cap (reversed), then the
// walls ring by ring. With a positive depth every face points outward.
//
// An empty `height` raises std::bad_function_call before anything is
// appended, unless no polygon survives the clean-up.
KORVEX_API void extrudeWithContours(const std::vector<std::vector<vec2>>& contours, float depth,
                                    float shiftX, float shiftY,
                                    std::vector<kvx::nsVertex>& vertices,
                                    std::vector<unsigned>& indices,
                                    const std::function<float(float, float)>& height);

// Moves the vertices so that the x range is centred on 0 and the smallest y
// becomes 0; z is untouched. An empty list is left alone.
KORVEX_API void alignTextBottomCenter(std::vector<kvx::nsVertex>& vertices);
