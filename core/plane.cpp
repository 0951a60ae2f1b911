#include <korvex/plane.h>

#include <cmath>

vec3 closestAxis(const vec3& v) {
    return std::fabs(v.y) < 0.9f ? vec3(0.0f, 1.0f, 0.0f) : vec3(1.0f, 0.0f, 0.0f);
}

namespace {
vec3 normalizeByInverseLength(const vec3& v) {
    return v * (1.0f / glm::length(v));
}

int sideOf(float distance, float tolerance) {
    if (distance > tolerance) return 1;
    if (distance < -tolerance) return -1;
    return 0;
}
} // namespace

void buildPlaneBasis(const vec3& n, vec3& first, vec3& second) {
    const vec3 r = closestAxis(n);
    first = normalizeByInverseLength(glm::cross(r, n));
    second = normalizeByInverseLength(glm::cross(n, first));
}

float signedDistToPlane(const vec3& point, const vec3& planePoint, const vec3& normal) {
    return glm::dot(point - planePoint, normal);
}

bool intersectSegmentPlane(const vec3& a, const vec3& b, const vec3& planePoint, const vec3& normal,
                           vec3& result, float tolerance) {
    const float da = signedDistToPlane(a, planePoint, normal);
    const float db = signedDistToPlane(b, planePoint, normal);
    const int sa = sideOf(da, tolerance);
    const int sb = sideOf(db, tolerance);
    if (sa != 0 && sa == sb) return false;
    if (sa == 0 && sb == 0) {
        result = (a + b) * 0.5f;
        return true;
    }
    if (sa == 0) {
        result = a;
        return true;
    }
    if (sb == 0) {
        result = b;
        return true;
    }
    if (std::fabs(da - db) < 1e-12f) return false;
    const float s = da / (da - db);
    if (s < 0.0f || s > 1.0f) return false;
    result = a + (b - a) * s;
    return true;
}

vec2 worldToUV(const vec3& point, const vec3& origin, const vec3& first, const vec3& second) {
    const vec3 d = point - origin;
    return vec2(glm::dot(d, first), glm::dot(d, second));
}

float distPointPolylineSq(const vec2& point, const std::vector<vec2>& polyline) {
    float best = kFloatMax;
    if (polyline.size() < 2) return best;
    for (size_t i = 0; i + 1 < polyline.size(); ++i) {
        const vec2 a = polyline[i];
        const vec2 ab = polyline[i + 1] - a;
        // A zero-length segment gives a NaN that passes the clamp and then
        // fails the comparison below, so the segment is skipped.
        float s = glm::dot(point - a, ab) / glm::dot(ab, ab);
        if (s < 0.0f)
            s = 0.0f;
        else if (s > 1.0f)
            s = 1.0f;
        const vec2 closest = a + ab * s;
        const vec2 d = point - closest;
        const float dist = glm::dot(d, d);
        if (dist < best) best = dist;
    }
    return best;
}

bool EqualVec3(const vec3& a, const vec3& b, float tolerance) {
    return glm::length(a - b) < tolerance;
}

Edge MakeEdge(vec3 a, vec3 b) {
    const bool greater = a.x > b.x || (a.x == b.x && (a.y > b.y || (a.y == b.y && a.z > b.z)));
    return greater ? Edge(b, a) : Edge(a, b);
}
