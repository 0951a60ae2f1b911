// Walks a font file the way stb_truetype will, with every read checked
// against the file and the table it belongs to. Anything stb_truetype would
// follow out of bounds, loop on, recurse on without end, or turn into
// undefined arithmetic makes the font unusable.
#include "text/font_check.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace textgeom {
namespace {

// A composite glyph may nest this deep; real fonts stay below 4.
constexpr int kMaxComponentDepth = 16;
// The most vertices one glyph may expand to, composites included.
constexpr uint64_t kMaxGlyphVertices = uint64_t(1) << 20;

struct Bytes {
    const unsigned char* data;
    size_t size;

    bool has(uint64_t offset, uint64_t length) const {
        return offset <= size && length <= size - offset;
    }
    uint8_t u8(uint64_t o) const { return data[o]; }
    uint16_t u16(uint64_t o) const { return static_cast<uint16_t>(data[o] << 8 | data[o + 1]); }
    int16_t s16(uint64_t o) const { return static_cast<int16_t>(u16(o)); }
    uint32_t u32(uint64_t o) const {
        return uint32_t(data[o]) << 24 | uint32_t(data[o + 1]) << 16 | uint32_t(data[o + 2]) << 8 |
               uint32_t(data[o + 3]);
    }
};

struct Table {
    bool found = false;
    uint64_t offset = 0;
    uint64_t length = 0;
    uint64_t end() const { return offset + length; }
};

struct Tables {
    Table cmap, head, hhea, hmtx, maxp, loca, glyf, cff;
};

uint32_t tag(const char* name) {
    return uint32_t(uint8_t(name[0])) << 24 | uint32_t(uint8_t(name[1])) << 16 |
           uint32_t(uint8_t(name[2])) << 8 | uint32_t(uint8_t(name[3]));
}

// The sfnt header and table directory. stb_truetype takes the first entry of
// a tag, so the first one is the one checked.
bool readDirectory(const Bytes& file, Tables& tables) {
    if (!file.has(0, 12)) return false;
    const uint32_t version = file.u32(0);
    if (version != 0x00010000u && version != tag("true") && version != tag("OTTO")) return false;
    const uint32_t count = file.u16(4);
    const uint64_t directoryEnd = 12 + 16 * uint64_t(count);
    if (count == 0 || !file.has(0, directoryEnd)) return false;
    const struct {
        const char* name;
        Table* table;
    } wanted[] = {{"cmap", &tables.cmap}, {"head", &tables.head}, {"hhea", &tables.hhea},
                  {"hmtx", &tables.hmtx}, {"maxp", &tables.maxp}, {"loca", &tables.loca},
                  {"glyf", &tables.glyf}, {"CFF ", &tables.cff}};
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t entry = 12 + 16 * uint64_t(i);
        const uint64_t offset = file.u32(entry + 8);
        const uint64_t length = file.u32(entry + 12);
        // Every table, read or not, lies after the directory and inside the
        // file: a truncated file fails here whichever table it cut.
        if (offset < directoryEnd || !file.has(offset, length)) return false;
        for (const auto& w : wanted) {
            if (!w.table->found && file.u32(entry) == tag(w.name)) {
                *w.table = Table{true, offset, length};
            }
        }
    }
    return true;
}

