// meshGeometry::findTrianglesInOctreeInPolygonCompact: lasso selection over an octree.
//
// Each triangle is tested in turn, in tree order: validity, front, overlap, depth, facing. What
// a vertex contributes (its world and screen position, its depth, whether it lies in the lasso,
// on which side of each lasso edge it lies) is the same for every triangle around it, so it is
// worked out once and kept for the triangles that follow; the arithmetic is the same either
// way, and so is every answer.
#include <korvex/polygon.h>
#include <korvex/selection.h>

#include <halvane.h>

#include "octree/lasso_grid.h"
#include "octree/lasso_index.h"
#include "octree/lasso_vertices.h"
#include "octree/ray_kernels.h"
#include "octree/segment_crossing.h"
#include "octree/triangle_number.h"

#include <stdexcept>
#include <string>

namespace {

using namespace octree_detail;

constexpr float kDepthFloor = 2000.0f;
constexpr float kDepthAddend = 100.0f;
constexpr const char* kFacingVariable = "dot_normal";
// The lasso grid takes about a microsecond per lasso vertex and a tenth of a millisecond more to
// set up; with fewer triangles than this to test it costs more than it saves.
size_t entriesForGrid(size_t lassoSize) {
    return 16 * (lassoSize + 1024);
}

// max(2000, 2 margin + 100) + margin.
float depthLimitFor(float depthMargin) {
    const float band = depthMargin + depthMargin + kDepthAddend;
    return (kDepthFloor > band ? kDepthFloor : band) + depthMargin;
}

// What every triangle of one call shares: the camera, the lasso and its indexes, the output.
struct Setting {
    Setting(const std::vector<vec2>& polygon, const mat4& model,
            const std::vector<kvx::nsVertex>& vertices, const std::vector<unsigned int>& indices,
            std::vector<int>& result, const mat4& view, const mat4& projection, int width,
            int height, const vec3& cameraPosition, const vec3& cameraForward, float depthMargin,
            bool manyPoints)
        : polygon(polygon), rect(meshGeometry::computePolygonBounds(polygon)),
          placer(model, projection * view, static_cast<float>(width), static_cast<float>(height),
                 cameraPosition, cameraForward, depthLimitFor(depthMargin)),
          cameraPosition(cameraPosition), depthLimit(depthLimitFor(depthMargin)),
          vertices(vertices), indices(indices), result(result), lasso(polygon, rect),
          grid(manyPoints ? LassoGrid(polygon, rect, [&](const vec2& p) { return lasso.inside(p); })
                          : LassoGrid()),
          sides(polygon), words(sideWords(polygon.size())) {}

