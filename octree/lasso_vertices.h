// Where the lasso selection keeps each mesh vertex's world and screen position, worked out once
// per call and shared by the triangles around the vertex (about six on a closed mesh).
//
// Two stores with the same interface:
// - VertexSweep places every vertex of the mesh in one pass, in vertex order. The 112-byte
//   records are then read front to back once, which the memory system streams, instead of in
//   the scattered order of the tree. Worth it when the tree holds a good part of the mesh.
// - VertexCache places a vertex when a triangle first asks for it and keeps it in a small
//   direct-mapped cache, evicted ones placed again to the same values. Its size does not grow
//   with the mesh: for a tree over a small part of a large mesh.
#pragma once

#include <korvex/records.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace octree_detail {

// A point whose clip w is at or below this cannot be projected; its screen x and y are the mark.
constexpr float kSmallestClipW = 0.00001f;
constexpr float kUnprojectable = -9999.0f;

// What the tests of a triangle ask of each of its corners, worked out with its position.
enum VertexFlags : uint32_t {
    kNotInFront = 1,  // its screen x is the mark: the triangle is passed over
    kBeyondDepth = 2, // farther along the view direction than the depth limit
    kLassoKnown = 4,  // kInLasso below has been filled in
    kInLasso = 8,     // in the lasso's rectangle and in the lasso
};

struct PlacedVertex {
    vec2 screen;
    vec3 world;
    uint32_t flags;
};

// World position: model * (p, 1) with the fourth component dropped. Screen position: clip
// = viewProjection * (world, 1), then x = (clip.x / clip.w * 0.5 + 0.5) * width and y = (1 -
// (clip.y / clip.w * 0.5 + 0.5)) * height, or the mark when clip.w is too small. Depth: dot(world
// - camera, forward). GLM's mat4 * vec4 is (m0 * x + m1 * y) + (m2 * z + m3 * w) and its dot
// (x + y) + z; the four-lane form below keeps those orders, so both forms give the same bits.
class VertexPlacer {
  public:
    VertexPlacer(const mat4& model, const mat4& viewProjection, float width, float height,
                 const vec3& camera, const vec3& forward, float depthLimit)
        : model_(model), viewProjection_(viewProjection), width_(width), height_(height),
          camera_(camera), forward_(forward), depthLimit_(depthLimit) {
#if defined(__SSE2__)
        for (int c = 0; c < 4; ++c)
            for (int r = 0; r < 4; ++r) {
                model4_[c][r] = _mm_set1_ps(model[c][r]);
                vp4_[c][r] = _mm_set1_ps(viewProjection[c][r]);
            }
        // The last column meets the point's w of 1.
        for (int r = 0; r < 4; ++r) {
            model4_[3][r] = _mm_mul_ps(model4_[3][r], _mm_set1_ps(1.0f));
            vp4_[3][r] = _mm_mul_ps(vp4_[3][r], _mm_set1_ps(1.0f));
        }
#endif
    }

    void place(const vec3& position, PlacedVertex& out) const {
        out.world = vec3(model_ * vec4(position, 1.0f));
        const vec4 clip = viewProjection_ * vec4(out.world, 1.0f);
        if (clip.w <= kSmallestClipW)
            out.screen = vec2(kUnprojectable);
        else
            out.screen = vec2((clip.x / clip.w * 0.5f + 0.5f) * width_,
                              (1.0f - (clip.y / clip.w * 0.5f + 0.5f)) * height_);
        out.flags = 0;
        if (out.screen.x == kUnprojectable) out.flags |= kNotInFront;
        if (depth(out.world) > depthLimit_) out.flags |= kBeyondDepth;
    }

    float depth(const vec3& world) const {
        return glm::dot(world - camera_, forward_);
    }

    // place() for vertices[0], ..., vertices[3].
    void placeFour(const kvx::nsVertex* vertices, PlacedVertex* out) const {
#if defined(__SSE2__)
        const vec3 &a = vertices[0].position, &b = vertices[1].position, &c = vertices[2].position,
                   &d = vertices[3].position;
        const __m128 px = _mm_setr_ps(a.x, b.x, c.x, d.x);
        const __m128 py = _mm_setr_ps(a.y, b.y, c.y, d.y);
        const __m128 pz = _mm_setr_ps(a.z, b.z, c.z, d.z);
        __m128 world[3];
        for (int r = 0; r < 3; ++r) world[r] = times(model4_, r, px, py, pz);
        __m128 clip[4];
        for (int r = 0; r < 4; ++r) clip[r] = times(vp4_, r, world[0], world[1], world[2]);
        const __m128 half = _mm_set1_ps(0.5f), one = _mm_set1_ps(1.0f);
        const __m128 marked = _mm_cmple_ps(clip[3], _mm_set1_ps(kSmallestClipW));
        const __m128 mark = _mm_and_ps(marked, _mm_set1_ps(kUnprojectable));
        const __m128 sx = _mm_mul_ps(
            _mm_add_ps(_mm_mul_ps(_mm_div_ps(clip[0], clip[3]), half), half), _mm_set1_ps(width_));
        const __m128 sy = _mm_mul_ps(
            _mm_sub_ps(one, _mm_add_ps(_mm_mul_ps(_mm_div_ps(clip[1], clip[3]), half), half)),
            _mm_set1_ps(height_));
        const __m128 screenX = _mm_or_ps(mark, _mm_andnot_ps(marked, sx));
        const __m128 screenY = _mm_or_ps(mark, _mm_andnot_ps(marked, sy));
        const __m128 depth = _mm_add_ps(
            _mm_add_ps(
                _mm_mul_ps(_mm_sub_ps(world[0], _mm_set1_ps(camera_.x)), _mm_set1_ps(forward_.x)),
                _mm_mul_ps(_mm_sub_ps(world[1], _mm_set1_ps(camera_.y)), _mm_set1_ps(forward_.y))),
            _mm_mul_ps(_mm_sub_ps(world[2], _mm_set1_ps(camera_.z)), _mm_set1_ps(forward_.z)));
        const int notInFront = _mm_movemask_ps(_mm_cmpeq_ps(screenX, _mm_set1_ps(kUnprojectable)));
        const int beyond = _mm_movemask_ps(_mm_cmpgt_ps(depth, _mm_set1_ps(depthLimit_)));
        float lanes[5][4];
        _mm_storeu_ps(lanes[0], screenX);
        _mm_storeu_ps(lanes[1], screenY);
        for (int r = 0; r < 3; ++r) _mm_storeu_ps(lanes[2 + r], world[r]);
        for (int k = 0; k < 4; ++k) {
            out[k].screen = vec2(lanes[0][k], lanes[1][k]);
            out[k].world = vec3(lanes[2][k], lanes[3][k], lanes[4][k]);
            out[k].flags = ((notInFront >> k) & 1 ? kNotInFront : 0u) |
                           ((beyond >> k) & 1 ? kBeyondDepth : 0u);
        }
#else
        for (int k = 0; k < 4; ++k) place(vertices[k].position, out[k]);
#endif
    }