// The subtable stbtt_InitFont picks (the last Unicode one) and every range
// stbtt_FindGlyphIndex can read in it, for any code point.
bool checkCmap(const Bytes& file, const Table& cmap) {
    if (cmap.length < 4) return false;
    const uint64_t records = file.u16(cmap.offset + 2);
    if (4 + 8 * records > cmap.length) return false;
    bool found = false;
    uint64_t chosen = 0;
    for (uint64_t i = 0; i < records; ++i) {
        const uint64_t record = cmap.offset + 4 + 8 * i;
        const uint16_t platform = file.u16(record);
        const uint16_t encoding = file.u16(record + 2);
        const uint64_t offset = file.u32(record + 4);
        if (offset + 4 > cmap.length) return false;
        if (platform == 0 || (platform == 3 && (encoding == 1 || encoding == 10))) {
            found = true;
            chosen = offset;
        }
    }
    if (!found) return false;

    const uint64_t sub = cmap.offset + chosen;
    const uint64_t limit = cmap.end();
    auto inside = [&](uint64_t from, uint64_t length) {
        return from <= limit && length <= limit - from;
    };
    switch (file.u16(sub)) {
    case 0: {
        if (!inside(sub, 6)) return false;
        const uint64_t bytes = file.u16(sub + 2);
        return bytes <= 6 || inside(sub, bytes);
    }
    case 6: {
        if (!inside(sub, 10)) return false;
        return inside(sub + 10, 2 * uint64_t(file.u16(sub + 8)));
    }
    case 4: {
        if (!inside(sub, 14)) return false;
        const uint64_t segments = file.u16(sub + 6) >> 1;
        const uint64_t searchRange = file.u16(sub + 8) >> 1;
        const uint64_t entrySelector = file.u16(sub + 10);
        const uint64_t rangeShift = file.u16(sub + 12) >> 1;
        if (segments == 0 || !inside(sub, 16 + 8 * segments)) return false;
        // The binary search trusts searchRange, entrySelector and rangeShift:
        // the farthest segment it can land on must exist.
        uint64_t reach = rangeShift;
        for (uint64_t k = 1; k <= entrySelector && k < 17; ++k) reach += searchRange >> k;
        if (reach > segments - 1) return false;
        const uint64_t ends = sub + 14;
        const uint64_t starts = sub + 16 + 2 * segments;
        const uint64_t rangeOffsets = sub + 16 + 6 * segments;
        for (uint64_t k = 0; k < segments; ++k) {
            const uint64_t first = file.u16(starts + 2 * k);
            const uint64_t last = file.u16(ends + 2 * k);
            const uint64_t rangeOffset = file.u16(rangeOffsets + 2 * k);
            if (rangeOffset == 0 || first > last) continue;
            if (!inside(rangeOffsets + 2 * k + rangeOffset, 2 * (last - first) + 2)) return false;
        }
        return true;
    }
    case 12:
    case 13: {
        if (!inside(sub, 16)) return false;
        return inside(sub + 16, 12 * uint64_t(file.u32(sub + 12)));
    }
    default:
        return false; // stb_truetype maps nothing through other formats
    }
}

bool checkMetrics(const Bytes& file, const Tables& t, uint32_t& numGlyphs) {
    if (!t.cmap.found || !t.head.found || !t.hhea.found || !t.hmtx.found || !t.maxp.found)
        return false;
    if (t.head.length < 54 || t.hhea.length < 36 || t.maxp.length < 6) return false;
    numGlyphs = file.u16(t.maxp.offset + 4);
    if (numGlyphs == 0) return false;
    // The scale divides by ascent - descent; a font with ascent below descent is drawn
    // upside down, as the division says.
    if (file.s16(t.hhea.offset + 4) == file.s16(t.hhea.offset + 6)) return false;
    // Glyphs past the long metrics share the last advance and read a short
    // side bearing each.
    const uint64_t longMetrics = file.u16(t.hhea.offset + 34);
    if (longMetrics == 0) return false;
    const uint64_t shortMetrics = numGlyphs > longMetrics ? numGlyphs - longMetrics : 0;
    return 4 * longMetrics + 2 * shortMetrics <= t.hmtx.length;
}

// ---- TrueType outlines ----------------------------------------------------

struct Box {
    double minX = 0, maxX = 0, minY = 0, maxY = 0; // always holds (0, 0): see below
};

struct GlyphState {
    enum { Unchecked, Checking, Good } state = Unchecked;
    uint64_t vertices = 0;
    Box box;
};

struct GlyfWalk {
    const Bytes& file;
    const Tables& tables;
    uint32_t numGlyphs;
    bool longOffsets;
    std::vector<GlyphState> glyphs;
    std::vector<uint8_t> flags; // scratch, reused from glyph to glyph

    bool range(uint32_t glyph, uint64_t& start, uint64_t& end) const {
        const uint64_t loca = tables.loca.offset;
        if (longOffsets) {
            start = file.u32(loca + 4 * uint64_t(glyph));
            end = file.u32(loca + 4 * uint64_t(glyph) + 4);
        } else {
            start = 2 * uint64_t(file.u16(loca + 2 * uint64_t(glyph)));
            end = 2 * uint64_t(file.u16(loca + 2 * uint64_t(glyph) + 2));
        }
        return start <= end && end <= tables.glyf.length;
    }

