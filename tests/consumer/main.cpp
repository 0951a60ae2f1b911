// A host that links the installed package: one click on one triangle.
#include <korvex/korvex.h>

#include <cstdio>

int main() {
    std::vector<kvx::nsVertex> vertices = {
        kvx::nsVertex(vec3(-1, -1, 0), vec3(0, 0, 1)),
        kvx::nsVertex(vec3(1, -1, 0), vec3(0, 0, 1)),
        kvx::nsVertex(vec3(0, 1, 0), vec3(0, 0, 1)),
    };
    std::vector<unsigned int> indices = {0, 1, 2};
    vec3 hit;
    const Ray ray(vec3(0, 0, 5), vec3(0, 0, -1));
    if (!IntersectRayWithMesh(ray, vertices, indices, mat4(1.0f), hit)) return 1;
    LOG.String("consumer hit");
    std::printf("%g %g %g\n", hit.x, hit.y, hit.z);
    return hit.z == 0.0f ? 0 : 1;
}
