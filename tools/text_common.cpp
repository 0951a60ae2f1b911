#include "text_common.h"
#include "mesh_io.h"

#include <korvex/font.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

namespace cli {

namespace {

constexpr const char* kDefaultFont = "../content/Fonts/uk.ttf";

struct Bounds {
    vec2 lo{3.4e38f}, hi{-3.4e38f};
    void add(const vec2& p) { lo = glm::min(lo, p), hi = glm::max(hi, p); }
    bool empty() const { return lo.x > hi.x; }
};

Bounds boundsOf(const Rings& rings) {
    Bounds b;
    for (const auto& ring : rings)
        for (const vec2& p : ring) b.add(p);
    return b;
}

std::string svgNumber(float v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4f", static_cast<double>(v));
    return buf;
}

} // namespace

std::vector<OptionSpec> withTextOptions(std::vector<OptionSpec> own) {
    std::vector<OptionSpec> options{
        {"-o", true, "FILE           mesh to write (.obj, .ply, .stl, .gltf, .glb)"},
        {"--svg", true, "FILE        also write the contours as an SVG picture"},
        {"--height", true, "H        ascent-to-descent height of the text (default 10)"},
        {"--tolerance", true, "T     flatness of curves, a squared distance (default 0.0001)"},
        {"--font", true, "PATH       TrueType or CFF font (default ../content/Fonts/uk.ttf)"},
    };
    options.insert(options.end(), own.begin(), own.end());
    return options;
}

Rings textContours(const Args& args) {
    args.expectPositional(1, 1);
    const std::string& text = args.positional()[0];
    const float height = args.number("--height", 10.0f);
    const float tolerance = args.number("--tolerance", 0.0001f);
    if (height <= 0.0f) throw UsageError("--height must be above 0");
    if (tolerance <= 0.0f) throw UsageError("--tolerance must be above 0");
    const std::string font = args.text("--font", kDefaultFont);
    Rings rings;
    if (!GenerateContoursFromFontFile(font, text, height, tolerance, rings))
        throw UsageError("cannot read font '" + font + "' (missing, damaged or not a font)");
    if (rings.empty()) throw UsageError("the text has no glyph outlines in '" + font + "'");
    for (auto& ring : rings)
        for (vec2& p : ring) p.y = -p.y;
    return rings;
}

std::vector<vec2> surfaceOutline(const Args& args, const Rings& rings) {
    if (auto given = args.value("--outline")) {
        std::istringstream in(*given);
        std::vector<vec2> outline;
        std::string point;
        while (in >> point) {
            const auto xy = parseNumbers(point, 2, "--outline");
            outline.emplace_back(xy[0], xy[1]);
        }
        if (outline.size() < 3) throw UsageError("--outline needs at least 3 points X,Y");
        return outline;
    }
    const float margin = args.number("--margin", 0.25f * args.number("--height", 10.0f));
    if (margin < 0.0f) throw UsageError("--margin must not be negative");
    const Bounds b = boundsOf(rings);
    const vec2 lo = b.lo - vec2(margin), hi = b.hi + vec2(margin);
    return {lo, vec2(hi.x, lo.y), hi, vec2(lo.x, hi.y)}; // counter-clockwise
}

void writeSvg(const std::string& path, const Rings& rings) {
    const Bounds b = boundsOf(rings);
    const float pad = b.empty() ? 1.0f : 0.05f * std::max(b.hi.x - b.lo.x, b.hi.y - b.lo.y);
    const float x0 = b.empty() ? 0.0f : b.lo.x - pad, y0 = b.empty() ? 0.0f : -b.hi.y - pad;
    const float w = b.empty() ? 1.0f : b.hi.x - b.lo.x + 2 * pad;
    const float h = b.empty() ? 1.0f : b.hi.y - b.lo.y + 2 * pad;
    std::ofstream out(path);
    if (!out) throw UsageError("cannot write '" + path + "'");
    // A picture about 800 pixels wide, whatever the units of the text.
    const float pixels = 800.0f / std::max(w, 1e-6f);
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"" << svgNumber(x0) << ' '
        << svgNumber(y0) << ' ' << svgNumber(w) << ' ' << svgNumber(h) << "\" width=\""
        << svgNumber(w * pixels) << "\" height=\"" << svgNumber(h * pixels) << "\">\n"
        << "<rect x=\"" << svgNumber(x0) << "\" y=\"" << svgNumber(y0) << "\" width=\""
        << svgNumber(w) << "\" height=\"" << svgNumber(h) << "\" fill=\"white\"/>\n"
        << "<path fill=\"#1f3b73\" fill-rule=\"nonzero\" stroke=\"#d04020\" stroke-width=\""
        << svgNumber(pad * 0.02f) << "\" d=\"";
    for (const auto& ring : rings) {
        if (ring.empty()) continue;
        for (size_t i = 0; i < ring.size(); ++i)
            out << (i == 0 ? "M" : " L") << svgNumber(ring[i].x) << ',' << svgNumber(-ring[i].y);
        out << " Z\n";
    }
    out << "\"/>\n</svg>\n";
    if (!out.flush()) throw UsageError("cannot write '" + path + "'");
}

void expectSomeOutput(const Args& args) {
    args.expectPositional(1, 1);
    if (!args.has("-o") && !args.has("--svg"))
        throw UsageError("nothing to write: give -o FILE and/or --svg FILE");
}

void writeTextMesh(const Args& args, const MeshData& mesh, size_t rings) {
    const size_t triangles = mesh.indices.size() / 3;
    if (auto path = args.value("-o")) {
        if (triangles == 0)
            throw UsageError("no mesh to write: every ring was too small (raise --height)");
        saveMesh(mesh, *path);
        std::cout << "wrote " << *path << ": ";
    }
    std::cout << rings << " rings, " << mesh.vertices.size() << " vertices, " << triangles
              << " triangles\n";
}

} // namespace cli
