// The text commands of the korvex tool: text, carve and engrave, with their
// meshes and SVG pictures, and their refusals.
#include "font_builder.h"
#include "tool_support.h"

#include <korvex/records.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

struct ObjBox {
    size_t vertices = 0;
    vec3 lo{1e30f}, hi{-1e30f};
};

ObjBox readObj(const std::filesystem::path& path) {
    std::ifstream in(path);
    ObjBox box;
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("v ", 0) != 0) continue;
        std::istringstream words(line.substr(2));
        vec3 p;
        words >> p.x >> p.y >> p.z;
        ++box.vertices;
        box.lo = glm::min(box.lo, p);
        box.hi = glm::max(box.hi, p);
    }
    return box;
}

std::string slurp(const std::filesystem::path& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

size_t countOf(const std::string& text, const std::string& word) {
    size_t n = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++n;
    return n;
}

TEST(ToolText, WritesAnUprightAlignedSolidAndItsPicture) {
    fonttest::ScratchDir dir("korvex-tool-text");
    const auto obj = dir.file("t.obj"), svg = dir.file("t.svg");
    const ToolRun run =
        runTool("text T --height 10 --depth 3 -o " + obj.string() + " --svg " + svg.string());
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("wrote " + obj.string() + ": 1 rings"), std::string::npos) << run.out;
    const ObjBox box = readObj(obj);
    ASSERT_GT(box.vertices, 0u);
    // Centred on x = 0, lowest point on y = 0, front at z = 0, back at -3.
    EXPECT_NEAR(box.lo.x + box.hi.x, 0.0f, 1e-4f);
    EXPECT_NEAR(box.lo.y, 0.0f, 1e-5f);
    EXPECT_NEAR(box.hi.z, 0.0f, 1e-6f);
    EXPECT_NEAR(box.lo.z, -3.0f, 1e-6f);
    // Upright in y-up: the bar of the T is at the top, as wide as the glyph.
    std::ifstream in(obj);
    std::string line;
    float topLo = 1e30f, topHi = -1e30f, bottomLo = 1e30f, bottomHi = -1e30f;
    while (std::getline(in, line)) {
        if (line.rfind("v ", 0) != 0) continue;
        std::istringstream words(line.substr(2));
        vec3 p;
        words >> p.x >> p.y >> p.z;
        if (p.y > 0.9f * box.hi.y) topLo = std::min(topLo, p.x), topHi = std::max(topHi, p.x);
        if (p.y < 0.1f * box.hi.y)
            bottomLo = std::min(bottomLo, p.x), bottomHi = std::max(bottomHi, p.x);
    }
    EXPECT_GT(topHi - topLo, 3.0f * (bottomHi - bottomLo));

    const std::string picture = slurp(svg);
    EXPECT_EQ(picture.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
    EXPECT_EQ(countOf(picture, "M"), 1u); // one ring
    EXPECT_NE(picture.find("</svg>"), std::string::npos);

    // Other formats by extension.
    for (const char* name : {"t.stl", "t.ply", "t.glb"}) {
        const ToolRun other = runTool("text Hi -o " + dir.file(name).string());
        EXPECT_EQ(other.exitCode, 0) << name << ": " << other.err;
        EXPECT_GT(std::filesystem::file_size(dir.file(name)), 1000u) << name;
    }
}

TEST(ToolText, CarvesAStencilAndEngravesASlab) {
    fonttest::ScratchDir dir("korvex-tool-carve");
    const auto svg = dir.file("o.svg");
    // The plate around an O: the outline, the hole of the letter, the island
    // of its counter.
    const ToolRun carve =
        runTool("carve O --margin 2 -o " + dir.file("o.obj").string() + " --svg " + svg.string());
    ASSERT_EQ(carve.exitCode, 0) << carve.err;
    EXPECT_NE(carve.out.find(": 3 rings"), std::string::npos) << carve.out;
    const ObjBox plate = readObj(dir.file("o.obj"));
    EXPECT_NEAR(plate.lo.z, -1.0f, 1e-6f);
    EXPECT_EQ(countOf(slurp(svg), "M"), 3u);

    const ToolRun engrave =
        runTool("engrave O --depth 0.5 --origin 0,0,5 -o " + dir.file("e.obj").string());
    ASSERT_EQ(engrave.exitCode, 0) << engrave.err;
    EXPECT_NE(engrave.out.find(": 3 rings"), std::string::npos) << engrave.out;
    const ObjBox slab = readObj(dir.file("e.obj"));
    EXPECT_NEAR(slab.hi.z, 5.0f, 1e-5f); // top on the plane, bottom 0.5 behind it
    EXPECT_NEAR(slab.lo.z, 4.5f, 1e-5f);

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
         {std::string("text") + out, std::string("text A"), "text A B" + out,
          "text A --height 0" + out, "text A --height -2" + out, "text A --tolerance 0" + out,
          "text A --depth x" + out, "text A --font /no/such/font.ttf" + out,
          "text A --font " + dir.path.string() + out, "text \" \"" + out,
          "text A -o " + dir.file("x.xyz").string(), std::string("text A --svg /no/such/dir/x.svg"),
          "carve A --outline \"0,0 1,1\"" + out, "carve A --margin -1" + out,
          "engrave A --u 1,0,0 --v 2,0,0" + out, "engrave A --origin 1,2" + out}) {
        const ToolRun run = runTool(args);
        EXPECT_EQ(run.exitCode, 2) << args << ": " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << args << ": " << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.obj")));
}

} // namespace
