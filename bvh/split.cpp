#include <korvex/bvh.h>

#include "bvh/split_rule.h"

using namespace korvex_detail;

BoundingBox computeBoundingBox(const std::vector<Triangle>& triangles) {
    BoundingBox box; // invalid until a corner is folded in
    for (const Triangle& t : triangles) {
        foldPoint(box.min, box.max, t.p0);
        foldPoint(box.min, box.max, t.p1);
        foldPoint(box.min, box.max, t.p2);
    }
    return box;
}

std::pair<std::vector<Triangle>, std::vector<Triangle>>
splitTriangles(const std::vector<Triangle>& triangles) {
    std::pair<std::vector<Triangle>, std::vector<Triangle>> sides;
    if (triangles.empty()) return sides;
    const BoundingBox box = computeBoundingBox(triangles);
    const int axis = longestAxis(box.getSize());
    const float splitPos = splitPosition(box, axis);
    for (const Triangle& t : triangles) {
        if (goesLower(splitPos, centroidOf(t)[axis]))
            sides.first.push_back(t);
        else
            sides.second.push_back(t);
    }
    // A one-sided split is reported with everything on the other side.
    if (sides.first.empty() || sides.second.empty()) std::swap(sides.first, sides.second);
    return sides;
}