    const std::vector<vec2>& polygon;
    const ScreenRect rect;
    const VertexPlacer placer;
    const vec3 cameraPosition;
    const float depthLimit;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
    std::vector<int>& result;
    const LassoIndex lasso;
    const LassoGrid grid;
    const LassoSides sides;
    const size_t words;
    // The look-up key, formed once; the look-up itself is made for every triangle that reaches
    // the facing test.
    const std::string facingKey{kFacingVariable};
};

// One node's list of triangle numbers.
struct Span {
    const int* begin;
    const int* end;
};

// The triangles of the given lists, tested in order, their corners taken from `Store`
// (VertexSweep or VertexCache).
template <typename Store> class Selection {
  public:
    Selection(const Setting& s, Store& store) : s_(s), store_(store), sideCache_(s.sides) {}

    // The lists are in tree order; the mesh data of the lists ahead is requested while one is
    // tested.
    void run(const std::vector<Span>& lists) {
        for (size_t i = 0; i < lists.size(); ++i) {
            if (i + 8 < lists.size()) prefetchList(lists[i + 8]);
            if (i + 4 < lists.size()) prefetchIndices(lists[i + 4]);
            if (i + 2 < lists.size()) prefetchCorners(lists[i + 2]);
            for (const int* t = lists[i].begin; t != lists[i].end; ++t) consider(*t);
        }
        decideFacing();
    }

  private:
    static void prefetchList(const Span& list) {
        const size_t bytes = static_cast<size_t>(list.end - list.begin) * sizeof(int);
        for (size_t offset = 0; offset < bytes; offset += 64)
            __builtin_prefetch(reinterpret_cast<const char*>(list.begin) + offset);
    }

    void prefetchIndices(const Span& list) const {
        for (const int* t = list.begin; t != list.end; ++t)
            if (addressesIndices(*t, s_.indices.size()))
                __builtin_prefetch(&s_.indices[3 * size_t(*t)]);
    }

    void prefetchCorners(const Span& list) const {
        for (const int* t = list.begin; t != list.end; ++t) {
            unsigned int v[3];
            if (!triangleCorners(*t, s_.indices, s_.vertices.size(), v)) continue;
            for (unsigned int k : v) store_.prefetch(k);
        }
    }

    bool inLasso(const vec2& p) const {
        if (!(s_.rect.minX <= p.x && p.x <= s_.rect.maxX && s_.rect.minY <= p.y &&
              p.y <= s_.rect.maxY))
            return false;
        const LassoGrid::Answer answer = s_.grid.at(p);
        return answer == LassoGrid::kOpen ? s_.lasso.inside(p) : answer == LassoGrid::kInside;
    }

    bool vertexInLasso(PlacedVertex& p) const {
        if (!(p.flags & kLassoKnown)) p.flags |= kLassoKnown | (inLasso(p.screen) ? kInLasso : 0u);
        return p.flags & kInLasso;
    }

    // Looked up anew for each triangle, so the host's current entry counts.
    float facingThreshold() const {
        const auto& registry = GetVarRegistry();
        const auto entry = registry.find(s_.facingKey);
        if (entry == registry.end() || !entry->second.data)
            throw std::runtime_error(std::string("Variable not found: ") + kFacingVariable);
        return *static_cast<const float*>(entry->second.data);
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
            if (!(facingThreshold() > facing[i])) s_.result.push_back(waitingTriangle_[i]);
        waiting_ = 0;
    }

    // dot(unit(camera - centroid), unit(cross(w1 - w0, w2 - w0))), each unit vector the vector
    // times 1 / its length, for the waiting triangles.
    void facingOfWaiting(float* facing) const {
#if defined(__SSE2__)
        const auto load = [&](int k) {
            return Lanes3{_mm_loadu_ps(lanes_[k][0]), _mm_loadu_ps(lanes_[k][1]),
                          _mm_loadu_ps(lanes_[k][2])};
        };
        const Lanes3 w0 = load(0), w1 = load(1), w2 = load(2), g = load(3);
        const Lanes3 normal = cross3(sub3(w1, w0), sub3(w2, w0));
        const Lanes3 toViewer = sub3(splat(s_.cameraPosition), g);
        const __m128 one = _mm_set1_ps(1.0f);
        const __m128 n = _mm_div_ps(one, _mm_sqrt_ps(dot3(normal, normal)));
        const __m128 v = _mm_div_ps(one, _mm_sqrt_ps(dot3(toViewer, toViewer)));
        const Lanes3 unitNormal{_mm_mul_ps(normal.x, n), _mm_mul_ps(normal.y, n),
                                _mm_mul_ps(normal.z, n)};
        const Lanes3 unitToViewer{_mm_mul_ps(toViewer.x, v), _mm_mul_ps(toViewer.y, v),
                                  _mm_mul_ps(toViewer.z, v)};
        _mm_storeu_ps(facing, dot3(unitToViewer, unitNormal));
#else
        const auto unit = [](const vec3& v) { return v * (1.0f / glm::length(v)); };
        for (int i = 0; i < waiting_; ++i) {
            vec3 p[4];
            for (int k = 0; k < 4; ++k)
                p[k] = vec3(lanes_[k][0][i], lanes_[k][1][i], lanes_[k][2][i]);
            const vec3 normal = unit(glm::cross(p[1] - p[0], p[2] - p[0]));
            facing[i] = glm::dot(unit(s_.cameraPosition - p[3]), normal);
        }
#endif
    }

    // (s0 + s1 + s2) / 3 and (w0 + w1 + w2) / 3, the five divisions done as one.
    static void centroids(PlacedVertex* const (&p)[3], vec2& screen, vec3& world) {
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
        if (!triangleCorners(t, s_.indices, s_.vertices.size(), v)) return false;
        PlacedVertex* p[3];
        store_.corners(v, p);
        // One vertex behind the camera rules the triangle out, whatever the others do.
        const uint32_t any = p[0]->flags | p[1]->flags | p[2]->flags;
        if (any & kNotInFront) return false;

        vec2 screenCentroid;
        vec3 worldCentroid;
        centroids(p, screenCentroid, worldCentroid);
        if (!overlaps(v, p, screenCentroid)) return false;

        // The corners' depths were compared when they were placed; the centroid's here.
        if ((any & kBeyondDepth) || s_.placer.depth(worldCentroid) > s_.depthLimit) return false;

        const int i = waiting_++;
        waitingTriangle_[i] = t;
        for (int c = 0; c < 3; ++c) {
            lanes_[0][c][i] = p[0]->world[c];
            lanes_[1][c][i] = p[1]->world[c];
            lanes_[2][c][i] = p[2]->world[c];
            lanes_[3][c][i] = worldCentroid[c];
        }
        return true;
    }

    // A vertex or the centroid in the lasso, or an edge crossing it. Which is tried first
    // changes nothing: the tests have no effects.
    bool overlaps(const unsigned int (&v)[3], PlacedVertex* const (&p)[3], const vec2& centroid) {
        for (PlacedVertex* q : p)
            if (vertexInLasso(*q)) return true;
        if (inLasso(centroid)) return true;
        if (s_.words > kMaxSideWords)
            return segmentCrossesPolygon(s_.polygon, p[0]->screen, p[1]->screen) ||
                   segmentCrossesPolygon(s_.polygon, p[1]->screen, p[2]->screen) ||
                   segmentCrossesPolygon(s_.polygon, p[2]->screen, p[0]->screen);
        uint64_t sides[3][kMaxSideWords];
        for (int k = 0; k < 3; ++k) sideCache_.of(v[k], p[k]->screen, sides[k]);
        for (int k = 0; k < 3; ++k) {
            const int next = k == 2 ? 0 : k + 1;
            if (s_.sides.crosses(p[k]->screen, p[next]->screen, sides[k], sides[next])) return true;
        }
        return false;
    }

    const Setting& s_;
    Store& store_;
    SideCache sideCache_;

    // Up to four triangles waiting for the facing test: their numbers, and their corners and
    // centroids by point, coordinate and lane.
    int waitingTriangle_[4];
    float lanes_[4][3][4] = {};
    int waiting_ = 0;
};

// The tree's non-empty lists in tree order (a node's own list, then its children in slot
// order), and how many entries they hold.
size_t listsInTreeOrder(const OctreeNode* root, std::vector<Span>& lists) {
    size_t entries = 0;
    std::vector<const OctreeNode*> pending{root};
    while (!pending.empty()) {
        const OctreeNode* node = pending.back();
        pending.pop_back();
        if (!node->triangles.empty()) {
            const int* begin = node->triangles.data();
            lists.push_back(Span{begin, begin + node->triangles.size()});
            entries += node->triangles.size();
        }
        for (int slot = 7; slot >= 0; --slot)
            if (node->children[slot]) pending.push_back(node->children[slot]);
    }
    return entries;
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
    std::vector<Span> lists;
    const size_t entries = listsInTreeOrder(node, lists);
    const Setting setting(polygon, modelMatrix, vertices, indices, result, viewMatrix,
                          projectionMatrix, screenWidth, screenHeight, cameraPosition,
                          cameraForward, depthMargin, entries >= entriesForGrid(polygon.size()));
    // A closed mesh has about two triangles a vertex. A tree with at least one entry for every
    // two vertices uses enough of the mesh that one streaming pass over all vertices costs less
    // than fetching the used ones where the tree order finds them.
    // The call stops at its first missing "dot_normal", before anything has been accepted, so
    // `result` stays as given: nothing to undo.
    if (2 * entries >= vertices.size()) {
        VertexSweep store(setting.placer, vertices);
        Selection<VertexSweep>(setting, store).run(lists);
    } else {
        VertexCache store(setting.placer, vertices);
        Selection<VertexCache>(setting, store).run(lists);
    }
}

} // namespace meshGeometry