  private:
#if defined(__SSE2__)
    // Row r of m * (x, y, z, 1) for four points: (m0 * x + m1 * y) + (m2 * z + m3 * 1), the
    // last product already in m.
    static __m128 times(const __m128 (&m)[4][4], int r, __m128 x, __m128 y, __m128 z) {
        return _mm_add_ps(_mm_add_ps(_mm_mul_ps(m[0][r], x), _mm_mul_ps(m[1][r], y)),
                          _mm_add_ps(_mm_mul_ps(m[2][r], z), m[3][r]));
    }

    __m128 model4_[4][4];
    __m128 vp4_[4][4];
#endif
    mat4 model_;
    mat4 viewProjection_;
    float width_;
    float height_;
    vec3 camera_;
    vec3 forward_;
    float depthLimit_;
};

// Every vertex placed up front, in vertex order.
class VertexSweep {
  public:
    VertexSweep(const VertexPlacer& placer, const std::vector<kvx::nsVertex>& vertices)
        : placed_(new PlacedVertex[vertices.size()]) {
        const size_t n = vertices.size();
        size_t v = 0;
        for (; v + 4 <= n; v += 4) placer.placeFour(&vertices[v], &placed_[v]);
        for (; v < n; ++v) placer.place(vertices[v].position, placed_[v]);
    }

    void prefetch(unsigned int v) const { __builtin_prefetch(&placed_[v]); }

    void corners(const unsigned int (&v)[3], PlacedVertex* (&p)[3]) {
        for (int k = 0; k < 3; ++k) p[k] = &placed_[v[k]];
    }

  private:
    std::unique_ptr<PlacedVertex[]> placed_;
};

// Recently asked vertices, in a direct-mapped cache keyed by vertex number. Tree order keeps
// neighbouring triangles together, so most corners are found there.
class VertexCache {
  public:
    VertexCache(const VertexPlacer& placer, const std::vector<kvx::nsVertex>& vertices)
        : placer_(placer), vertices_(vertices), entries_(new Entry[kSize]) {
        for (size_t i = 0; i < kSize; ++i) entries_[i].vertex = ~0u; // no vertex has it
    }

    void prefetch(unsigned int v) const { __builtin_prefetch(&vertices_[v].position); }

    // The three corners' records; when two corners compete for one entry all three are placed
    // apart from the cache, so that no record is overwritten while it is in use.
    void corners(const unsigned int (&v)[3], PlacedVertex* (&p)[3]) {
        const size_t slot[3] = {slotOf(v[0]), slotOf(v[1]), slotOf(v[2])};
        const bool clash = (slot[0] == slot[1] && v[0] != v[1]) ||
                           (slot[1] == slot[2] && v[1] != v[2]) ||
                           (slot[0] == slot[2] && v[0] != v[2]);
        for (int k = 0; k < 3; ++k) {
            if (clash) {
                placer_.place(vertices_[v[k]].position, apart_[k]);
                p[k] = &apart_[k];
                continue;
            }
            Entry& e = entries_[slot[k]];
            if (e.vertex != v[k]) {
                e.vertex = v[k];
                placer_.place(vertices_[v[k]].position, e.placed);
            }
            p[k] = &e.placed;
        }
    }

  private:
    static constexpr int kBits = 14;
    static constexpr size_t kSize = size_t(1) << kBits;

    // Fibonacci hashing: meshes number their vertices in rows, and the low bits alone would
    // make neighbouring rows compete for the same entries.
    static size_t slotOf(unsigned int v) {
        return static_cast<uint32_t>(v * 2654435769u) >> (32 - kBits);
    }

    struct Entry {
        unsigned int vertex;
        PlacedVertex placed;
    };

    const VertexPlacer& placer_;
    const std::vector<kvx::nsVertex>& vertices_;
    std::unique_ptr<Entry[]> entries_;
    PlacedVertex apart_[3];
};

} // namespace octree_detail
