// Helpers shared by the loop tests: capture of the host logger, and a tiny OBJ
// reader for the real scanned mesh (the Stanford bunny of glmark2-data).
#pragma once

#include <korvex/records.h>
#include <halvane.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace loopstest {

// Collects every logger line while alive; restores standard error after.
class LogCapture {
  public:
    LogCapture() {
        LOG.SetSink([this](const std::string& line) { lines.push_back(line); });
    }
    ~LogCapture() { LOG.SetSink({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;
};

struct ObjMesh {
    std::vector<vec3> positions;
    std::vector<unsigned> indices; // triangle corners, 0-based
};

// Reads "v x y z" and "f a b c ..." lines (corners may be "v/vt/vn");
// polygons are fanned into triangles. Other lines are ignored.
inline ObjMesh readObj(const std::string& path) {
    ObjMesh mesh;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string tag;
        words >> tag;
        if (tag == "v") {
            vec3 p;
            words >> p.x >> p.y >> p.z;
            mesh.positions.push_back(p);
        } else if (tag == "f") {
            std::vector<unsigned> corners;
            std::string corner;
            while (words >> corner) corners.push_back(std::stoul(corner) - 1);
            for (size_t i = 2; i < corners.size(); ++i) {
                mesh.indices.insert(mesh.indices.end(), {corners[0], corners[i - 1], corners[i]});
            }
        }
    }
    return mesh;
}

// Loaded once; the bunny is 35k vertices and 70k triangles.
inline const ObjMesh& bunny() {
    static const ObjMesh mesh = readObj(KORVEX_BUNNY_PATH);
    return mesh;
}

} // namespace loopstest
