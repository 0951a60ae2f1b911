// From a raw contour list to polygons with holes: per-ring clean-up, an
// even-odd union in integer coordinates, and a walk of the union's tree that
// pairs each outer ring with its holes. Internal to the library.
#pragma once

#include "text/clipping.h"

#include <korvex/records.h>

#include <vector>

namespace textgeom {

// Integer units per contour unit used by the text stages.
constexpr double kClipScale = 100000.0;

// An outer ring (positive area) and its holes (negative area), none with a
// repeated closing point.
struct RingPolygon {
    std::vector<vec2> outer;
    std::vector<std::vector<vec2>> holes;
};

// One path per ring, in ring order (also for rings below 3 points): each
// coordinate llround(double(v) * scale); one without an integer form becomes
// kNoCoord.
Paths64 ringsToPaths64(const std::vector<std::vector<vec2>>& contours, double scale);

// Each point back to float(double(X) / scale).
std::vector<vec2> pathToRing(const Path64& path, double scale);

// Cleans a copy of every ring (normalizeRing 0.001, dropCollinearDuplicates
// 0.0001) and writes their even-odd union into `tree`. Ring direction plays no
// part; where the rings overlap an even number of times there is a hole. A
// failed run leaves the tree empty.
void unionRingsToTree(const std::vector<std::vector<vec2>>& contours, PolyTree64& tree,
                      double scale);

// Appends the polygons of the subtree at `node` (a child of the root, or any
// node below), depth first, each polygon before the islands in its holes.
// Rings are cleaned again (normalizeRing 0.005, dropCollinearDuplicates
// 0.0005); a degenerate outer ring drops its polygon with all its holes, a
// degenerate hole drops only itself. Directions are fixed: outer positive,
// holes negative.
void collectPolygons(const PolyPath64& node, double scale, std::vector<RingPolygon>& polygons);

} // namespace textgeom