    bool check(uint32_t glyph, int depth) {
        GlyphState& g = glyphs[glyph];
        if (g.state == GlyphState::Good) return true;
        if (g.state == GlyphState::Checking || depth > kMaxComponentDepth) return false;
        g.state = GlyphState::Checking;
        uint64_t start, end;
        if (!range(glyph, start, end)) return false;
        bool ok = true;
        if (start != end) {
            const uint64_t at = tables.glyf.offset + start;
            const uint64_t limit = tables.glyf.offset + end;
            if (end - start < 10) return false;
            const int16_t contours = file.s16(at);
            if (contours > 0) ok = checkSimple(glyph, at, limit, contours);
            if (contours < 0) ok = checkComposite(glyph, at, limit, depth);
        }
        if (ok) g.state = GlyphState::Good;
        return ok;
    }

    bool checkSimple(uint32_t glyph, uint64_t at, uint64_t limit, int16_t contours) {
        const uint64_t endPoints = at + 10;
        const uint64_t count = static_cast<uint64_t>(contours);
        if (endPoints + 2 * count + 2 > limit) return false;
        const uint64_t instructions = file.u16(endPoints + 2 * count);
        uint64_t p = endPoints + 2 * count + 2 + instructions;
        if (p > limit) return false;
        const uint64_t points = 1 + uint64_t(file.u16(endPoints + 2 * count - 2));

        flags.resize(points);
        uint8_t flag = 0;
        unsigned repeat = 0;
        for (uint64_t i = 0; i < points; ++i) {
            if (repeat == 0) {
                if (p >= limit) return false;
                flag = file.u8(p++);
                if (flag & 8) {
                    if (p >= limit) return false;
                    repeat = file.u8(p++);
                }
            } else {
                --repeat;
            }
            flags[i] = flag;
        }
        // Coordinates as stb_truetype accumulates them: an int sum stored in
        // 16 bits. Every vertex it makes, control points and midpoints
        // included, lies in the box of these values and (0, 0).
        Box box;
        for (int axis = 0; axis < 2; ++axis) {
            const uint8_t shortBit = axis == 0 ? 2 : 4;
            const uint8_t sameBit = axis == 0 ? 16 : 32;
            int32_t value = 0;
            double& lo = axis == 0 ? box.minX : box.minY;
            double& hi = axis == 0 ? box.maxX : box.maxY;
            for (uint64_t i = 0; i < points; ++i) {
                if (flags[i] & shortBit) {
                    if (p >= limit) return false;
                    const int32_t d = file.u8(p++);
                    value += (flags[i] & sameBit) ? d : -d;
                } else if (!(flags[i] & sameBit)) {
                    if (p + 2 > limit) return false;
                    value += file.s16(p);
                    p += 2;
                }
                const double stored = static_cast<int16_t>(static_cast<uint16_t>(value));
                lo = std::fmin(lo, stored);
                hi = std::fmax(hi, stored);
            }
        }
        // The contour walk: an off-curve first point looks one point ahead,
        // which must exist.
        uint64_t nextStart = 0, contour = 0;
        for (uint64_t i = 0; i < points; ++i) {
            if (i != nextStart) continue;
            if (!(flags[i] & 1)) {
                if (i + 1 >= points) return false;
                if (flags[i + 1] & 1) ++i;
            }
            if (contour >= count) return false;
            nextStart = 1 + uint64_t(file.u16(endPoints + 2 * contour++));
        }
        glyphs[glyph].vertices = points + 2 * count;
        glyphs[glyph].box = box;
        return true;
    }

