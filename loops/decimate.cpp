#include <korvex/loops.h>

namespace meshGeometry {

std::vector<vec3> decimate(const std::vector<vec3>& loop, float tolerance) {
    std::vector<vec3> kept;
    for (const vec3& p : loop) {
        // Measured to the last point kept, not to the previous input point, so
        // a run of close points thins out instead of surviving by small steps.
        if (kept.empty() || glm::distance(p, kept.back()) > tolerance) kept.push_back(p);
    }
    if (!kept.empty() && glm::distance(kept.back(), kept.front()) > tolerance) {
        kept.push_back(kept.front());
    }
    return kept;
}

} // namespace meshGeometry
