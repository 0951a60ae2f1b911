// The text commands of the korvex tool: text, carve and engrave, their
// meshes and SVG pictures, and their refusals.
#include "font_builder.h"
#include "tool_support.h"

#include <korvex/records.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

std::vector<vec3> objVertices(const std::filesystem::path& path, vec3& lo, vec3& hi) {
    std::ifstream in(path);
    std::vector<vec3> points;
    lo = vec3(1e30f), hi = vec3(-1e30f);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("v ", 0) != 0) continue;
        std::istringstream words(line.substr(2));
        vec3& p = points.emplace_back();
        words >> p.x >> p.y >> p.z;
        lo = glm::min(lo, p), hi = glm::max(hi, p);
    }
    return points;
}

size_t pathsInSvg(const std::filesystem::path& path) {
    const fonttest::Bytes bytes = fonttest::readFile(path);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_EQ(text.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
    EXPECT_NE(text.find("</svg>"), std::string::npos);
    return size_t(std::count(text.begin(), text.end(), 'M'));
}

TEST(ToolText, WritesAnUprightAlignedSolidAndItsPicture) {
    fonttest::ScratchDir dir("korvex-tool-text");
    const auto obj = dir.file("t.obj"), svg = dir.file("t.svg");
    const ToolRun run =
        runTool("text T --height 10 --depth 3 -o " + obj.string() + " --svg " + svg.string());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("wrote " + obj.string() + ": 1 rings"), std::string::npos) << run.out;
    vec3 lo, hi;
    const std::vector<vec3> points = objVertices(obj, lo, hi);
    ASSERT_FALSE(points.empty());
    // Centred on x = 0, lowest point on y = 0, front at z = 0, back at -3.
    EXPECT_NEAR(lo.x + hi.x, 0.0f, 1e-4f);
    EXPECT_NEAR(lo.y, 0.0f, 1e-5f);
    EXPECT_NEAR(hi.z, 0.0f, 1e-6f);
    EXPECT_NEAR(lo.z, -3.0f, 1e-6f);
    // Upright in y-up: the bar of the T, at the top, is far wider than its foot.
    float top = 0, bottom = 0;
    for (const vec3& p : points) {
        if (p.y > 0.9f * hi.y) top = std::max(top, std::fabs(p.x));
        if (p.y < 0.1f * hi.y) bottom = std::max(bottom, std::fabs(p.x));
    }
    EXPECT_GT(top, 3.0f * bottom);
    EXPECT_EQ(pathsInSvg(svg), 1u);
    for (const char* name : {"t.stl", "t.ply", "t.glb"}) { // formats by extension
        const ToolRun other = runTool("text Hi -o " + dir.file(name).string());
        EXPECT_EQ(other.exitCode, 0) << name << ": " << other.err;
        EXPECT_GT(std::filesystem::file_size(dir.file(name)), 1000u) << name;
    }
}

TEST(ToolText, CarvesAStencilAndEngravesASlab) {
    fonttest::ScratchDir dir("korvex-tool-carve");
    vec3 lo, hi;
    // The plate around an O: the outline, the hole of the letter, the island
    // of its counter.
    const ToolRun carve = runTool("carve O --margin 2 -o " + dir.file("o.obj").string() +
                                  " --svg " + dir.file("o.svg").string());
    ASSERT_EQ(carve.exitCode, 0) << carve.err;
    EXPECT_NE(carve.out.find(": 3 rings"), std::string::npos) << carve.out;
    objVertices(dir.file("o.obj"), lo, hi);
    EXPECT_NEAR(lo.z, -1.0f, 1e-6f);
    EXPECT_EQ(pathsInSvg(dir.file("o.svg")), 3u);

    const ToolRun engrave =
        runTool("engrave O --depth 0.5 --origin 0,0,5 -o " + dir.file("e.obj").string());
    ASSERT_EQ(engrave.exitCode, 0) << engrave.err;
    EXPECT_NE(engrave.out.find(": 3 rings"), std::string::npos) << engrave.out;
    objVertices(dir.file("e.obj"), lo, hi);
    EXPECT_NEAR(hi.z, 5.0f, 1e-5f); // top on the plane, bottom 0.5 behind it
    EXPECT_NEAR(lo.z, 4.5f, 1e-5f);

    // A given outline; text wholly outside it leaves it whole.
    const ToolRun outside = runTool("carve O --outline \"-50,0 -40,0 -40,10 -50,10\" --svg " +
                                    dir.file("x.svg").string());
    ASSERT_EQ(outside.exitCode, 0) << outside.err;
    EXPECT_EQ(outside.out.rfind("1 rings", 0), 0u) << outside.out;
}

TEST(ToolText, BadInputIsOneLineAndExitCodeTwo) {
    fonttest::ScratchDir dir("korvex-tool-bad");
    const std::string out = " -o " + dir.file("x.obj").string();
    for (const std::string& args :
         {"text" + out, std::string("text A"), "text A B" + out, "text A --height 0" + out,
          "text A --height -2" + out, "text A --tolerance 0" + out, "text A --depth x" + out,
          "text A --font /no/such/font.ttf" + out, "text A --font " + dir.path.string() + out,
          "text \" \"" + out, "text A -o " + dir.file("x.xyz").string(),
          std::string("text A --svg /no/such/dir/x.svg"), "carve A --outline \"0,0 1,1\"" + out,
          "carve A --margin -1" + out, "engrave A --u 1,0,0 --v 2,0,0" + out,
          "engrave A --origin 1,2" + out}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.exitCode, 2) << args << ": " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << ": " << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.obj")));
}

} // namespace
