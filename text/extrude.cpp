#include <korvex/extrude.h>

#include "text/ring_cleanup.h"
#include "text/ring_union.h"
#include "text/triangulate.h"

void extrudeWithContours(const std::vector<std::vector<vec2>>& contours, float depth, float shiftX,
                         float shiftY, std::vector<kvx::nsVertex>& vertices,
                         std::vector<unsigned>& indices,
                         const std::function<float(float, float)>& height) {
    std::vector<textgeom::RingPolygon> polygons;
    {
        textgeom::PolyTree64 tree;
        textgeom::unionRingsToTree(contours, tree, textgeom::kClipScale);
        for (const textgeom::PolyPath64* child : tree.Childs)
            textgeom::collectPolygons(*child, textgeom::kClipScale, polygons);
    }

    // One reservation for the whole call: per polygon, twice its points in
    // vertices, and about twelve indices per point (two caps, the walls).
    size_t points = 0;
    for (const textgeom::RingPolygon& polygon : polygons) {
        points += polygon.outer.size() + 2;
        for (const std::vector<vec2>& hole : polygon.holes) points += hole.size() + 2;
    }
    vertices.reserve(vertices.size() + 2 * points);
    indices.reserve(indices.size() + 12 * points);

    std::vector<std::vector<vec2>> rings;
    std::vector<uint32_t> cap;
    std::vector<size_t> ringStart;
    for (textgeom::RingPolygon& polygon : polygons) {
        rings.clear();
        rings.push_back(std::move(polygon.outer));
        for (std::vector<vec2>& hole : polygon.holes) rings.push_back(std::move(hole));

        const size_t base = vertices.size();
        size_t total = 0;
        for (const std::vector<vec2>& ring : rings) total += ring.size();
        const vec3 front = depth >= 0.0f ? vec3(0.0f, 0.0f, 1.0f) : vec3(0.0f, 0.0f, -1.0f);

        // Front vertices, one per ring point; the height function is called
        // here only, once per point, before the vertex goes in (an empty one
        // throws before anything is appended).
        ringStart.clear();
        for (const std::vector<vec2>& ring : rings) {
            ringStart.push_back(vertices.size() - base);
            for (const vec2& p : ring) {
                const float x = shiftX + p.x;
                const float y = shiftY + p.y;
                const float z = height(x, y);
                vertices.push_back(textgeom::solidVertex(vec3(x, y, z), front));
            }
        }
        // Back vertices: copies, `depth` lower, facing the other way.
        for (size_t i = 0; i < total; ++i) {
            kvx::nsVertex back = vertices[base + i];
            back.position.z -= depth;
            back.normal = -front;
            vertices.push_back(back);
        }

        textgeom::triangulateRings(rings, cap);
        const unsigned b = unsigned(base);
        const unsigned t = unsigned(total);
        for (size_t k = 0; k + 2 < cap.size(); k += 3) {
            indices.push_back(b + cap[k]);
            indices.push_back(b + cap[k + 1]);
            indices.push_back(b + cap[k + 2]);
        }
        for (size_t k = 0; k + 2 < cap.size(); k += 3) {
            indices.push_back(b + t + cap[k]);
            indices.push_back(b + t + cap[k + 2]);
            indices.push_back(b + t + cap[k + 1]);
        }
        // Walls: each ring edge a-b with its copies a2-b2 behind. Outer rings
        // run counter-clockwise and holes clockwise, so both face outward.
        for (size_t r = 0; r < rings.size(); ++r) {
            const size_t m = rings[r].size();
            for (size_t j = 0; j < m; ++j) {
                const unsigned a = b + unsigned(ringStart[r] + j);
                const unsigned c = b + unsigned(ringStart[r] + (j + 1) % m);
                const unsigned a2 = a + t;
                const unsigned c2 = c + t;
                indices.insert(indices.end(), {a, a2, c, c, a2, c2});
            }
        }
    }
}

void alignTextBottomCenter(std::vector<kvx::nsVertex>& vertices) {
    if (vertices.empty()) return;
    float minX = kFloatMax, maxX = -kFloatMax, minY = kFloatMax;
    for (const kvx::nsVertex& v : vertices) {
        if (v.position.x < minX) minX = v.position.x;
        if (v.position.x > maxX) maxX = v.position.x;
        if (v.position.y < minY) minY = v.position.y;
    }
    const float centreX = (minX + maxX) * 0.5f;
    for (kvx::nsVertex& v : vertices) {
        v.position.x -= centreX;
        v.position.y -= minY;
    }
}
