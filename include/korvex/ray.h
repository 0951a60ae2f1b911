// Elementary ray tests: triangle, boxes, sphere, planes and a brute-force
// indexed mesh. A false result means a miss and leaves every out-parameter as
// it was. Single precision throughout.
#pragma once

#include <korvex/records.h>

#include <vector>

// Moller-Trumbore without culling: both faces hit alike. Misses when |a| <
// 1e-6 (parallel), u or v outside 0..1 (edges inclusive) or t <= 1e-6.
// t is in units of the direction's length.
KORVEX_API bool RayIntersectsTriangle(const Ray& ray, const vec3& p0, const vec3& p1,
                                      const vec3& p2, vec3& hitPoint, float& hitDistance);
// The same test; the flag is carried for the host and changes nothing.
KORVEX_API bool RayIntersectsTriangle(const Ray& ray, const vec3& p0, const vec3& p1,
                                      const vec3& p2, vec3& hitPoint, float& hitDistance,
                                      bool flag);

// The ray forward from its origin against a box given by corners; misses on a
// direction shorter than 1e-6 and on NaN or infinite slab limits.
KORVEX_API bool rayIntersectsAABB(const Ray& ray, const vec3& boxMin, const vec3& boxMax);
// The ray forward from its origin; no guard on NaN or infinite slab limits.
KORVEX_API bool RayIntersectsAABB(const Ray& ray, const AABB& box);

// Nearest root above 0.001, else the far root above 0.001; only the distance
// is written, in units of the direction's length.
KORVEX_API bool RayIntersectsSphere(const Ray& ray, const vec3& center, float radius,
                                    float& hitDistance);

// Hit when |dot(n, d)| > 1e-6 and t >= 0; no upper limit. Note the argument
// order: normal, then point.
KORVEX_API bool IntersectRayWithPlane(const Ray& ray, const vec3& planeNormal,
                                      const vec3& planePoint, vec3& hitPoint);
// Miss when |dot(d, n)| < 1e-6, t < 0 or t > 1000. Note the argument order:
// point, then normal.
KORVEX_API bool IntersectWithPlane(const vec3& origin, const vec3& direction,
                                   const vec3& planePoint, const vec3& planeNormal, vec3& hitPoint);

// Touching counts: radius^2 >= squared distance from the centre to the box.
KORVEX_API bool AABBIntersectsSphere(const AABB& box, const vec3& center, float radius);

// Box of the eight corners through an affine matrix (no divide by w).
KORVEX_API AABB transformAABB(const AABB& box, const mat4& matrix);

// Every complete triangle of `indices`, its positions through `model`, tested
// against the world-space ray; the nearest hit wins and the earliest triangle
// wins a tie. `hitPoint` receives the hit in world space.
KORVEX_API bool IntersectRayWithMesh(const Ray& ray, const std::vector<kvx::nsVertex>& vertices,
                                     const std::vector<unsigned int>& indices, const mat4& model,
                                     vec3& hitPoint);
