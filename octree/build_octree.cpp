// buildOctree: a tree over triangles given as vertex indices, built on the calling thread.
#include <korvex/octree.h>

#include <cmath>
#include <limits>

namespace {

constexpr int kDepthLimit = 8;         // deeper nodes are leaves
constexpr size_t kEntriesToSplit = 33; // fewer entries (under 11 triangles) make a leaf
constexpr float kSizeToSplit = 0.05f;  // a shorter box diagonal makes a leaf

// Widening by a point; a NaN coordinate never wins a comparison and so leaves the box alone.
inline void widen(AABB& box, const vec3& p) {
    box.min = glm::min(box.min, p);
    box.max = glm::max(box.max, p);
}

inline vec3 positionOf(const std::vector<vec3>& positions, unsigned int entry) {
    // An entry past the array has no position: NaN widens nothing and sorts to octant 0.
    return entry < positions.size() ? positions[entry]
                                    : vec3(std::numeric_limits<float>::quiet_NaN());
}

inline int octantOf(const vec3& c, const vec3& m) {
    return (c.x >= m.x ? 1 : 0) | (c.y >= m.y ? 2 : 0) | (c.z >= m.z ? 4 : 0);
}

OctreeNode* build(const std::vector<vec3>& positions, const std::vector<unsigned int>& indices,
                  const std::vector<size_t>& carriedList, int depth, const mat4& matrix) {
    if (indices.empty()) return nullptr;
    OctreeNode* node = new OctreeNode();
    try {
        node->bounds = AABB(vec3(kFloatMax), vec3(-kFloatMax));
        for (unsigned int entry : indices) widen(node->bounds, positionOf(positions, entry));

        // Only the two stored corners go through the matrix, not all eight.
        const vec3 a = vec3(matrix * vec4(node->bounds.min, 1.0f));
        const vec3 b = vec3(matrix * vec4(node->bounds.max, 1.0f));
        node->worldBounds = AABB(glm::min(a, b), glm::max(a, b));

        const bool leaf = depth > kDepthLimit || indices.size() < kEntriesToSplit ||
                          glm::length(node->bounds.max - node->bounds.min) < kSizeToSplit;
        const auto keepAll = [&] {
            node->triangles.assign(indices.begin(), indices.end());
            return node;
        };
        if (leaf) return keepAll();

        const vec3 centre = (node->bounds.min + node->bounds.max) * 0.5f;
        std::vector<unsigned int> lists[8];
        const size_t whole = indices.size() - indices.size() % 3;
        int firstCode = -1;
        bool oneOctant = true;
        for (size_t i = 0; i < whole; i += 3) {
            const vec3 c =
                (positionOf(positions, indices[i]) + positionOf(positions, indices[i + 1]) +
                 positionOf(positions, indices[i + 2])) /
                3.0f;
            const int code = octantOf(c, centre);
            if (firstCode < 0) firstCode = code;
            oneOctant = oneOctant && code == firstCode;
            lists[code].insert(lists[code].end(), {indices[i], indices[i + 1], indices[i + 2]});
        }
        if (oneOctant) return keepAll();
        // A trailing incomplete triangle travels with octant 0 so that no entry is lost.
        lists[0].insert(lists[0].end(), indices.begin() + static_cast<std::ptrdiff_t>(whole),
                        indices.end());

        for (int slot = 0; slot < 8; ++slot)
            if (!lists[slot].empty())
                node->children[slot] =
                    build(positions, lists[slot], carriedList, depth + 1, matrix);
        return node;
    } catch (...) {
        freeOctree(node);
        throw;
    }
}

} // namespace

OctreeNode* buildOctree(const std::vector<vec3>& positions,
                        const std::vector<unsigned int>& indices,
                        const std::vector<size_t>& carriedList, int depth, const mat4& matrix) {
    // A negative depth would only lengthen the way down to the limit.
    return build(positions, indices, carriedList, depth < 0 ? 0 : depth, matrix);
}
