#include "openmesh_peer.h"

#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#include <OpenMesh/Tools/Subdivider/Uniform/LoopT.hh>
#include <OpenMesh/Tools/Subdivider/Uniform/MidpointT.hh>

#include <vector>

namespace bench {

struct OpenMeshMesh {
    OpenMesh::TriMesh_ArrayKernelT<> mesh;
};

using Kernel = OpenMesh::TriMesh_ArrayKernelT<>;

OpenMeshMesh* openMeshBuild(const MeshData& input) {
    auto* out = new OpenMeshMesh;
    std::vector<Kernel::VertexHandle> handles;
    handles.reserve(input.vertices.size());
    for (const kvx::nsVertex& v : input.vertices)
        handles.push_back(
            out->mesh.add_vertex(Kernel::Point(v.position.x, v.position.y, v.position.z)));
    for (size_t t = 0; t + 2 < input.indices.size(); t += 3)
        out->mesh.add_face(handles[input.indices[t]], handles[input.indices[t + 1]],
                           handles[input.indices[t + 2]]);
    return out;
}

OpenMeshMesh* openMeshCopy(const OpenMeshMesh* mesh) {
    return new OpenMeshMesh(*mesh);
}

void openMeshRelease(OpenMeshMesh* mesh) {
    delete mesh;
}

size_t openMeshFaces(const OpenMeshMesh* mesh) {
    return mesh->mesh.n_faces();
}

void openMeshMidpointPass(OpenMeshMesh* mesh) {
    OpenMesh::Subdivider::Uniform::MidpointT<Kernel> subdivider;
    subdivider.attach(mesh->mesh);
    subdivider(1);
    subdivider.detach();
}

void openMeshLoopPass(OpenMeshMesh* mesh) {
    OpenMesh::Subdivider::Uniform::LoopT<Kernel> subdivider;
    subdivider.attach(mesh->mesh);
    subdivider(1);
    subdivider.detach();
}

} // namespace bench
