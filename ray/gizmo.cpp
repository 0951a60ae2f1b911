#include <korvex/gizmo.h>

#include <korvex/ray.h>
#include <korvex/rings.h>

namespace {

struct CubeHandle {
    vec3 offset; // from the gizmo centre, in gizmo units
    vec3 size;   // in gizmo units; the same for all three
    int code;
};

// Tested in this order: the first hit wins.
const CubeHandle kCubeHandles[3] = {
    {vec3(20.0f, 0.0f, 0.0f), vec3(5.0f, 10.0f, 5.0f), 0},
    {vec3(0.0f, 20.0f, 0.0f), vec3(5.0f, 10.0f, 5.0f), 1},
    {vec3(0.0f, 0.0f, 20.0f), vec3(5.0f, 10.0f, 5.0f), 2},
};

// Handles keep their size on screen: a gizmo unit grows with the distance.
constexpr float kUnitPerDistance = 0.005f;

constexpr float kNoScore = 99999.0f;

} // namespace

int traceGuizmoCubes(const Ray& ray, const vec3& gizmoCenter, const vec3& cameraPosition) {
    const float unit = kUnitPerDistance * glm::distance(cameraPosition, gizmoCenter);
    for (const CubeHandle& handle : kCubeHandles) {
        const vec3 center = gizmoCenter + handle.offset * unit;
        const vec3 half = handle.size * unit * 0.5f;
        if (rayIntersectsAABB(ray, center - half, center + half)) return handle.code;
    }
    return -1;
}

int traceRotateGuizmoRings(const Ray& ray, const vec3& gizmoCenter, float ringRadius,
                           float tolerance, const bool enabledAxes[3]) {
    static const vec3 kAxes[3] = {vec3(1.0f, 0.0f, 0.0f), vec3(0.0f, 1.0f, 0.0f),
                                  vec3(0.0f, 0.0f, 1.0f)};
    float best = kNoScore;
    int result = -1;
    if (!enabledAxes) return result;
    for (int i = 0; i < 3; ++i) {
        if (!enabledAxes[i]) continue;
        float score;
        if (IntersectRayWithTorusApprox(ray.origin, ray.direction, gizmoCenter, kAxes[i],
                                        ringRadius, tolerance, &score) &&
            score < best) {
            best = score;
            result = i;
        }
    }
    return result;
}
