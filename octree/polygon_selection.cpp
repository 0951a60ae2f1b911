// meshGeometry::findTrianglesInOctreeInPolygonCompact: lasso selection over an octree.
//
// Each triangle is tested in turn, in tree order: validity, front, overlap, depth, facing. What
// a vertex contributes (its world and screen position, whether it lies in the lasso, on which
// side of each lasso edge it lies) is the same for every triangle around it, so it is kept for
// the triangles that follow; the arithmetic is the same either way, and so is every answer.
#include <korvex/polygon.h>
#include <korvex/selection.h>

#include <halvane.h>

#include "octree/segment_crossing.h"
#include "octree/triangle_number.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace {

using namespace octree_detail;

constexpr float kSmallestClipW = 0.00001f; // at or below: the point cannot be projected
constexpr float kUnprojectable = -9999.0f; // screen x and y of such a point
constexpr float kDepthFloor = 2000.0f;
constexpr float kDepthAddend = 100.0f;
constexpr const char* kFacingVariable = "dot_normal";

// What a vertex gives the triangles around it; the lasso answers are filled in when first
// needed.
struct ProjectedVertex {
    unsigned int vertex;
    uint8_t known; // kInside, kSides: which lazy answers are filled in
    bool inside;   // in the lasso's rectangle and in the lasso
    vec3 world;
    vec2 screen;
    uint64_t sides[kMaxSideWords];
};

enum : uint8_t { kInside = 1, kSides = 2 };

// Records of recent vertices in a small direct-mapped cache keyed by vertex index. Tree order
// keeps neighbouring triangles together, so most vertices are found there; one that was
// evicted is worked out again, to the same values. Nothing in it depends on the mesh's size.
constexpr int kCacheBits = 14;
constexpr size_t kCacheSize = size_t(1) << kCacheBits;

// Fibonacci hashing: meshes number their vertices in rows, and the low bits alone would make
// neighbouring rows compete for the same entries.
inline size_t cacheSlot(unsigned int vertex) {
    return static_cast<uint32_t>(vertex * 2654435769u) >> (32 - kCacheBits);
}

class Selection {
  public:
    Selection(const std::vector<vec2>& polygon, const mat4& model,
              const std::vector<kvx::nsVertex>& vertices, const std::vector<unsigned int>& indices,
              std::vector<int>& result, const mat4& view, const mat4& projection, int width,
              int height, const vec3& cameraPosition, const vec3& cameraForward, float depthMargin)
        : polygon_(polygon), rect_(meshGeometry::computePolygonBounds(polygon)), model_(model),
          viewProjection_(projection * view), width_(static_cast<float>(width)),
          height_(static_cast<float>(height)), cameraPosition_(cameraPosition),
          cameraForward_(cameraForward), vertices_(vertices), indices_(indices), result_(result),
          words_(sideWords(polygon.size())) {
        const float band = depthMargin + depthMargin + kDepthAddend;
        depthLimit_ = (kDepthFloor > band ? kDepthFloor : band) + depthMargin;
        for (size_t i = 0; i < kCacheSize; ++i) cache_[i].vertex = ~0u; // no vertex has it
    }

    // Tree order: a node's own list, then its children in slot order. The lists are gathered
    // first so that the mesh data of the lists ahead can be requested while one is tested.
    void visit(const OctreeNode* root) {
        std::vector<const std::vector<int>*> lists;
        std::vector<const OctreeNode*> pending{root};
        while (!pending.empty()) {
            const OctreeNode* node = pending.back();
            pending.pop_back();
            if (!node->triangles.empty()) lists.push_back(&node->triangles);
            for (int slot = 7; slot >= 0; --slot)
                if (node->children[slot]) pending.push_back(node->children[slot]);
        }
        for (size_t i = 0; i < lists.size(); ++i) {
            if (i + 2 < lists.size()) prefetchIndices(*lists[i + 2]);
            if (i + 1 < lists.size()) prefetchVertices(*lists[i + 1]);
            for (int t : *lists[i])
                if (selects(t)) result_.push_back(t);
        }
    }

  private:
    void prefetchIndices(const std::vector<int>& list) const {
        for (int t : list)
            if (addressesIndices(t, indices_.size())) __builtin_prefetch(&indices_[3 * size_t(t)]);
    }

    void prefetchVertices(const std::vector<int>& list) const {
        for (int t : list) {
            unsigned int v[3];
            if (!triangleCorners(t, indices_, vertices_.size(), v)) continue;
            for (unsigned int k : v) __builtin_prefetch(&vertices_[k].position);
        }
    }

    void place(ProjectedVertex& p, unsigned int v) const {
        p.vertex = v;
        p.known = 0;
        p.world = vec3(model_ * vec4(vertices_[v].position, 1.0f));
        const vec4 clip = viewProjection_ * vec4(p.world, 1.0f);
        p.screen = clip.w <= kSmallestClipW
                       ? vec2(kUnprojectable)
                       : vec2((clip.x / clip.w * 0.5f + 0.5f) * width_,
                              (1.0f - (clip.y / clip.w * 0.5f + 0.5f)) * height_);
    }

    bool inLasso(const vec2& p) const {
        return rect_.minX <= p.x && p.x <= rect_.maxX && rect_.minY <= p.y && p.y <= rect_.maxY &&
               meshGeometry::isPointInPolygon(p, polygon_);
    }

