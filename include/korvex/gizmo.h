// Which gizmo handle, cube or ring, lies under a picking ray. The gizmo's
// axes are the world axes. Both operations return a handle code: -1 for no
// handle, 0, 1, 2 for the handle of the x, y or z axis.
#pragma once

#include <korvex/records.h>

#include <array>

// The three cube handles, tested in the order x, y, z; the first box the ray
// meets (rayIntersectsAABB: forward ray, a start inside a box counts) wins,
// with no comparison of distances. In gizmo units of 0.005 x the camera's
// distance from the centre, the handles sit at 20 units along their axis and
// all measure 5 x 10 x 5, whatever their axis.
KORVEX_API int traceGuizmoCubes(const Ray& ray, const vec3& gizmoCenter,
                                const vec3& cameraPosition);

// The enabled rings about x, y and z (IntersectRayWithTorusApprox with the
// world axis); the lowest score below 99999 wins and a tie keeps the earlier
// axis. Radius and tolerance are in world units.
KORVEX_API int traceRotateGuizmoRings(const Ray& ray, const vec3& gizmoCenter, float ringRadius,
                                      float tolerance, const bool enabledAxes[3]);

// The same, for axes held in a std::array.
inline int traceRotateGuizmoRings(const Ray& ray, const vec3& gizmoCenter, float ringRadius,
                                  float tolerance, const std::array<bool, 3>& enabledAxes) {
    return traceRotateGuizmoRings(ray, gizmoCenter, ringRadius, tolerance, enabledAxes.data());
}