    bool checkComposite(uint32_t glyph, uint64_t at, uint64_t limit, int depth) {
        uint64_t p = at + 10;
        uint64_t vertices = 0;
        Box box;
        for (bool more = true; more;) {
            if (p + 4 > limit) return false;
            const uint16_t flags = file.u16(p);
            const uint16_t component = file.u16(p + 2);
            p += 4;
            float m[6] = {1, 0, 0, 1, 0, 0};
            // Point-matched placement (no bit 1) reads no arguments here,
            // exactly as stb_truetype does.
            if (flags & 2) {
                const uint64_t size = (flags & 1) ? 4 : 2;
                if (p + size > limit) return false;
                m[4] = (flags & 1) ? file.s16(p) : static_cast<int8_t>(file.u8(p));
                m[5] = (flags & 1) ? file.s16(p + 2) : static_cast<int8_t>(file.u8(p + 1));
                p += size;
            }
            auto f2dot14 = [&](uint64_t o) { return file.s16(o) / 16384.0f; };
            if (flags & (1 << 3)) {
                if (p + 2 > limit) return false;
                m[0] = m[3] = f2dot14(p);
                p += 2;
            } else if (flags & (1 << 6)) {
                if (p + 4 > limit) return false;
                m[0] = f2dot14(p);
                m[3] = f2dot14(p + 2);
                p += 4;
            } else if (flags & (1 << 7)) {
                if (p + 8 > limit) return false;
                for (int k = 0; k < 4; ++k) m[k] = f2dot14(p + 2 * k);
                p += 8;
            }
            more = (flags & (1 << 5)) != 0;

            if (component >= numGlyphs || !check(component, depth + 1)) return false;
            const GlyphState& part = glyphs[component];
            if (part.vertices == 0) continue;
            vertices += part.vertices;
            if (vertices > kMaxGlyphVertices) return false;
            // stb_truetype scales by the column lengths and converts each
            // transformed coordinate to 16 bits, which must not overflow. The
            // map is monotone in x and in y, in float too, so the corners of
            // the part's box bound it.
            const float sx = std::sqrt(m[0] * m[0] + m[1] * m[1]);
            const float sy = std::sqrt(m[2] * m[2] + m[3] * m[3]);
            for (int corner = 0; corner < 4; ++corner) {
                const float x = static_cast<float>(corner & 1 ? part.box.maxX : part.box.minX);
                const float y = static_cast<float>(corner & 2 ? part.box.maxY : part.box.minY);
                const float tx = sx * (m[0] * x + m[2] * y + m[4]);
                const float ty = sy * (m[1] * x + m[3] * y + m[5]);
                if (!(tx > -32768.0f && tx < 32767.0f && ty > -32768.0f && ty < 32767.0f))
                    return false;
                box.minX = std::fmin(box.minX, std::floor(tx));
                box.maxX = std::fmax(box.maxX, std::ceil(tx));
                box.minY = std::fmin(box.minY, std::floor(ty));
                box.maxY = std::fmax(box.maxY, std::ceil(ty));
            }
        }
        glyphs[glyph].vertices = vertices;
        glyphs[glyph].box = box;
        return true;
    }
};

bool checkTrueTypeOutlines(const Bytes& file, const Tables& t, uint32_t numGlyphs) {
    if (!t.loca.found) return false;
    const uint16_t format = file.u16(t.head.offset + 50);
    if (format > 1) return false;
    const uint64_t entry = format == 1 ? 4 : 2;
    if ((uint64_t(numGlyphs) + 1) * entry > t.loca.length) return false;
    GlyfWalk walk{file, t, numGlyphs, format == 1, std::vector<GlyphState>(numGlyphs), {}};
    for (uint32_t g = 0; g < numGlyphs; ++g) {
        if (!walk.check(g, 0)) return false;
    }
    return true;
}

} // namespace

FontCheck checkFontData(const unsigned char* data, size_t size) {
    FontCheck result;
    if (data == nullptr || size > kMaxFontFileSize) return result;
    const Bytes file{data, size};
    Tables tables;
    uint32_t numGlyphs = 0;
    // No checksum test: a font whose checksum is off but whose structure is sound is read by
    // stb_truetype as any other, so it is used.
    if (!readDirectory(file, tables) || !checkMetrics(file, tables, numGlyphs) ||
        !checkCmap(file, tables.cmap))
        return result;
    // stb_truetype reads TrueType outlines whenever a glyf table exists.
    if (tables.glyf.found) {
        if (!checkTrueTypeOutlines(file, tables, numGlyphs)) return result;
    } else {
        if (!tables.cff.found ||
            !checkCffTable(file.data + tables.cff.offset, tables.cff.length, numGlyphs))
            return result;
        result.cffOffset = static_cast<uint32_t>(tables.cff.offset);
        result.cffLength = static_cast<uint32_t>(tables.cff.length);
    }
    result.usable = true;
    return result;
}

} // namespace textgeom