    bool vertexInLasso(ProjectedVertex& p) const {
        if (!(p.known & kInside)) {
            p.inside = inLasso(p.screen);
            p.known |= kInside;
        }
        return p.inside;
    }

    const uint64_t* vertexSides(ProjectedVertex& p) const {
        if (!(p.known & kSides)) {
            sidesOfPoint(polygon_, p.screen, p.sides);
            p.known |= kSides;
        }
        return p.sides;
    }

    float facingThreshold() {
        // The registry may not change during the call, so the entry found for the first
        // triangle is the entry of every later look-up; the value is read anew each time.
        if (!threshold_) {
            const auto& registry = GetVarRegistry();
            const auto entry = registry.find(kFacingVariable);
            if (entry == registry.end() || !entry->second.data)
                throw std::runtime_error(std::string("Variable not found: ") + kFacingVariable);
            threshold_ = static_cast<const float*>(entry->second.data);
        }
        return *threshold_;
    }

    static vec3 unit(const vec3& v) { return v * (1.0f / glm::length(v)); }

    // Validity, front, overlap, depth, facing: the cheap tests first, the registry last.
    bool selects(int t) {
        unsigned int v[3];
        if (!triangleCorners(t, indices_, vertices_.size(), v)) return false;
        // The corners' records: from the cache, unless two corners compete for one entry.
        ProjectedVertex* p[3];
        const size_t slot[3] = {cacheSlot(v[0]), cacheSlot(v[1]), cacheSlot(v[2])};
        const bool clash = (slot[0] == slot[1] && v[0] != v[1]) ||
                           (slot[1] == slot[2] && v[1] != v[2]) ||
                           (slot[0] == slot[2] && v[0] != v[2]);
        for (int k = 0; k < 3; ++k) {
            p[k] = clash ? &local_[k] : &cache_[slot[k]];
            if (p[k]->vertex != v[k] || clash) place(*p[k], v[k]);
        }
        // One vertex behind the camera rules the triangle out, whatever the others do.
        for (const ProjectedVertex* q : p)
            if (q->screen.x == kUnprojectable) return false;

        const vec2 screenCentroid = (p[0]->screen + p[1]->screen + p[2]->screen) / 3.0f;
        const vec3 worldCentroid = (p[0]->world + p[1]->world + p[2]->world) / 3.0f;
        if (!overlaps(p, screenCentroid)) return false;

        for (const vec3& point : {p[0]->world, p[1]->world, p[2]->world, worldCentroid})
            if (glm::dot(point - cameraPosition_, cameraForward_) > depthLimit_) return false;

        const vec3 normal = unit(glm::cross(p[1]->world - p[0]->world, p[2]->world - p[0]->world));
        const vec3 toViewer = unit(cameraPosition_ - worldCentroid);
        const float facing = glm::dot(toViewer, normal);
        // Only this comparison rejects: a NaN facing value (zero area) passes.
        return !(facingThreshold() > facing);
    }

    // A vertex or the centroid in the lasso, or an edge crossing it. Which is tried first
    // changes nothing: the tests have no effects.
    bool overlaps(ProjectedVertex* const (&p)[3], const vec2& centroid) {
        for (ProjectedVertex* q : p)
            if (vertexInLasso(*q)) return true;
        if (inLasso(centroid)) return true;
        if (words_ > kMaxSideWords)
            return segmentCrossesPolygon(polygon_, p[0]->screen, p[1]->screen) ||
                   segmentCrossesPolygon(polygon_, p[1]->screen, p[2]->screen) ||
                   segmentCrossesPolygon(polygon_, p[2]->screen, p[0]->screen);
        for (int k = 0; k < 3; ++k) {
            ProjectedVertex& a = *p[k];
            ProjectedVertex& b = *p[(k + 1) % 3];
            if (segmentCrossesPolygon(polygon_, a.screen, b.screen, vertexSides(a), vertexSides(b)))
                return true;
        }
        return false;
    }

    const std::vector<vec2>& polygon_;
    ScreenRect rect_;
    mat4 model_;
    mat4 viewProjection_;
    float width_;
    float height_;
    vec3 cameraPosition_;
    vec3 cameraForward_;
    float depthLimit_;
    const std::vector<kvx::nsVertex>& vertices_;
    const std::vector<unsigned int>& indices_;
    std::vector<int>& result_;
    const size_t words_;
    const float* threshold_ = nullptr;
    std::unique_ptr<ProjectedVertex[]> cache_{new ProjectedVertex[kCacheSize]};
    ProjectedVertex local_[3];
};

} // namespace

namespace meshGeometry {

void findTrianglesInOctreeInPolygonCompact(
    OctreeNode* node, const std::vector<vec2>& polygon, const ScreenRect& /*screenRect*/,
    const mat4& modelMatrix, const std::vector<kvx::nsVertex>& vertices,
    const std::vector<unsigned int>& indices, std::vector<int>& result, const mat4& viewMatrix,
    const mat4& projectionMatrix, int screenWidth, int screenHeight, const vec3& cameraPosition,
    const vec3& cameraForward, float depthMargin) {
    if (!node) return;
    Selection selection(polygon, modelMatrix, vertices, indices, result, viewMatrix,
                        projectionMatrix, screenWidth, screenHeight, cameraPosition, cameraForward,
                        depthMargin);
    // The call stops at its first missing "dot_normal", before anything has been accepted, so
    // `result` stays as given: nothing to undo.
    selection.visit(node);
}

} // namespace meshGeometry
