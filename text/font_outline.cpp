// Glyph outlines of a UTF-8 string, read from a font file through
// stb_truetype. This is the one source that compiles stb_truetype; its
// functions are static here, so none of them leaves the library.
#include <korvex/font.h>

#include "text/font_check.h"

#include <cstdint>
#include <cstdio>
#include <memory>

// The checker has already refused every font on which stb_truetype would
// assert; in a build with assertions the asserts would only abort the host.
#define STBTT_assert(x) ((void)0)
#define STBTT_STATIC
#define STB_TRUETYPE_IMPLEMENTATION
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_truetype.h>
#pragma GCC diagnostic pop

namespace {

const char* const kDefaultFontPath = "../content/Fonts/uk.ttf";

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The whole file, or false when it cannot be opened, its length cannot be
// learned, it is empty or larger than any font the checker accepts.
bool readWholeFile(const std::string& path, std::vector<unsigned char>& bytes) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0) return false;
    const long length = std::ftell(file.get());
    if (length <= 0 || static_cast<unsigned long>(length) > textgeom::kMaxFontFileSize ||
        std::fseek(file.get(), 0, SEEK_SET) != 0)
        return false;
    bytes.assign(static_cast<size_t>(length), 0);
    return std::fread(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
}

struct ShapeFree {
    const stbtt_fontinfo* font;
    void operator()(stbtt_vertex* vertices) const { stbtt_FreeShape(font, vertices); }
};

// The rings of one glyph outline, in font order. Rings of fewer than 3
// points are dropped.
void appendGlyphRings(const stbtt_vertex* shape, int count, float scale, float baseline, float pen,
                      float tolerance, std::vector<std::vector<vec2>>& contours) {
    auto map = [&](int x, int y) {
        return vec2(static_cast<float>(x) * scale + pen, baseline - static_cast<float>(y) * scale);
    };
    std::vector<std::vector<vec2>> rings;
    std::vector<vec2> ring;
    vec2 last = map(0, 0); // a CFF program may draw before its first move
    auto closeRing = [&]() {
        if (ring.size() >= 3) rings.push_back(std::move(ring));
        ring.clear();
    };
    for (int i = 0; i < count; ++i) {
        const stbtt_vertex& v = shape[i];
        switch (v.type) {
        case STBTT_vmove:
            closeRing();
            last = map(v.x, v.y);
            ring.push_back(last);
            break;
        case STBTT_vline:
            last = map(v.x, v.y);
            ring.push_back(last);
            break;
        case STBTT_vcurve: {
            const vec2 end = map(v.x, v.y);
            addQuadAdaptive(ring, last, map(v.cx, v.cy), end, tolerance);
            last = end;
            break;
        }
        case STBTT_vcubic: {
            const vec2 end = map(v.x, v.y);
            addCubicAdaptive(ring, last, map(v.cx, v.cy), map(v.cx1, v.cy1), end, tolerance);
            last = end;
            break;
        }
        default:
            break;
        }
    }
    closeRing();
    for (auto& r : rings) contours.push_back(std::move(r));
}

} // namespace

bool GenerateContoursFromFontFile(const std::string& fontPath, const std::string& text,
                                  float height, float tolerance,
                                  std::vector<std::vector<vec2>>& contours) {
    std::vector<unsigned char> bytes;
    if (!readWholeFile(fontPath, bytes)) return false;
    const textgeom::FontCheck check = textgeom::checkFontData(bytes.data(), bytes.size());
    if (!check.usable) return false;
    stbtt_fontinfo font;
    if (!stbtt_InitFont(&font, bytes.data(), 0)) return false;
    if (font.cff.size) {
        // stb_truetype takes the CFF table to run on for 512 MiB; hold its
        // views to the table's real end.
        font.cff.size = static_cast<int>(check.cffLength);
        if (font.fdselect.size)
            font.fdselect.size =
                font.cff.size - static_cast<int>(font.fdselect.data - font.cff.data);
    }

    int ascent = 0, descent = 0;
    stbtt_GetFontVMetrics(&font, &ascent, &descent, nullptr);
    const float scale = stbtt_ScaleForPixelHeight(&font, height);
    const float baseline = static_cast<float>(ascent) * scale;
    float pen = 0.0f;

    // Built aside and moved in at the end, so that an exception (out of
    // memory) leaves the caller's list as it was, like a failure does.
    std::vector<std::vector<vec2>> result;
    for (unsigned codepoint : utf8_to_codepoints(text)) {
        const int glyph = stbtt_FindGlyphIndex(&font, static_cast<int>(codepoint));
        // 0 is "no glyph"; an index past the font's glyphs is treated alike.
        if (glyph <= 0 || glyph >= font.numGlyphs) continue;
        stbtt_vertex* raw = nullptr;
        const int count = stbtt_GetGlyphShape(&font, glyph, &raw);
        const std::unique_ptr<stbtt_vertex, ShapeFree> shape(raw, ShapeFree{&font});
        if (count > 0 && shape)
            appendGlyphRings(shape.get(), count, scale, baseline, pen, tolerance, result);
        // A glyph without outline (a blank) still takes its advance.
        int advance = 0;
        stbtt_GetGlyphHMetrics(&font, glyph, &advance, nullptr);
        pen += static_cast<float>(static_cast<int16_t>(advance)) * scale;
    }
    contours = std::move(result);
    return true;
}

bool GenerateContoursFromTTF(const std::string& text, float height, float tolerance,
                             std::vector<std::vector<vec2>>& contours) {
    return GenerateContoursFromFontFile(kDefaultFontPath, text, height, tolerance, contours);
}
