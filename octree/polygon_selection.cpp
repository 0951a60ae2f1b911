// meshGeometry::findTrianglesInOctreeInPolygonCompact: lasso selection over an octree.
#include <korvex/polygon.h>
#include <korvex/selection.h>

#include <halvane.h>

#include "octree/segment_crossing.h"
#include "octree/triangle_number.h"

#include <stdexcept>
#include <string>

namespace {

constexpr float kSmallestClipW = 0.00001f; // at or below: the point cannot be projected
constexpr float kUnprojectable = -9999.0f; // screen x and y of such a point
constexpr float kDepthFloor = 2000.0f;
constexpr float kDepthAddend = 100.0f;
constexpr const char* kFacingVariable = "dot_normal";

// What stays the same for every node and triangle of one call.
struct Selection {
    const std::vector<vec2>& polygon;
    ScreenRect rect;
    mat4 model;
    mat4 viewProjection;
    float width;
    float height;
    vec3 cameraPosition;
    vec3 cameraForward;
    float depthLimit;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
    std::vector<int>& result;
    // Where the host keeps "dot_normal", found when the first triangle needs it. The registry
    // may not change during the call, so the entry found then is the entry of every later
    // look-up; the value itself is read anew for each triangle.
    const float* threshold = nullptr;
};

vec2 toScreen(const Selection& s, const vec3& world) {
    const vec4 clip = s.viewProjection * vec4(world, 1.0f);
    if (clip.w <= kSmallestClipW) return vec2(kUnprojectable);
    return vec2((clip.x / clip.w * 0.5f + 0.5f) * s.width,
                (1.0f - (clip.y / clip.w * 0.5f + 0.5f)) * s.height);
}

bool insideLasso(const Selection& s, const vec2& p) {
    return s.rect.minX <= p.x && p.x <= s.rect.maxX && s.rect.minY <= p.y && p.y <= s.rect.maxY &&
           meshGeometry::isPointInPolygon(p, s.polygon);
}

float facingThreshold(Selection& s) {
    if (!s.threshold) {
        const auto& registry = GetVarRegistry();
        const auto entry = registry.find(kFacingVariable);
        if (entry == registry.end() || !entry->second.data)
            throw std::runtime_error(std::string("Variable not found: ") + kFacingVariable);
        s.threshold = static_cast<const float*>(entry->second.data);
    }
    return *s.threshold;
}

inline vec3 unit(const vec3& v) {
    return v * (1.0f / glm::length(v));
}

// Validity, front, overlap, depth, facing: the cheap tests first, the registry last.
bool selects(Selection& s, int t) {
    unsigned int v[3];
    if (!octree_detail::triangleCorners(t, s.indices, s.vertices.size(), v)) return false;
    vec3 w[3];
    vec2 p[3];
    for (int k = 0; k < 3; ++k) {
        w[k] = vec3(s.model * vec4(s.vertices[v[k]].position, 1.0f));
        p[k] = toScreen(s, w[k]);
    }
    // One vertex behind the camera rules the triangle out, whatever the others do.
    if (p[0].x == kUnprojectable || p[1].x == kUnprojectable || p[2].x == kUnprojectable)
        return false;

    const vec2 screenCentroid = (p[0] + p[1] + p[2]) / 3.0f;
    const vec3 worldCentroid = (w[0] + w[1] + w[2]) / 3.0f;
    const bool overlaps = insideLasso(s, p[0]) || insideLasso(s, p[1]) || insideLasso(s, p[2]) ||
                          insideLasso(s, screenCentroid) ||
                          octree_detail::segmentCrossesPolygon(s.polygon, p[0], p[1]) ||
                          octree_detail::segmentCrossesPolygon(s.polygon, p[1], p[2]) ||
                          octree_detail::segmentCrossesPolygon(s.polygon, p[2], p[0]);
    if (!overlaps) return false;

    for (const vec3& point : {w[0], w[1], w[2], worldCentroid})
        if (glm::dot(point - s.cameraPosition, s.cameraForward) > s.depthLimit) return false;

    const vec3 normal = unit(glm::cross(w[1] - w[0], w[2] - w[0]));
    const vec3 toViewer = unit(s.cameraPosition - worldCentroid);
    const float facing = glm::dot(toViewer, normal);
    // Only this comparison rejects: a NaN facing value (zero area) passes.
    return !(facingThreshold(s) > facing);
}

void visit(const OctreeNode* node, Selection& s) {
    if (!node) return;
    for (int t : node->triangles)
        if (selects(s, t)) s.result.push_back(t);
    for (const OctreeNode* child : node->children) visit(child, s);
}

} // namespace

namespace meshGeometry {

void findTrianglesInOctreeInPolygonCompact(
    OctreeNode* node, const std::vector<vec2>& polygon, const ScreenRect& /*screenRect*/,
    const mat4& modelMatrix, const std::vector<kvx::nsVertex>& vertices,
    const std::vector<unsigned int>& indices, std::vector<int>& result, const mat4& viewMatrix,
    const mat4& projectionMatrix, int screenWidth, int screenHeight, const vec3& cameraPosition,
    const vec3& cameraForward, float depthMargin) {
    if (!node) return;
    const float band = depthMargin + depthMargin + kDepthAddend;
    Selection s{polygon,
                computePolygonBounds(polygon),
                modelMatrix,
                projectionMatrix * viewMatrix,
                static_cast<float>(screenWidth),
                static_cast<float>(screenHeight),
                cameraPosition,
                cameraForward,
                (kDepthFloor > band ? kDepthFloor : band) + depthMargin,
                vertices,
                indices,
                result};
    // The call stops at its first missing "dot_normal", before anything has been accepted, so
    // `result` stays as given: nothing to undo.
    visit(node, s);
}

} // namespace meshGeometry
