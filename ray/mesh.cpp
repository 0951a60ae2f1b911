#include <korvex/ray.h>

bool IntersectRayWithMesh(const Ray& ray, const std::vector<kvx::nsVertex>& vertices,
                          const std::vector<unsigned int>& indices, const mat4& model,
                          vec3& hitPoint) {
    if (indices.size() < 3) return false;
    float best = kFloatMax;
    bool found = false;
    const size_t end = indices.size() - indices.size() % 3;
    for (size_t i = 0; i < end; i += 3) {
        const vec3 p0 = vec3(model * vec4(vertices[indices[i]].position, 1.0f));
        const vec3 p1 = vec3(model * vec4(vertices[indices[i + 1]].position, 1.0f));
        const vec3 p2 = vec3(model * vec4(vertices[indices[i + 2]].position, 1.0f));
        vec3 point;
        float t;
        // Strictly nearer only: the earliest triangle keeps a tie.
        if (RayIntersectsTriangle(ray, p0, p1, p2, point, t) && t < best) {
            best = t;
            hitPoint = point;
            found = true;
        }
    }
    return found;
}
