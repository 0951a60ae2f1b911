// What the two walks of the octree's ray hit share: the ray and matrix in the forms the node
// tests want, and the bound that lets a walk pass over a subtree beyond the nearest hit.
#pragma once

#include <korvex/octree.h>
#include <korvex/ray.h>

#include "octree/ray_kernels.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace octree_detail {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kUnit = 5.9604645e-8f; // 2^-24, the rounding unit of float

// A lower bound on the distance from the origin of any hit that a placed box can report,
// rounding of the triangle test included: where the ray meets a large triangle at a grazing
// angle the computed point may leave the triangle's box. Every accepted triangle has |a| >=
// 1e-6 in the test's determinant, and its edges are no longer than the box diagonal D, so the
// relative error of a is below about 10 * unit * kappa with kappa = D^2 * |direction| / 1e-6;
// the errors of t and of the barycentric point follow from it. The bound used is twice that
// estimate; boxes where kappa makes it meaningless are never passed over.
class SkipBound {
  public:
    SkipBound(const Ray& ray, const mat4& model)
        : origin_(ray.origin), directionLength_(glm::length(ray.direction)),
          originSize_(glm::length(ray.origin)) {
        for (int r = 0; r < 3; ++r) {
            rows_ = std::max(rows_, std::fabs(model[0][r]) + std::fabs(model[1][r]) +
                                        std::fabs(model[2][r]));
            shift_ = std::max(shift_, std::fabs(model[3][r]));
        }
    }

    // How far a placed vertex inside `modelBox` may stray from the placed box: both went
    // through the matrix with a rounding of a few units of the terms' size each.
    float placementPad(const AABB& modelBox) const {
        const float size = std::max(glm::length(modelBox.min), glm::length(modelBox.max));
        const float pad = 8.0f * kUnit * (rows_ * size + shift_);
        return std::isfinite(pad) ? pad : kInfinity;
    }

    // `box` is the node's box `modelBox` through the model matrix.
    float nearestHit(const PlacedBox& box, const AABB& modelBox) const {
        const float pad = placementPad(modelBox);
        vec3 gap, far, extent;
        for (int i = 0; i < 3; ++i) {
            gap[i] = std::max(std::max(box.lo[i] - pad - origin_[i], origin_[i] - box.hi[i] - pad),
                              0.0f);
            far[i] =
                std::max(std::fabs(box.lo[i] - origin_[i]), std::fabs(box.hi[i] - origin_[i])) +
                pad;
            extent[i] = box.hi[i] - box.lo[i];
        }
        const float diagonal = glm::length(extent) + 2.0f * pad;
        const float farthest = glm::length(far);
        const float kappa = diagonal * diagonal * directionLength_ * 1e6f;
        if (!(10.0f * kUnit * kappa < 0.1f)) return -kInfinity; // NaN and infinity too
        const float estimate = 20.0f * kUnit * kappa * (2.0f * farthest + diagonal) +
                               3.0f * kUnit * (originSize_ + farthest);
        const float lower = glm::length(gap) * (1.0f - 4.0f * kUnit) - 2.0f * estimate;
        return std::isnan(lower) ? -kInfinity : lower;
    }

  private:
    vec3 origin_;
    float directionLength_;
    float originSize_;
    float rows_ = 0.0f;  // largest row sum of |m| over the 3 x 3 part
    float shift_ = 0.0f; // largest |translation|
};

struct RayQuery {
    const Ray& ray;
    const mat4& model;
    const std::vector<kvx::nsVertex>& vertices;
    const std::vector<unsigned int>& indices;
    BoxProbe probe;
    SkipBound skip;
    // Subtrees may be passed over only where every box encloses its subtree's triangles, as in
    // a tree from the builder; a tree made by hand is searched wherever its boxes are hit.
    bool passOver;
#if defined(__SSE2__)
    LaneMatrix lanes;
    Lanes3 origin, direction;
#endif

    RayQuery(bool builtTree, const Ray& r, const mat4& m, const std::vector<kvx::nsVertex>& v,
             const std::vector<unsigned int>& i)
        : ray(r), model(m), vertices(v), indices(i), probe(r, m), skip(r, m), passOver(builtTree)
#if defined(__SSE2__)
          ,
          lanes(m), origin(splat(r.origin)), direction(splat(r.direction))
#endif
    {
    }
};

} // namespace octree_detail
