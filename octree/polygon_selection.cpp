// meshGeometry::findTrianglesInOctreeInPolygonCompact: lasso selection over an octree.
//
// Each triangle is tested in turn, in tree order: validity, front, overlap, depth, facing. What
// a vertex contributes (its world and screen position, whether it lies in the lasso, on which
// side of each lasso edge it lies) is the same for every triangle around it, so it is kept for
// the triangles that follow; the arithmetic is the same either way, and so is every answer.
#include <korvex/polygon.h>
#include <korvex/selection.h>

#include <halvane.h>

#include "octree/lasso_index.h"
#include "octree/ray_kernels.h"
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
          lasso_(polygon, rect_), sides_(polygon), words_(sideWords(polygon.size())) {
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
            if (i + 4 < lists.size()) prefetchIndices(*lists[i + 4]);
            if (i + 2 < lists.size()) prefetchVertices(*lists[i + 2]);
            for (int t : *lists[i]) consider(t);
        }
        decideFacing();
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
        if (clip.w <= kSmallestClipW) {
            p.screen = vec2(kUnprojectable);
            return;
        }
#if defined(__SSE2__)
        // clip.x / clip.w and clip.y / clip.w in one division.
        float ndc[4];
        _mm_storeu_ps(ndc, _mm_div_ps(_mm_setr_ps(clip.x, clip.y, 0.0f, 0.0f),
                                      _mm_setr_ps(clip.w, clip.w, 1.0f, 1.0f)));
#else
        const float ndc[2] = {clip.x / clip.w, clip.y / clip.w};
#endif
        p.screen = vec2((ndc[0] * 0.5f + 0.5f) * width_, (1.0f - (ndc[1] * 0.5f + 0.5f)) * height_);
    }

    bool inLasso(const vec2& p) const {
        return rect_.minX <= p.x && p.x <= rect_.maxX && rect_.minY <= p.y && p.y <= rect_.maxY &&
               lasso_.inside(p);
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
            sides_.of(p.screen, p.sides);
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

    static vec3 unit(const vec3& v) {
        return v * (1.0f / glm::length(v));
    }

    // Validity, front, overlap, depth here; a triangle that passes them all waits with a few
    // others for the facing test, which is worked out for four at a time and then decided one
    // by one in their order, each with its own look-up of the threshold.
    void consider(int t) {
        if (!passesAllButFacing(t)) return;
        if (waiting_ == 4) decideFacing();
    }

    void decideFacing() {
        float facing[4];
        facingOfWaiting(facing);
        for (int i = 0; i < waiting_; ++i)
            // Only this comparison rejects: a NaN facing value (zero area) passes.
            if (!(facingThreshold() > facing[i])) result_.push_back(wait_[i].triangle);
        waiting_ = 0;
    }

    // dot(unit(camera - centroid), unit(cross(w1 - w0, w2 - w0))), each unit vector the vector
    // times 1 / its length, for the waiting triangles.
    void facingOfWaiting(float* facing) const {
#if defined(__SSE2__)
        float lanes[4][3][4] = {};
        for (int i = 0; i < waiting_; ++i)
            for (int c = 0; c < 3; ++c) {
                lanes[0][c][i] = wait_[i].world[0][c];
                lanes[1][c][i] = wait_[i].world[1][c];
                lanes[2][c][i] = wait_[i].world[2][c];
                lanes[3][c][i] = wait_[i].centroid[c];
            }
        const auto load = [&](int k) {
            return Lanes3{_mm_loadu_ps(lanes[k][0]), _mm_loadu_ps(lanes[k][1]),
                          _mm_loadu_ps(lanes[k][2])};
        };
        const Lanes3 w0 = load(0), w1 = load(1), w2 = load(2), g = load(3);
        const Lanes3 normal = cross3(sub3(w1, w0), sub3(w2, w0));
        const Lanes3 toViewer = sub3(splat(cameraPosition_), g);
        const __m128 one = _mm_set1_ps(1.0f);
        const __m128 n = _mm_div_ps(one, _mm_sqrt_ps(dot3(normal, normal)));
        const __m128 v = _mm_div_ps(one, _mm_sqrt_ps(dot3(toViewer, toViewer)));
        const Lanes3 unitNormal{_mm_mul_ps(normal.x, n), _mm_mul_ps(normal.y, n),
                                _mm_mul_ps(normal.z, n)};
        const Lanes3 unitToViewer{_mm_mul_ps(toViewer.x, v), _mm_mul_ps(toViewer.y, v),
                                  _mm_mul_ps(toViewer.z, v)};
        _mm_storeu_ps(facing, dot3(unitToViewer, unitNormal));
#else
        for (int i = 0; i < waiting_; ++i) {
            const Waiting& w = wait_[i];
            const vec3 normal = unit(glm::cross(w.world[1] - w.world[0], w.world[2] - w.world[0]));
            facing[i] = glm::dot(unit(cameraPosition_ - w.centroid), normal);
        }
#endif
    }

    // (s0 + s1 + s2) / 3 and (w0 + w1 + w2) / 3, the five divisions done as one.
    static void centroids(ProjectedVertex* const (&p)[3], vec2& screen, vec3& world) {
        const vec2 s = p[0]->screen + p[1]->screen + p[2]->screen;
        const vec3 w = p[0]->world + p[1]->world + p[2]->world;
#if defined(__SSE2__)
        const __m128 three = _mm_set1_ps(3.0f);
        float out[8];
        _mm_storeu_ps(out, _mm_div_ps(_mm_setr_ps(s.x, s.y, w.x, w.y), three));
        _mm_storeu_ps(out + 4, _mm_div_ps(_mm_setr_ps(w.z, 0.0f, 0.0f, 0.0f), three));
        screen = vec2(out[0], out[1]);
        world = vec3(out[2], out[3], out[4]);
#else
        screen = s / 3.0f;
        world = w / 3.0f;
#endif
    }

    // Validity, front, overlap, depth: the cheap tests first, the registry last.
    bool passesAllButFacing(int t) {
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

        vec2 screenCentroid;
        vec3 worldCentroid;
        centroids(p, screenCentroid, worldCentroid);
        if (!overlaps(p, screenCentroid)) return false;

        for (const vec3& point : {p[0]->world, p[1]->world, p[2]->world, worldCentroid})
            if (glm::dot(point - cameraPosition_, cameraForward_) > depthLimit_) return false;

        Waiting& w = wait_[waiting_++];
        w.triangle = t;
        for (int k = 0; k < 3; ++k) w.world[k] = p[k]->world;
        w.centroid = worldCentroid;
        return true;
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
            if (sides_.crosses(a.screen, b.screen, vertexSides(a), vertexSides(b))) return true;
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
    const LassoIndex lasso_;
    const LassoSides sides_;
    const size_t words_;
    const float* threshold_ = nullptr;
    std::unique_ptr<ProjectedVertex[]> cache_{new ProjectedVertex[kCacheSize]};
    ProjectedVertex local_[3];

    struct Waiting {
        int triangle;
        vec3 world[3];
        vec3 centroid;
    };
    Waiting wait_[4];
    int waiting_ = 0;
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
