#include "glyph_rings.h"

#include "text/ring_union.h"

#define STB_TRUETYPE_IMPLEMENTATION
#include <stb_truetype.h>

#include <fstream>
#include <iterator>

namespace bench {

namespace {

// A plain flattening of quadratic curves, bounded in depth; the library's
// own outline stage is not what this benchmark times.
void flatten(std::vector<vec2>& ring, vec2 p0, vec2 c, vec2 p1, float tolerance, int depth) {
    const vec2 d = c - (p0 + p1) * 0.5f;
    if (depth >= 12 || tolerance >= d.x * d.x + d.y * d.y) {
        ring.push_back(p1);
        return;
    }
    const vec2 l = (p0 + c) * 0.5f, r = (c + p1) * 0.5f, m = (l + r) * 0.5f;
    flatten(ring, p0, l, m, tolerance, depth + 1);
    flatten(ring, m, r, p1, tolerance, depth + 1);
}

} // namespace

const std::string& sampleParagraph() {
    static const std::string text =
        "Engraved lettering has marked stone, brass and wood for as long as people have "
        "wanted words to outlast them. A sign maker today still starts from the same "
        "question: how deep, how wide, and which face of the letter meets the light? "
        "The quick brown fox jumps over the lazy dog; pack my box with five dozen liquor "
        "jugs. Sphinx of black quartz, judge my vow! Numbers matter too: 0123456789, "
        "1/2, 3.14159, 42%, (x + y) * z = 7. Accents and marks appear in many names: "
        "\xC3\xA9t\xC3\xA9, na\xC3\xAFve, fa\xC3\xA7"
        "ade, \xC3\xA5ngstr\xC3\xB6m, "
        "M\xC3\xBCller, S\xC3\xA3o Paulo, \xC3\x98resund, \xC5\x81\xC3\xB3"
        "d\xC5\xBA. "
        "Each glyph becomes a closed solid: its outline is flattened into rings, the "
        "rings are merged so that counters become holes, and every polygon gets a front "
        "cap, a back cap and walls that join them. Bold headings, small captions and "
        "long paragraphs all pass through the same steps, glyph after glyph, line after "
        "line, until the whole text stands as one mesh ready to be placed in a scene, "
        "lit, and looked at from every side. Good tools make the common case fast and "
        "the rare case correct; good type makes both look effortless. Quiet zebras "
        "waltz past jovial kings, vexing the big dwarf who quickly boxed them.";
    return text;
}

std::vector<std::vector<std::vector<vec2>>> glyphCapPolygons(const std::string& fontPath,
                                                             const std::string& text, float height,
                                                             float tolerance) {
    std::vector<std::vector<std::vector<vec2>>> polygons;
    std::ifstream file(fontPath, std::ios::binary);
    const std::vector<unsigned char> font((std::istreambuf_iterator<char>(file)), {});
    stbtt_fontinfo info;
    if (font.empty() || !stbtt_InitFont(&info, font.data(), 0)) return polygons;
    int ascent, descent, gap;
    stbtt_GetFontVMetrics(&info, &ascent, &descent, &gap);
    const float scale = height / float(ascent - descent);
    const float baseline = float(ascent) * scale;

    float pen = 0.0f;
    for (size_t i = 0; i < text.size(); ++i) {
        // Decode UTF-8 (the sample is well formed).
        unsigned cp = static_cast<unsigned char>(text[i]);
        if (cp >= 0xE0) {
            cp = ((cp & 0x0F) << 12) | ((text[i + 1] & 0x3F) << 6) | (text[i + 2] & 0x3F);
            i += 2;
        } else if (cp >= 0xC0) {
            cp = ((cp & 0x1F) << 6) | (text[i + 1] & 0x3F);
            i += 1;
        }
        const int glyph = stbtt_FindGlyphIndex(&info, int(cp));
        int advance, bearing;
        stbtt_GetGlyphHMetrics(&info, glyph, &advance, &bearing);
        stbtt_vertex* shape = nullptr;
        const int count = stbtt_GetGlyphShape(&info, glyph, &shape);
        std::vector<std::vector<vec2>> rings;
        std::vector<vec2> ring;
        vec2 last(0.0f);
        auto map = [&](float x, float y) { return vec2(x * scale + pen, baseline - y * scale); };
        for (int v = 0; v < count; ++v) {
            const stbtt_vertex& s = shape[v];
            if (s.type == STBTT_vmove) {
                if (ring.size() >= 3) rings.push_back(ring);
                ring.clear();
                last = map(s.x, s.y);
                ring.push_back(last);
            } else if (s.type == STBTT_vline) {
                last = map(s.x, s.y);
                ring.push_back(last);
            } else if (s.type == STBTT_vcurve) {
                const vec2 end = map(s.x, s.y);
                flatten(ring, last, map(s.cx, s.cy), end, tolerance, 0);
                last = end;
            }
        }
        if (ring.size() >= 3) rings.push_back(ring);
        stbtt_FreeShape(&info, shape);
        pen += float(advance) * scale;
        if (rings.empty()) continue;

        // Exactly the polygons the extrusion hands to the cap triangulator.
        textgeom::PolyTree64 tree;
        textgeom::unionRingsToTree(rings, tree, textgeom::kClipScale);
        std::vector<textgeom::RingPolygon> caps;
        for (const textgeom::PolyPath64* child : tree.Childs)
            textgeom::collectPolygons(*child, textgeom::kClipScale, caps);
        for (textgeom::RingPolygon& cap : caps) {
            std::vector<std::vector<vec2>> polygon{std::move(cap.outer)};
            for (auto& hole : cap.holes) polygon.push_back(std::move(hole));
            polygons.push_back(std::move(polygon));
        }
    }
    return polygons;
}

} // namespace bench
