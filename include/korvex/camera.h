// Pixels to rays and world points, and world points to pixels, under GLM's
// conventions: column-major matrices, clip space -1..1 on every axis, screen
// origin at the top left with y growing downward. Watch the matrix order:
// it differs between operations.
#pragma once

#include <korvex/records.h>

// Dear ImGui's two-float vector; only its x and y are read.
struct ImVec2;

// A ray from the camera position through pixel (x, y) of a width x height
// screen; unit direction.
KORVEX_API Ray GetRayFromCamera(int x, int y, const mat4& view, const mat4& projection, int width,
                                int height);

// A ray from the near plane through pixel (x, y) of a viewport placed at
// (left, top) inside the screen; unit direction. With flipY the viewport's top
// row maps to ndc y = 1.
KORVEX_API Ray GetRayFromCamera(double x, double y, const mat4& view, const mat4& projection,
                                int viewportLeft, int viewportTop, int viewportWidth,
                                int viewportHeight, bool flipY);

// The unit direction under pixel (x, y). Matrices in the order projection, view.
KORVEX_API vec3 ScreenToWorldRay(int x, int y, const mat4& projection, const mat4& view, int width,
                                 int height);

namespace meshGeometry {

// Pixel position of a world point; not clamped, no guard on clip.w.
KORVEX_API vec2 projectToScreen(const vec3& point, const mat4& view, const mat4& projection,
                                int width, int height);
KORVEX_API vec2 ProjectWorldToScreen(const vec3& point, const mat4& view, const mat4& projection,
                                     const vec2& screenSize);
// As ProjectWorldToScreen, but (-10000, -10000) where clip.w is exactly 0.
KORVEX_API vec2 WorldToScreen(const vec3& point, const mat4& view, const mat4& projection,
                              const ImVec2& screenSize);

// The world point under a pixel at depth value 0.5; y flipped in double.
KORVEX_API vec3 convertScreenToWorld(double x, double y, const mat4& view, const mat4& projection,
                                     int width, int height);
// The same point with the matrices in the order projection, view, and the
// flip done in single precision.
KORVEX_API vec3 unProjectToWorld(double x, double y, mat4 projection, mat4 view, int width,
                                 int height);

} // namespace meshGeometry
