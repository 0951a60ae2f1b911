#include <korvex/loops.h>

namespace meshGeometry {

namespace {

// A last point this close to the first already closes the loop.
constexpr float kClosedGap = 1e-5f;

vec3 lerp(const vec3& p, const vec3& q, float t) {
    return p * (1.0f - t) + q * t;
}

} // namespace

std::vector<vec3> resampleLoopToCount(const std::vector<vec3>& loop, int count) {
    if (loop.size() < 2 || count < 3) return loop;

    std::vector<vec3> closed(loop);
    if (glm::distance(closed.back(), closed.front()) > kClosedGap) closed.push_back(closed.front());

    std::vector<float> lengths(closed.size() - 1);
    float perimeter = 0.0f;
    for (size_t i = 0; i < lengths.size(); ++i) {
        lengths[i] = glm::distance(closed[i], closed[i + 1]);
        perimeter += lengths[i];
    }
    const float spacing = perimeter / static_cast<float>(count);

    std::vector<vec3> result;
    result.reserve(static_cast<size_t>(count));
    result.push_back(closed.front());

    // One forward pass: segment i and the arc length s before it carry over
    // from one wanted position to the next.
    size_t i = 0;
    float s = 0.0f;
    for (int k = 1; k < count; ++k) {
        const float position = static_cast<float>(k) * spacing;
        // Strict: a position on a segment's end stays on that segment, t = 1.
        while (position > s + lengths[i]) {
            s += lengths[i];
            if (++i == lengths.size()) return result; // rounding left the perimeter short
        }
        // A zero length here means the whole loop has length 0 (or a spacing
        // too small for a float): every position is then the first point.
        const float t = lengths[i] > 0.0f ? (position - s) / lengths[i] : 0.0f;
        result.push_back(lerp(closed[i], closed[i + 1], t));
    }
    return result;
}

} // namespace meshGeometry
