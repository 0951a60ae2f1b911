#include "embree_peer.h"

#include <embree3/rtcore.h>

#include <cstring>
#include <limits>

namespace bench {

struct EmbreeScene {
    RTCDevice device;
    RTCScene scene;
};

EmbreeScene* embreeBuild(const MeshData& mesh) {
    auto* out = new EmbreeScene;
    out->device = rtcNewDevice(nullptr);
    out->scene = rtcNewScene(out->device);
    RTCGeometry geometry = rtcNewGeometry(out->device, RTC_GEOMETRY_TYPE_TRIANGLE);
    // Embree's own buffers carry the padding its vector loads need.
    auto* vertices = static_cast<float*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                3 * sizeof(float), mesh.vertices.size()));
    for (size_t i = 0; i < mesh.vertices.size(); ++i)
        std::memcpy(vertices + 3 * i, &mesh.vertices[i].position, 3 * sizeof(float));
    const size_t triangles = mesh.indices.size() / 3;
    auto* indices = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), triangles));
    std::memcpy(indices, mesh.indices.data(), triangles * 3 * sizeof(unsigned));
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(out->scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(out->scene);
    return out;
}

void embreeRelease(EmbreeScene* scene) {
    if (!scene) return;
    rtcReleaseScene(scene->scene);
    rtcReleaseDevice(scene->device);
    delete scene;
}

bool embreeIntersect(const EmbreeScene* scene, const Ray& ray, float& distance,
                     unsigned& triangle) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit rh;
    rh.ray.org_x = ray.origin.x;
    rh.ray.org_y = ray.origin.y;
    rh.ray.org_z = ray.origin.z;
    rh.ray.dir_x = ray.direction.x;
    rh.ray.dir_y = ray.direction.y;
    rh.ray.dir_z = ray.direction.z;
    rh.ray.tnear = 0.0f;
    rh.ray.tfar = std::numeric_limits<float>::infinity();
    rh.ray.time = 0.0f;
    rh.ray.mask = ~0u;
    rh.ray.id = 0;
    rh.ray.flags = 0;
    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rh.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene->scene, &context, &rh);
    if (rh.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
    distance = rh.ray.tfar;
    triangle = rh.hit.primID;
    return true;
}

} // namespace bench
