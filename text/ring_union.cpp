#include "text/ring_union.h"

#include "text/ring_cleanup.h"

#include <korvex/extrude.h>

#include <algorithm>
#include <utility>

namespace textgeom {

namespace {

// Limits of the two clean-up passes, in contour units.
constexpr float kInputMergeDistance = 0.001f;
constexpr float kInputCollinearLimit = 0.0001f;
constexpr float kOutputMergeDistance = 0.005f;
constexpr float kOutputCollinearLimit = 0.0005f;

std::vector<vec2> cleanedRing(const Path64& path, double scale) {
    std::vector<vec2> ring = pathToRing(path, scale);
    normalizeRing(ring, kOutputMergeDistance);
    dropCollinearDuplicates(ring, kOutputCollinearLimit);
    return ring;
}

// A hole is a node at an even, non-zero depth.
bool isHoleLevel(int level) {
    return level != 0 && level % 2 == 0;
}

} // namespace

Paths64 ringsToPaths64(const std::vector<std::vector<vec2>>& contours, double scale) {
    Paths64 paths;
    paths.reserve(contours.size());
    for (const std::vector<vec2>& ring : contours) {
        Path64 path;
        path.reserve(ring.size());
        for (const vec2& p : ring)
            path.emplace_back(roundToCoord(double(p.x) * scale), roundToCoord(double(p.y) * scale));
        paths.push_back(std::move(path));
    }
    return paths;
}

std::vector<vec2> pathToRing(const Path64& path, double scale) {
    std::vector<vec2> ring;
    ring.reserve(path.size());
    for (const Point64& p : path)
        ring.emplace_back(float(double(p.X) / scale), float(double(p.Y) / scale));
    return ring;
}

void unionRingsToTree(const std::vector<std::vector<vec2>>& contours, PolyTree64& tree,
                      double scale) {
    std::vector<std::vector<vec2>> rings = contours;
    for (std::vector<vec2>& ring : rings) {
        normalizeRing(ring, kInputMergeDistance);
        dropCollinearDuplicates(ring, kInputCollinearLimit);
    }
    unionEvenOdd(ringsToPaths64(rings, scale), tree);
}

void collectPolygons(const PolyPath64& node, double scale, std::vector<RingPolygon>& polygons) {
    // Depth first, each node before its children, with an explicit stack:
    // deeply nested input must not exhaust the call stack.
    std::vector<std::pair<const PolyPath64*, int>> pending{{&node, nodeLevel(node)}};
    while (!pending.empty()) {
        const PolyPath64& current = *pending.back().first;
        const int level = pending.back().second;
        pending.pop_back();
        for (auto child = current.Childs.rbegin(); child != current.Childs.rend(); ++child)
            pending.emplace_back(*child, level + 1);

        if (isHoleLevel(level) || current.Contour.empty()) continue;
        RingPolygon polygon;
        polygon.outer = cleanedRing(current.Contour, scale);
        if (isRingDegenerate(polygon.outer)) continue;
        if (ringSignedArea2(polygon.outer) < 0.0)
            std::reverse(polygon.outer.begin(), polygon.outer.end());
        for (const PolyPath64* child : current.Childs) {
            if (!isHoleLevel(level + 1) || child->Contour.empty()) continue;
            std::vector<vec2> hole = cleanedRing(child->Contour, scale);
            if (isRingDegenerate(hole)) continue;
            if (ringSignedArea2(hole) > 0.0) std::reverse(hole.begin(), hole.end());
            polygon.holes.push_back(std::move(hole));
        }
        polygons.push_back(std::move(polygon));
    }
}

} // namespace textgeom
