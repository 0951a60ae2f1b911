#include <korvex/extrude.h>

#include "text/ring_cleanup.h"

using textgeom::distanceSq;

void normalizeRing(std::vector<vec2>& ring, float limit) {
    const float limitSq = limit * limit;
    if (ring.size() >= 2 && distanceSq(ring.front(), ring.back()) < limitSq) ring.pop_back();

    // Each point is measured against the last point kept, not its input
    // neighbour, so a slow drift of tiny steps still gets thinned.
    std::vector<vec2> kept;
    kept.reserve(ring.size());
    for (const vec2& p : ring)
        if (kept.empty() || distanceSq(kept.back(), p) > limitSq) kept.push_back(p);
    ring.swap(kept);
}
