#include "view.h"

#include <cmath>

#include <glm/gtc/matrix_transform.hpp>

namespace cli {

std::vector<OptionSpec> viewOptions() {
    return {
        {"--eye", true, "X,Y,Z      camera position (default: framing the mesh from +z)"},
        {"--target", true, "X,Y,Z   point looked at (default: centre of the mesh's box)"},
        {"--fov", true, "DEGREES       vertical field of view (default 60)"},
        {"--size", true, "WxH          viewport size in pixels (default 800x600)"},
    };
}

std::vector<OptionSpec> withViewOptions(std::vector<OptionSpec> own) {
    for (OptionSpec& o : viewOptions()) own.push_back(o);
    return own;
}

View makeView(const Args& args, const MeshData& mesh) {
    View v;
    v.fovDegrees = args.number("--fov", 60.0f);
    if (!(v.fovDegrees > 0.0f && v.fovDegrees < 180.0f))
        throw UsageError("--fov: the field of view must lie between 0 and 180 degrees");
    v.width = 800;
    v.height = 600;
    if (auto size = args.value("--size")) {
        const size_t x = size->find_first_of("xX");
        if (x == std::string::npos) throw UsageError("--size: expected WxH, got '" + *size + "'");
        v.width = parseInteger(size->substr(0, x), "--size");
        v.height = parseInteger(size->substr(x + 1), "--size");
        if (v.width <= 0 || v.height <= 0)
            throw UsageError("--size: width and height must be positive");
    }

    vec3 lo(kFloatMax), hi(-kFloatMax);
    for (const kvx::nsVertex& vertex : mesh.vertices) {
        lo = glm::min(lo, vertex.position);
        hi = glm::max(hi, vertex.position);
    }
    const vec3 centre = mesh.vertices.empty() ? vec3(0.0f) : (lo + hi) * 0.5f;
    const float radius =
        mesh.vertices.empty() ? 1.0f : std::max(glm::length(hi - lo) * 0.5f, 1e-3f);

    v.target = args.vector3("--target").value_or(centre);
    const float halfFov = glm::radians(v.fovDegrees) * 0.5f;
    const float distance = radius / std::sin(halfFov) * 1.1f;
    v.eye = args.vector3("--eye").value_or(v.target + vec3(0.0f, 0.0f, distance));
    if (glm::length(v.eye - v.target) <= 0.0f)
        throw UsageError("--eye and --target must be different points");

    vec3 up(0.0f, 1.0f, 0.0f);
    const vec3 forward = glm::normalize(v.target - v.eye);
    if (std::fabs(glm::dot(forward, up)) > 0.999f) up = vec3(0.0f, 0.0f, -1.0f);
    v.view = glm::lookAt(v.eye, v.target, up);
    const float range = glm::length(v.eye - v.target) + radius;
    v.projection = glm::perspective(glm::radians(v.fovDegrees),
                                    static_cast<float>(v.width) / static_cast<float>(v.height),
                                    range * 1e-3f, range * 4.0f);
    return v;
}

vec2 pixelOption(const Args& args, const View& view) {
    return args.vector2("--pixel").value_or(vec2(view.width / 2, view.height / 2));
}

} // namespace cli
