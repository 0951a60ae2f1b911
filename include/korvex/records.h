// The plain records that cross the library's boundary. All of them are
// trivially copyable, with their fields in the order the host's own copies of
// these records use, so that a std::vector of them is the array both share.
#pragma once

#include <korvex/export.h>

#include <cstdint>
#include <optional>
#include <vector>

#include <glm/glm.hpp>

using glm::ivec3;
using glm::mat4;
using glm::vec2;
using glm::vec3;
using glm::vec4;

// The largest finite float: the start of every minimum search and the
// minimum corner of an invalid box.
constexpr float kFloatMax = 3.4028235e38f;

class KORVEX_API Vector3 {
  public:
    float x, y, z;

    Vector3();
    Vector3(float x, float y, float z);

    Vector3 operator+(const Vector3& other) const;
    Vector3& operator+=(const Vector3& other);
    Vector3 operator-(const Vector3& other) const;
    Vector3& operator-=(const Vector3& other);
    Vector3 operator*(float factor) const;
    float length() const;
    // A unit copy, or the zero vector when the length is 0.
    Vector3 normalize() const;
};

namespace kvx {

// The interleaved vertex of every mesh that crosses the boundary.
struct KORVEX_API nsVertex {
    vec3 position;
    vec3 normal;
    vec3 tangent;
    vec3 bitangent;
    vec2 uv;
    vec2 uv2{0.0f, 0.0f};
    vec4 color{1.0f, 1.0f, 1.0f, 1.0f};
    uint32_t extra[8] = {};

    // position, normal, tangent, bitangent and uv stay undefined.
    nsVertex() {}
    // tangent, bitangent and uv stay undefined.
    nsVertex(const vec3& position, const vec3& normal);
    ~nsVertex() = default;
};

} // namespace kvx

struct KORVEX_API Vertex {
    vec3 position;
    vec3 normal;

    Vertex() {}
    Vertex(const vec3& position, const vec3& normal);
    ~Vertex() = default;
};

// Opaque host payload carried by Triangle; the library never reads it.
using TriangleHostData = std::optional<vec4>;

struct KORVEX_API Triangle {
    vec3 p0, p1, p2;
    TriangleHostData hostData;
    uint32_t hostTag = 0;

    // The corners stay undefined.
    Triangle() {}
    Triangle(const vec3& p0, const vec3& p1, const vec3& p2);
    ~Triangle() = default;

    // Exact comparison of the nine corner floats, in place; host fields are ignored.
    bool operator==(const Triangle& other) const;
};

struct KORVEX_API Edge {
    vec3 a;
    vec3 b;

    Edge() = default;
    Edge(const vec3& a, const vec3& b);

    // Equal when the end points match in either pairing, each point within
    // 1e-5 per axis (strictly) of its partner.
    bool operator==(const Edge& other) const;
};

struct KORVEX_API AABB {
    vec3 min;
    vec3 max;

    AABB() = default;
    AABB(const vec3& min, const vec3& max);
};

struct Plane {
    float distance;
    vec3 normal;

    Plane() = default;
    Plane(float distance, const vec3& normal) : distance(distance), normal(normal) {}
};

struct Ray {
    vec3 origin;
    vec3 direction;

    Ray() = default;
    Ray(const vec3& origin, const vec3& direction) : origin(origin), direction(direction) {}
};

struct KORVEX_API BoundingBox {
    vec3 min;
    vec3 max;

    // A default box is invalid, ready to be expanded.
    BoundingBox();
    BoundingBox(const vec3& min, const vec3& max);

    // Infinite line against the box, both directions, no guard on zero components.
    bool intersects(const Ray& ray) const;
    // Per axis: max where the normal's component is >= 0, otherwise min.
    vec3 getPositiveVertex(const Plane& plane) const;
    vec3 GetCenter() const;
    vec3 getSize() const;
    void invalidate();
    void expand(const BoundingBox& other);
};

struct ScreenRect {
    float minX;
    float minY;
    float maxX;
    float maxY;

    ScreenRect() = default;
    ScreenRect(float minX, float minY, float maxX, float maxY)
        : minX(minX), minY(minY), maxX(maxX), maxY(maxY) {}
};

// A triangle-list mesh owned by the caller; mesh processing replaces both lists.
struct MeshData {
    std::vector<kvx::nsVertex> vertices;
    std::vector<unsigned int> indices;
};

namespace meshutils {

// Grid simplification settings: `cellSize` when positive, else a cell derived
// from the box diagonal and `detail`.
struct SimplifyOptions {
    float detail;
    float cellSize;
};

} // namespace meshutils
