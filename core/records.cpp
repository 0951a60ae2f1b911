#include <korvex/records.h>

#include <cmath>

Vector3::Vector3() : x(0.0f), y(0.0f), z(0.0f) {}
Vector3::Vector3(float x, float y, float z) : x(x), y(y), z(z) {}

Vector3 Vector3::operator+(const Vector3& o) const {
    return Vector3(x + o.x, y + o.y, z + o.z);
}
Vector3& Vector3::operator+=(const Vector3& o) {
    x += o.x;
    y += o.y;
    z += o.z;
    return *this;
}
Vector3 Vector3::operator-(const Vector3& o) const {
    return Vector3(x - o.x, y - o.y, z - o.z);
}
Vector3& Vector3::operator-=(const Vector3& o) {
    x -= o.x;
    y -= o.y;
    z -= o.z;
    return *this;
}
Vector3 Vector3::operator*(float f) const {
    return Vector3(x * f, y * f, z * f);
}
float Vector3::length() const {
    return std::sqrt(x * x + y * y + z * z);
}
Vector3 Vector3::normalize() const {
    const float len = length();
    if (len > 0.0f) return Vector3(x / len, y / len, z / len);
    return Vector3();
}

namespace kvx {
nsVertex::nsVertex(const vec3& position, const vec3& normal) : position(position), normal(normal) {}
} // namespace kvx

Vertex::Vertex(const vec3& position, const vec3& normal) : position(position), normal(normal) {}

Triangle::Triangle(const vec3& p0, const vec3& p1, const vec3& p2) : p0(p0), p1(p1), p2(p2) {}

bool Triangle::operator==(const Triangle& o) const {
    return p0 == o.p0 && p1 == o.p1 && p2 == o.p2;
}

Edge::Edge(const vec3& a, const vec3& b) : a(a), b(b) {}

AABB::AABB(const vec3& min, const vec3& max) : min(min), max(max) {}

BoundingBox::BoundingBox() : min(kFloatMax), max(-kFloatMax) {}
BoundingBox::BoundingBox(const vec3& min, const vec3& max) : min(min), max(max) {}

vec3 BoundingBox::getPositiveVertex(const Plane& plane) const {
    const vec3& n = plane.normal;
    // A NaN component fails >= and so takes min.
    return vec3(n.x >= 0.0f ? max.x : min.x, n.y >= 0.0f ? max.y : min.y,
                n.z >= 0.0f ? max.z : min.z);
}

vec3 BoundingBox::GetCenter() const {
    return (max + min) * 0.5f;
}
vec3 BoundingBox::getSize() const {
    return max - min;
}

void BoundingBox::invalidate() {
    min = vec3(kFloatMax);
    max = vec3(-kFloatMax);
}

void BoundingBox::expand(const BoundingBox& o) {
    min = glm::min(min, o.min);
    max = glm::max(max, o.max);
}
