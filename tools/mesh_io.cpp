#include "mesh_io.h"
#include "cli.h"

#include <algorithm>
#include <cmath>

#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

namespace cli {

namespace {

std::string lowerExtension(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

vec3 toVec3(const aiVector3D& v) {
    return vec3(v.x, v.y, v.z);
}

} // namespace

MeshData loadMesh(const std::string& path) {
    Assimp::Importer importer;
    const unsigned flags = aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                           aiProcess_PreTransformVertices | aiProcess_SortByPType;
    const aiScene* scene = importer.ReadFile(path, flags);
    if (!scene) throw UsageError("cannot read mesh '" + path + "': " + importer.GetErrorString());
    MeshData mesh;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        const aiMesh* src = scene->mMeshes[m];
        if (!(src->mPrimitiveTypes & aiPrimitiveType_TRIANGLE)) continue;
        const auto base = static_cast<unsigned>(mesh.vertices.size());
        for (unsigned i = 0; i < src->mNumVertices; ++i) {
            kvx::nsVertex v(toVec3(src->mVertices[i]),
                            src->HasNormals() ? toVec3(src->mNormals[i]) : vec3(0.0f));
            v.tangent = src->HasTangentsAndBitangents() ? toVec3(src->mTangents[i]) : vec3(0.0f);
            v.bitangent =
                src->HasTangentsAndBitangents() ? toVec3(src->mBitangents[i]) : vec3(0.0f);
            v.uv = src->HasTextureCoords(0)
                       ? vec2(src->mTextureCoords[0][i].x, src->mTextureCoords[0][i].y)
                       : vec2(0.0f);
            mesh.vertices.push_back(v);
        }
        for (unsigned f = 0; f < src->mNumFaces; ++f) {
            const aiFace& face = src->mFaces[f];
            if (face.mNumIndices != 3) continue;
            for (unsigned k = 0; k < 3; ++k) mesh.indices.push_back(base + face.mIndices[k]);
        }
    }
    if (mesh.indices.empty()) throw UsageError("mesh '" + path + "' holds no triangles");
    return mesh;
}

namespace {

std::string exportFormat(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == "obj") return "obj";
    if (ext == "ply") return "ply";
    if (ext == "stl") return "stl";
    if (ext == "gltf") return "gltf2";
    if (ext == "glb") return "glb2";
    throw UsageError("cannot write '" + path + "': use .obj, .ply, .stl, .gltf or .glb");
}

} // namespace

void checkSavePath(const std::string& path) {
    exportFormat(path);
}

void saveMesh(const MeshData& mesh, const std::string& path) {
    const std::string format = exportFormat(path);

    // Assimp's scene takes ownership of everything hung on it.
    aiScene scene;
    scene.mRootNode = new aiNode();
    scene.mNumMaterials = 1;
    scene.mMaterials = new aiMaterial* [1] { new aiMaterial() };
    scene.mNumMeshes = 1;
    scene.mMeshes = new aiMesh* [1] { new aiMesh() };
    scene.mRootNode->mNumMeshes = 1;
    scene.mRootNode->mMeshes = new unsigned[1]{0};

    aiMesh* out = scene.mMeshes[0];
    out->mMaterialIndex = 0;
    out->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    out->mNumVertices = static_cast<unsigned>(mesh.vertices.size());
    out->mVertices = new aiVector3D[mesh.vertices.size()];
    out->mNormals = new aiVector3D[mesh.vertices.size()];
    for (size_t i = 0; i < mesh.vertices.size(); ++i) {
        const kvx::nsVertex& v = mesh.vertices[i];
        out->mVertices[i] = aiVector3D(v.position.x, v.position.y, v.position.z);
        out->mNormals[i] = aiVector3D(v.normal.x, v.normal.y, v.normal.z);
    }
    const size_t faces = mesh.indices.size() / 3;
    out->mNumFaces = static_cast<unsigned>(faces);
    out->mFaces = new aiFace[faces];
    for (size_t f = 0; f < faces; ++f) {
        aiFace& face = out->mFaces[f];
        face.mNumIndices = 3;
        face.mIndices =
            new unsigned[3]{mesh.indices[3 * f], mesh.indices[3 * f + 1], mesh.indices[3 * f + 2]};
    }
    Assimp::Exporter exporter;
    if (exporter.Export(&scene, format, path) != AI_SUCCESS)
        throw UsageError("cannot write '" + path + "': " + exporter.GetErrorString());
}

MeshData makeUvSphere(int slices, int stacks) {
    MeshData mesh;
    const float pi = 3.14159265358979f;
    for (int j = 0; j <= stacks; ++j) {
        const float phi = pi * static_cast<float>(j) / static_cast<float>(stacks);
        for (int i = 0; i <= slices; ++i) {
            const float theta = 2.0f * pi * static_cast<float>(i) / static_cast<float>(slices);
            const vec3 p(std::sin(phi) * std::cos(theta), std::cos(phi),
                         std::sin(phi) * std::sin(theta));
            kvx::nsVertex v(p, p);
            v.tangent = vec3(-std::sin(theta), 0.0f, std::cos(theta));
            v.bitangent = glm::cross(p, v.tangent);
            v.uv = vec2(static_cast<float>(i) / static_cast<float>(slices),
                        static_cast<float>(j) / static_cast<float>(stacks));
            mesh.vertices.push_back(v);
        }
    }
    const unsigned row = static_cast<unsigned>(slices) + 1;
    for (unsigned j = 0; j < static_cast<unsigned>(stacks); ++j) {
        for (unsigned i = 0; i < static_cast<unsigned>(slices); ++i) {
            const unsigned a = j * row + i, b = a + row, c = b + 1, d = a + 1;
            // Counter-clockwise seen from outside; the pole rows give slivers of
            // zero area that the ray tests reject.
            mesh.indices.insert(mesh.indices.end(), {a, d, b, d, c, b});
        }
    }
    return mesh;
}

MeshData loadMeshOrDefault(const std::string* path) {
    return path ? loadMesh(*path) : makeUvSphere();
}

MeshData loadInputMesh(const std::string& in) {
    return in == "builtin" ? makeUvSphere() : loadMesh(in);
}

std::vector<Triangle> triangleSoup(const MeshData& mesh) {
    std::vector<Triangle> soup;
    soup.reserve(mesh.indices.size() / 3);
    for (size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        soup.emplace_back(mesh.vertices[mesh.indices[i]].position,
                          mesh.vertices[mesh.indices[i + 1]].position,
                          mesh.vertices[mesh.indices[i + 2]].position);
    return soup;
}

} // namespace cli
