#include <korvex/carve.h>

#include "text/ring_cleanup.h"

#include <cmath>

namespace {

// A ring gets at most this many ear-cutting passes (one ear per pass).
constexpr int kMaxPassesPerRing = 10000;

float turn(const vec2& a, const vec2& b, const vec2& c) {
    return (b.x - a.x) * (c.y - b.y) - (c.x - b.x) * (b.y - a.y);
}

// p inside or on the triangle a, b, c (barycentric, single precision). A
// triangle with a zero determinant blocks nothing.
bool blocksEar(const vec2& a, const vec2& b, const vec2& c, const vec2& p) {
    const vec2 e = b - a, f = c - a, g = p - a;
    const float ee = e.x * e.x + e.y * e.y;
    const float ef = e.x * f.x + e.y * f.y;
    const float ff = f.x * f.x + f.y * f.y;
    const float eg = e.x * g.x + e.y * g.y;
    const float fg = f.x * g.x + f.y * g.y;
    const float denom = ee * ff - ef * ef;
    if (denom == 0.0f) return false;
    const float s = (ee * fg - eg * ef) / denom;
    const float t = (eg * ff - fg * ef) / denom;
    return s >= 0.0f && t >= 0.0f && s + t <= 1.0f;
}

// Fills every ring by itself with the simplest ear clipper: the first
// position that is a strictly convex corner with no other ring point in or
// on its triangle is cut, pass after pass. A ring with no ear left stays
// partly open. `points` and `triangles` are replaced.
void earClipRings(const std::vector<std::vector<vec2>>& contours, std::vector<vec2>& points,
                  std::vector<unsigned>& triangles) {
    points.clear();
    triangles.clear();
    std::vector<unsigned> work;
    for (const std::vector<vec2>& ring : contours) {
        if (ring.size() < 3) continue;
        const unsigned base = unsigned(points.size());
        points.insert(points.end(), ring.begin(), ring.end());
        work.clear();
        for (unsigned k = 0; k < ring.size(); ++k) work.push_back(base + k);

        for (int pass = 0; work.size() >= 3 && pass < kMaxPassesPerRing; ++pass) {
            const size_t m = work.size();
            bool cut = false;
            for (size_t i = 0; i < m && !cut; ++i) {
                const unsigned ia = work[(i + m - 1) % m], ib = work[i], ic = work[(i + 1) % m];
                const vec2 &a = points[ia], &b = points[ib], &c = points[ic];
                if (!(turn(a, b, c) > 0.0f)) continue;
                bool blocked = false;
                for (size_t k = 0; k < m && !blocked; ++k)
                    if (k != i && k != (i + m - 1) % m && k != (i + 1) % m)
                        blocked = blocksEar(a, b, c, points[work[k]]);
                if (blocked) continue;
                triangles.insert(triangles.end(), {ia, ib, ic});
                work.erase(work.begin() + std::ptrdiff_t(i));
                cut = true;
            }
            if (!cut) break;
        }
    }
}

} // namespace

void GenerateEngravedMeshFromContours(const std::vector<std::vector<vec2>>& contours,
                                      const vec3& origin, const vec3& axisU, const vec3& axisV,
                                      const vec3& normal, float depth,
                                      std::vector<kvx::nsVertex>& vertices,
                                      std::vector<unsigned>& indices) {
    vertices.clear();
    indices.clear();
    std::vector<vec2> points;
    std::vector<unsigned> triangles;
    earClipRings(contours, points, triangles);

    auto onPlane = [&](const vec2& p) { return (p.x * axisU + origin) + p.y * axisV; };
    const vec3 behind = depth * normal;
    const unsigned n = unsigned(points.size());

    size_t edges = 0;
    for (const std::vector<vec2>& ring : contours) edges += ring.size();
    vertices.reserve(2 * size_t(n) + 4 * edges);
    indices.reserve(2 * triangles.size() + 6 * edges);

    for (const vec2& p : points) vertices.push_back(textgeom::solidVertex(onPlane(p), normal));
    indices.insert(indices.end(), triangles.begin(), triangles.end());
    for (const vec2& p : points)
        vertices.push_back(textgeom::solidVertex(onPlane(p) - behind, -normal));
    for (size_t k = 0; k + 2 < triangles.size(); k += 3)
        indices.insert(indices.end(),
                       {triangles[k] + n, triangles[k + 2] + n, triangles[k + 1] + n});

    // Walls have vertices of their own, so they are shaded flat. Every ring
    // gets them, also one the ear clipper skipped.
    for (const std::vector<vec2>& ring : contours) {
        const size_t m = ring.size();
        for (size_t i = 0; i < m; ++i) {
            const vec3 a = onPlane(ring[i]);
            const vec3 b = onPlane(ring[(i + 1) % m]);
            const vec3 a2 = a - behind;
            const vec3 b2 = b - behind;
            const vec3 w = glm::cross(b - a, normal);
            const float length = glm::length(w);
            // A zero-length edge, or one along the normal, has no direction
            // of its own: its (flat, invisible) quad gets a zero normal.
            const vec3 wallNormal = length > 0.0f ? w * (1.0f / length) : vec3(0.0f);
            const unsigned i0 = unsigned(vertices.size());
            vertices.push_back(textgeom::solidVertex(a, wallNormal));
            vertices.push_back(textgeom::solidVertex(b, wallNormal));
            vertices.push_back(textgeom::solidVertex(b2, wallNormal));
            vertices.push_back(textgeom::solidVertex(a2, wallNormal));
            indices.insert(indices.end(), {i0, i0 + 1, i0 + 2, i0, i0 + 2, i0 + 3});
        }
    }
}
