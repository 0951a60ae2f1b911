#include <korvex/carve.h>

#include "text/clipping.h"

namespace {

// Carving keeps its own conversion: single precision, truncated toward zero
// on the way in, and single precision on the way out.
constexpr float kCarveScale = 100000.0f;

textgeom::Path64 toPath(const std::vector<vec2>& ring) {
    textgeom::Path64 path;
    path.reserve(ring.size());
    for (const vec2& p : ring)
        path.emplace_back(textgeom::truncateToCoord(p.x * kCarveScale),
                          textgeom::truncateToCoord(p.y * kCarveScale));
    return path;
}

} // namespace

std::vector<std::vector<vec2>>
CarveTextFromSurface(const std::vector<vec2>& surface,
                     const std::vector<std::vector<vec2>>& textContours) {
    textgeom::Paths64 subject{toPath(surface)};
    textgeom::Paths64 clip;
    clip.reserve(textContours.size());
    for (const std::vector<vec2>& ring : textContours) clip.push_back(toPath(ring));

    std::vector<std::vector<vec2>> result;
    for (const textgeom::Path64& path : textgeom::differencePaths(subject, clip)) {
        std::vector<vec2> ring;
        ring.reserve(path.size());
        for (const textgeom::Point64& p : path)
            ring.emplace_back(float(p.X) / kCarveScale, float(p.Y) / kCarveScale);
        if (ring.size() >= 3) result.push_back(std::move(ring));
    }
    return result;
}
