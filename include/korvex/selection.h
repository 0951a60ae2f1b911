// Selection of mesh triangles by a polygon on the screen, such as a lasso stroke.
#pragma once

#include <korvex/octree.h>
#include <korvex/records.h>

#include <vector>

namespace meshGeometry {

// Appends to `result` (not cleared) the number of every triangle of the tree that
//   - projects with all three vertices in front of the camera (clip w above 0.00001),
//   - overlaps `polygon` on the screen: a vertex or the centroid inside it, or an edge crossing
//     it (pixels, origin top left, y down),
//   - lies within the depth limit L = max(2000, 2 * depthMargin + 100) + depthMargin along
//     `cameraForward` from `cameraPosition`, with all three vertices and the centroid,
//   - faces the camera: dot(unit view vector, unit normal) >= the host variable "dot_normal".
// Every node is visited (no box is read) and every valid triangle number tested, in tree order:
// a node's own list, then slots 0 to 7. VP = projectionMatrix * viewMatrix. `screenRect` is not
// read. "dot_normal" is looked up once a triangle reaches the facing test; if it is missing or
// null, std::runtime_error("Variable not found: dot_normal") is thrown and `result` is left as it
// was given. A null node does nothing.
KORVEX_API void findTrianglesInOctreeInPolygonCompact(
    OctreeNode* node, const std::vector<vec2>& polygon, const ScreenRect& screenRect,
    const mat4& modelMatrix, const std::vector<kvx::nsVertex>& vertices,
    const std::vector<unsigned int>& indices, std::vector<int>& result, const mat4& viewMatrix,
    const mat4& projectionMatrix, int screenWidth, int screenHeight, const vec3& cameraPosition,
    const vec3& cameraForward, float depthMargin);

} // namespace meshGeometry
