// Every code point of the default font (DejaVu Sans) through the whole road
// to a solid: a closed mesh whose volume is its cap area times the depth and
// whose front cap has the area of the even-odd union of the glyph's rings,
// computed here with the polygon clipper directly.
#include "font_builder.h"
#include "text_mesh_check.h"

#include <korvex/text.h>

#include <polyclipping/clipper.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

namespace {

using Rings = std::vector<std::vector<vec2>>;

// Large enough that no ring of a glyph falls under the union's size limits
// (area 0.1, edge 0.01): one font unit is 0.084.
constexpr float kHeight = 200.0f, kTolerance = 0.5f, kDepth = 7.0f;
// Four blanks (218 units) after each glyph: a gap of 100 along x parts one
// glyph's rings from the next.
constexpr float kGlyphGap = 100.0f;
constexpr size_t kBatch = 48;

// The code points of the font's format 12 Unicode map, the one that is read.
std::vector<unsigned> fontCodepoints(const fonttest::Bytes& font) {
    using fonttest::get32;
    const auto cmap = fonttest::findTable(font, "cmap");
    std::vector<unsigned> codepoints;
    for (size_t i = 0; i < fonttest::get16(font, cmap.offset + 2); ++i) {
        const size_t sub = cmap.offset + get32(font, cmap.offset + 8 + 8 * i);
        if (fonttest::get16(font, sub) != 12) continue;
        for (uint32_t g = 0, groups = get32(font, sub + 12); g < groups; ++g)
            for (uint32_t c = get32(font, sub + 16 + 12 * g); c <= get32(font, sub + 20 + 12 * g);
                 ++c)
                codepoints.push_back(c);
        break;
    }
    return codepoints;
}

std::string utf8(unsigned c) {
    if (c < 0x80) return std::string(1, char(c));
    const int extra = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    std::string s(1, char((0xFF << (7 - extra)) | (c >> (6 * extra)))); // C0, E0 or F0 lead
    for (int k = extra - 1; k >= 0; --k) s += char(0x80 | ((c >> (6 * k)) & 0x3F));
    return s;
}

// Rings in text order, cut into glyphs where a ring starts clear of those
// before it. A wrong cut only joins or parts glyphs: the properties hold for
// any contour list.
std::vector<Rings> splitIntoGlyphs(const Rings& rings) {
    std::vector<Rings> glyphs;
    float right = -1e30f;
    for (const auto& ring : rings) {
        float lo = 1e30f;
        for (const vec2& p : ring) lo = std::min(lo, p.x);
        if (glyphs.empty() || lo > right + kGlyphGap) glyphs.emplace_back();
        glyphs.back().push_back(ring);
        for (const vec2& p : ring) right = std::max(right, p.x);
    }
    return glyphs;
}

// The area of the even-odd union through Clipper 1; false in `comparable`
// where the union comes near the library's drop limits (a ring of area 0.1 or
// an edge of 0.01), since the library may then drop what the clipper keeps.
double evenOddUnionArea(const Rings& rings, bool& comparable) {
    const double scale = 1024.0;
    ClipperLib::Paths paths;
    for (const auto& ring : rings) {
        paths.emplace_back();
        for (const vec2& p : ring)
            paths.back().emplace_back(ClipperLib::cInt(std::llround(p.x * scale)),
                                      ClipperLib::cInt(std::llround(p.y * scale)));
    }
    ClipperLib::Clipper clipper;
    clipper.AddPaths(paths, ClipperLib::ptSubject, true);
    ClipperLib::Paths solution;
    clipper.Execute(ClipperLib::ctUnion, solution, ClipperLib::pftEvenOdd, ClipperLib::pftEvenOdd);
    double area = 0;
    comparable = true;
    for (const auto& path : solution) {
        const double a = ClipperLib::Area(path) / (scale * scale);
        area += a;
        comparable = comparable && std::fabs(a) >= 0.2;
        for (size_t i = 0; i < path.size(); ++i) {
            const auto &p = path[i], &q = path[(i + 1) % path.size()];
            comparable =
                comparable && std::hypot(double(p.X - q.X), double(p.Y - q.Y)) >= 0.02 * scale;
        }
    }
    return std::fabs(area);
}

std::string checkGlyph(const Rings& rings, size_t& skipped) {
    std::vector<kvx::nsVertex> vertices;
    std::vector<unsigned> indices;
    extrudeWithContours(rings, kDepth, 0.0f, 0.0f, vertices, indices,
                        [](float, float) { return 0.0f; });
    bool comparable;
    const double expected = evenOddUnionArea(rings, comparable);
    skipped += !comparable;
    if (indices.empty()) return expected > 1.0 && comparable ? "no mesh for a visible glyph" : "";
    double capArea;
    if (std::string problem = textcheck::solidProblem(vertices, indices, kDepth, capArea);
        !problem.empty())
        return problem;
    if (comparable && std::fabs(capArea - expected) > 1e-3 * expected + 0.05)
        return "front cap area " + std::to_string(capArea) + " but union area " +
               std::to_string(expected);
    return "";
}

TEST(FontMesh, EveryGlyphOfTheDefaultFontExtrudesToAClosedSolid) {
    const fonttest::Bytes font = fonttest::readFile("../content/Fonts/uk.ttf");
    ASSERT_GT(font.size(), 1000u)
        << "the default font is read from ../content/Fonts: run from bin/";
    const std::vector<unsigned> codepoints = fontCodepoints(font);
    ASSERT_GT(codepoints.size(), 5000u) << "DejaVu Sans maps 5918 code points";
    std::vector<std::string> batches;
    for (size_t i = 0; i < codepoints.size(); i += kBatch) {
        batches.emplace_back();
        for (size_t k = i; k < std::min(codepoints.size(), i + kBatch); ++k)
            batches.back() += utf8(codepoints[k]) + "    ";
    }
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
    std::vector<std::vector<std::string>> failures(threads);
    std::vector<size_t> checked(threads, 0), skipped(threads, 0);
    std::vector<std::thread> workers;
    for (unsigned w = 0; w < threads; ++w)
        workers.emplace_back([&, w] {
            for (size_t b = w; b < batches.size(); b += threads) {
                Rings rings;
                if (!GenerateContoursFromTTF(batches[b], kHeight, kTolerance, rings))
                    failures[w].push_back("font not read for batch " + std::to_string(b));
                for (const Rings& glyph : splitIntoGlyphs(rings)) {
                    ++checked[w];
                    const std::string error = checkGlyph(glyph, skipped[w]);
                    if (error.empty()) continue;
                    std::ostringstream where;
                    where << "batch from U+" << std::hex << codepoints[b * kBatch] << std::dec
                          << ", glyph at x = " << glyph[0][0].x << ": " << error;
                    failures[w].push_back(where.str());
                }
            }
        });
    for (auto& worker : workers) worker.join();
    size_t total = 0, notCompared = 0, shown = 0;
    for (unsigned w = 0; w < threads; ++w) total += checked[w], notCompared += skipped[w];
    EXPECT_GT(total, 5000u);
    EXPECT_LT(notCompared, total / 100) << "glyphs whose union comes near the drop limits";
    for (const auto& list : failures)
        for (const auto& f : list)
            if (shown++ < 20) ADD_FAILURE() << f;
    EXPECT_EQ(shown, 0u) << "glyphs failing";
}

} // namespace
