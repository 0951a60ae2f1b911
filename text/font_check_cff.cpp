// The CFF part of the font check: the table as stbtt_InitFont parses it and
// every glyph program as stb_truetype runs it, against the table's real
// length.
#include "text/font_check.h"

#include <cmath>
#include <cstdint>

namespace textgeom {
namespace {

// stb_truetype sizes the CFF table at 512 MiB and reads through stbtt__buf
// views clamped to that. The walk below repeats its reads on views with the
// same sizes and cursors, and fails as soon as one would touch a byte past the
// real table, or would make stb_truetype's int arithmetic overflow.
constexpr int64_t kStbCffSize = 512 * 1024 * 1024;

struct View {
    int64_t base = 0; // offset of the view's first byte in the table
    int64_t size = 0;
    int64_t cursor = 0;
};

struct CffWalk {
    const unsigned char* table;
    int64_t length;
    bool bad = false;

    uint8_t get8(View& b) {
        if (b.cursor >= b.size) return 0;
        const int64_t at = b.base + b.cursor++;
        if (at < 0 || at >= length) {
            bad = true;
            return 0;
        }
        return table[at];
    }
    uint8_t peek8(View& b) {
        View copy = b;
        return get8(copy);
    }
    void seek(View& b, int64_t o) {
        if (o < INT32_MIN || o > INT32_MAX) bad = true; // would overflow an int in stb
        b.cursor = (o > b.size || o < 0) ? b.size : o;
    }
    void skip(View& b, int64_t o) { seek(b, b.cursor + o); }
    uint32_t get(View& b, int n) {
        uint32_t v = 0;
        for (int i = 0; i < n; ++i) v = (v << 8) | get8(b);
        return v;
    }
    View range(const View& b, int64_t o, int64_t s) {
        if (o < 0 || s < 0 || o > b.size || s > b.size - o) return View{};
        if (b.base + o > length) bad = true; // a view that starts past the table
        return View{b.base + o, s, 0};
    }
    // An INDEX: count, offset size, offsets, data. Only well-formed ones pass:
    // offsets of 1 to 4 bytes, starting at 1, never falling, ending inside
    // the table, so that every element stb_truetype cuts from it is inside.
    View index(View& b) {
        const int64_t start = b.cursor;
        const uint32_t count = get(b, 2);
        if (count) {
            const int offsize = get8(b);
            if (offsize < 1 || offsize > 4) {
                bad = true;
                return View{};
            }
            uint32_t previous = 1;
            for (uint32_t i = 0; i <= count; ++i) {
                const uint32_t offset = get(b, offsize);
                if ((i == 0 && offset != 1) || offset < previous) bad = true;
                previous = offset;
            }
            skip(b, int64_t(previous) - 1);
        }
        if (b.base + b.cursor > length) bad = true;
        return range(b, start, b.cursor - start);
    }
    uint32_t indexCount(View b) {
        seek(b, 0);
        return get(b, 2);
    }
    View indexElement(View b, uint32_t i) {
        seek(b, 0);
        const uint32_t count = get(b, 2);
        const int offsize = get8(b);
        if (i >= count) {
            bad = true;
            return View{};
        }
        skip(b, int64_t(i) * offsize);
        const uint32_t first = get(b, offsize);
        const uint32_t last = get(b, offsize);
        return range(b, 2 + int64_t(count + 1) * offsize + first, int64_t(last) - first);
    }
    uint32_t integer(View& b) {
        const int b0 = get8(b);
        if (b0 >= 32 && b0 <= 246) return static_cast<uint32_t>(b0 - 139);
        if (b0 >= 247 && b0 <= 250) return static_cast<uint32_t>((b0 - 247) * 256 + get8(b) + 108);
        if (b0 >= 251 && b0 <= 254) return static_cast<uint32_t>(-(b0 - 251) * 256 - get8(b) - 108);
        if (b0 == 28) return get(b, 2);
        if (b0 == 29) return get(b, 4);
        return 0;
    }
    void skipOperand(View& b) {
        if (peek8(b) == 30) {
            skip(b, 1);
            while (b.cursor < b.size) {
                const int v = get8(b);
                if ((v & 0xF) == 0xF || (v >> 4) == 0xF) break;
            }
        } else {
            integer(b);
        }
    }
    View dictValue(View b, int key) {
        seek(b, 0);
        while (b.cursor < b.size && !bad) {
            const int64_t start = b.cursor;
            while (peek8(b) >= 28 && !bad) skipOperand(b);
            const int64_t end = b.cursor;
            int op = get8(b);
            if (op == 12) op = get8(b) | 0x100;
            if (op == key) return range(b, start, end - start);
        }
        return range(b, 0, 0);
    }
    void dictInts(const View& dict, int key, int count, uint32_t* out) {
        View operands = dictValue(dict, key);
        for (int i = 0; i < count && operands.cursor < operands.size; ++i)
            out[i] = integer(operands);
    }
    // The local subroutines of a font dictionary, through its private dict.
    View subrs(View cff, const View& fontDict) {
        uint32_t priv[2] = {0, 0}; // size, offset
        uint32_t offset = 0;
        dictInts(fontDict, 18, 2, priv);
        if (!priv[1] || !priv[0]) return View{};
        if (uint64_t(priv[1]) + priv[0] > uint64_t(length)) {
            bad = true;
            return View{};
        }
        View privateDict = range(cff, priv[1], priv[0]);
        dictInts(privateDict, 19, 1, &offset);
        if (!offset) return View{};
        const uint64_t at = uint64_t(priv[1]) + offset;
        if (at >= uint64_t(length)) {
            bad = true;
            return View{};
        }
        seek(cff, static_cast<int64_t>(at));
        return index(cff);
    }
};

// The views stbtt_InitFont keeps for the glyph programs.
struct CffPrograms {
    View charStrings, globalSubrs, localSubrs, fontDicts, fdSelect;
};

// A dry run of each Type 2 glyph program the way stb_truetype interprets it
// (stack, subroutine calls and their bias, hint masks, the moves and curves
// it turns into vertices), for two things its reads cannot show: a program
// whose subroutines call each other into billions of steps, and coordinates
// that grow past what its float-to-int conversions can hold.
struct CharStringRun {
    CffWalk& w;
    const CffPrograms& p;
    View cff; // held to the table's real length, as the reader's is

    // Steps of one glyph, subroutines included, and of the whole font; real
    // glyphs take hundreds.
    static constexpr long kMaxSteps = 1L << 18;
    static constexpr long kMaxFontSteps = 1L << 24;
    long fontSteps = 0;
    // Every vertex stb_truetype makes goes through (int).
    static constexpr float kMaxCoordinate = 1.0e9f;

    float x = 0, y = 0, firstX = 0, firstY = 0;
    bool inRange = true;

    void check(float v) {
        if (!(std::fabs(v) < kMaxCoordinate)) inRange = false;
    }
    void closeShape() {} // a line back to (firstX, firstY): both already checked
    void moveBy(float dx, float dy) {
        closeShape();
        firstX = x = x + dx;
        firstY = y = y + dy;
        check(x), check(y);
    }
    void lineBy(float dx, float dy) {
        x += dx;
        y += dy;
        check(x), check(y);
    }
    void curveBy(float dx1, float dy1, float dx2, float dy2, float dx3, float dy3) {
        const float cx1 = x + dx1, cy1 = y + dy1;
        const float cx2 = cx1 + dx2, cy2 = cy1 + dy2;
        x = cx2 + dx3;
        y = cy2 + dy3;
        check(cx1), check(cy1), check(cx2), check(cy2), check(x), check(y);
    }

    View subroutine(const View& index, int n) {
        const int64_t count = w.indexCount(index);
        const int64_t bias = count >= 33900 ? 32768 : count >= 1240 ? 1131 : 107;
        const int64_t k = n + bias;
        if (k < 0 || k >= count) return View{};
        return w.indexElement(index, static_cast<uint32_t>(k));
    }

    // The local subroutines of a CID-keyed glyph, through FDSelect. A glyph
    // that selects no font dictionary is refused.
    bool cidSubrs(uint32_t glyph, View& subrs) {
        View select = p.fdSelect;
        w.seek(select, 0);
        const int format = w.get8(select);
        int64_t selector = -1;
        if (format == 0) {
            w.skip(select, glyph);
            selector = w.get8(select);
        } else if (format == 3) {
            const uint32_t ranges = w.get(select, 2);
            uint32_t start = w.get(select, 2);
            for (uint32_t r = 0; r < ranges; ++r) {
                const uint32_t fd = w.get8(select);
                const uint32_t end = w.get(select, 2);
                if (glyph >= start && glyph < end) {
                    selector = fd;
                    break;
                }
                start = end;
            }
        }
        if (selector < 0 || selector >= w.indexCount(p.fontDicts)) return false;
        subrs = w.subrs(cff, w.indexElement(p.fontDicts, static_cast<uint32_t>(selector)));
        return !w.bad;
    }

    bool glyph(uint32_t glyphIndex) {
        x = y = firstX = firstY = 0;
        int inHeader = 1, maskBits = 0, depth = 0, sp = 0;
        bool haveSubrs = false;
        float s[48] = {};
        View callers[10];
        View subrs = p.localSubrs;
        View b = w.indexElement(p.charStrings, glyphIndex);
        for (long steps = 0; b.cursor < b.size; ++steps) {
            if (steps > kMaxSteps || ++fontSteps > kMaxFontSteps || w.bad || !inRange) return false;
            int i = 0;
            bool clearStack = true;
            const int b0 = w.get8(b);
            switch (b0) {
            case 0x13: // hintmask
            case 0x14: // cntrmask
                if (inHeader) maskBits += sp / 2;
                inHeader = 0;
                w.skip(b, (maskBits + 7) / 8);
                break;
            case 0x01:
            case 0x03:
            case 0x12:
            case 0x17: // stem hints
                maskBits += sp / 2;
                break;
            case 0x15: // rmoveto
                inHeader = 0;
                if (sp < 2) return true;
                moveBy(s[sp - 2], s[sp - 1]);
                break;
            case 0x04: // vmoveto
                inHeader = 0;
                if (sp < 1) return true;
                moveBy(0, s[sp - 1]);
                break;
            case 0x16: // hmoveto
                inHeader = 0;
                if (sp < 1) return true;
                moveBy(s[sp - 1], 0);
                break;
            case 0x05: // rlineto
                if (sp < 2) return true;
                for (; i + 1 < sp; i += 2) lineBy(s[i], s[i + 1]);
                break;
            case 0x06: // hlineto, then alternating
            case 0x07: // vlineto, then alternating
                if (sp < 1) return true;
                for (bool horizontal = b0 == 0x06; i < sp; ++i, horizontal = !horizontal)
                    horizontal ? lineBy(s[i], 0) : lineBy(0, s[i]);
                break;
            case 0x1E: // vhcurveto
            case 0x1F: // hvcurveto
                if (sp < 4) return true;
                for (bool vertical = b0 == 0x1E; i + 3 < sp; i += 4, vertical = !vertical) {
                    const float last = (sp - i == 5) ? s[i + 4] : 0.0f;
                    if (vertical)
                        curveBy(0, s[i], s[i + 1], s[i + 2], s[i + 3], last);
                    else
                        curveBy(s[i], 0, s[i + 1], s[i + 2], last, s[i + 3]);
                }
                break;
            case 0x08: // rrcurveto
                if (sp < 6) return true;
                for (; i + 5 < sp; i += 6)
                    curveBy(s[i], s[i + 1], s[i + 2], s[i + 3], s[i + 4], s[i + 5]);
                break;
            case 0x18: // rcurveline
                if (sp < 8) return true;
                for (; i + 5 < sp - 2; i += 6)
                    curveBy(s[i], s[i + 1], s[i + 2], s[i + 3], s[i + 4], s[i + 5]);
                if (i + 1 >= sp) return true;
                lineBy(s[i], s[i + 1]);
                break;
            case 0x19: // rlinecurve
                if (sp < 8) return true;
                for (; i + 1 < sp - 6; i += 2) lineBy(s[i], s[i + 1]);
                if (i + 5 >= sp) return true;
                curveBy(s[i], s[i + 1], s[i + 2], s[i + 3], s[i + 4], s[i + 5]);
                break;
            case 0x1A:   // vvcurveto
            case 0x1B: { // hhcurveto
                if (sp < 4) return true;
                float f = 0.0f;
                if (sp & 1) f = s[i++];
                for (; i + 3 < sp; i += 4, f = 0.0f) {
                    if (b0 == 0x1B)
                        curveBy(s[i], f, s[i + 1], s[i + 2], s[i + 3], 0.0f);
                    else
                        curveBy(f, s[i], s[i + 1], s[i + 2], 0.0f, s[i + 3]);
                }
                break;
            }
            case 0x0A: // callsubr
                if (!haveSubrs) {
                    if (p.fdSelect.size && !cidSubrs(glyphIndex, subrs)) return false;
                    haveSubrs = true;
                }
                [[fallthrough]];
            case 0x1D: { // callgsubr
                if (sp < 1) return true;
                const int v = static_cast<int>(s[--sp]);
                if (depth >= 10) return true;
                callers[depth++] = b;
                b = subroutine(b0 == 0x0A ? subrs : p.globalSubrs, v);
                if (b.size == 0) return true;
                b.cursor = 0;
                clearStack = false;
                break;
            }
            case 0x0B: // return
                if (depth <= 0) return true;
                b = callers[--depth];
                clearStack = false;
                break;
            case 0x0E: // endchar
                closeShape();
                return inRange;
            case 0x0C: { // flex family
                const int b1 = w.get8(b);
                if (b1 == 0x22) { // hflex
                    if (sp < 7) return true;
                    curveBy(s[0], 0, s[1], s[2], s[3], 0);
                    curveBy(s[4], 0, s[5], -s[2], s[6], 0);
                } else if (b1 == 0x23) { // flex
                    if (sp < 13) return true;
                    curveBy(s[0], s[1], s[2], s[3], s[4], s[5]);
                    curveBy(s[6], s[7], s[8], s[9], s[10], s[11]);
                } else if (b1 == 0x24) { // hflex1
                    if (sp < 9) return true;
                    curveBy(s[0], s[1], s[2], s[3], s[4], 0);
                    curveBy(s[5], 0, s[6], s[7], s[8], -(s[1] + s[3] + s[7]));
                } else if (b1 == 0x25) { // flex1
                    if (sp < 11) return true;
                    const float dx = s[0] + s[2] + s[4] + s[6] + s[8];
                    const float dy = s[1] + s[3] + s[5] + s[7] + s[9];
                    float dx6 = s[10], dy6 = s[10];
                    if (std::fabs(dx) > std::fabs(dy))
                        dy6 = -dy;
                    else
                        dx6 = -dx;
                    curveBy(s[0], s[1], s[2], s[3], s[4], s[5]);
                    curveBy(s[6], s[7], s[8], s[9], dx6, dy6);
                } else {
                    return true;
                }
                break;
            }
            default: {
                if (b0 != 255 && b0 != 28 && b0 < 32) return true;
                float f;
                if (b0 == 255) {
                    f = static_cast<float>(static_cast<int32_t>(w.get(b, 4))) / 0x10000;
                } else {
                    w.skip(b, -1);
                    f = static_cast<float>(static_cast<int16_t>(w.integer(b)));
                }
                if (sp >= 48) return true;
                s[sp++] = f;
                clearStack = false;
                break;
            }
            }
            if (clearStack) sp = 0;
        }
        return !w.bad && inRange;
    }
};

// What stbtt_InitFont parses of a CFF table, and what the glyph programs
// reach later through the views it keeps.
} // namespace

bool checkCffTable(const unsigned char* table, uint64_t length, uint32_t numGlyphs) {
    if (length < 4) return false;
    CffWalk w{table, static_cast<int64_t>(length)};
    View b{0, kStbCffSize, 0};
    w.skip(b, 2);
    w.seek(b, w.get8(b)); // header size
    w.index(b);           // names
    const View topDicts = w.index(b);
    if (w.bad || w.indexCount(topDicts) == 0) return false;
    const View topDict = w.indexElement(topDicts, 0);
    w.index(b); // strings
    CffPrograms programs;
    programs.globalSubrs = w.index(b);
    uint32_t charStrings = 0, charStringType = 2, fdArray = 0, fdSelect = 0;
    w.dictInts(topDict, 17, 1, &charStrings);
    w.dictInts(topDict, 0x100 | 6, 1, &charStringType);
    w.dictInts(topDict, 0x100 | 36, 1, &fdArray);
    w.dictInts(topDict, 0x100 | 37, 1, &fdSelect);
    programs.localSubrs = w.subrs(b, topDict);
    if (w.bad || charStringType != 2 || charStrings == 0 || charStrings >= length) return false;

    // From here on the reader holds the table to its real length.
    const View clamped{0, w.length, 0};
    if (fdArray) {
        if (!fdSelect || fdArray >= length || fdSelect >= length) return false;
        w.seek(b, fdArray);
        const View fontDicts = w.index(b);
        if (w.bad) return false;
        programs.fontDicts = fontDicts;
        programs.fdSelect = w.range(clamped, fdSelect, w.length - fdSelect);
        const uint32_t dictCount = w.indexCount(fontDicts);
        if (dictCount == 0) return false;
        for (uint32_t i = 0; i < dictCount && !w.bad; ++i) {
            w.subrs(clamped, w.indexElement(fontDicts, i));
        }
        // Every glyph must select an existing font dictionary.
        View select = w.range(clamped, fdSelect, w.length - fdSelect);
        const int format = w.get8(select);
        if (format == 0) {
            for (uint32_t g = 0; g < numGlyphs; ++g) {
                if (select.cursor >= select.size || w.get8(select) >= dictCount) return false;
            }
        } else if (format == 3) {
            const uint32_t ranges = w.get(select, 2);
            if (select.cursor + 3 * int64_t(ranges) + 2 > select.size) return false;
            w.get(select, 2); // first glyph
            for (uint32_t r = 0; r < ranges; ++r) {
                if (w.get8(select) >= dictCount) return false;
                w.get(select, 2);
            }
        } else {
            return false;
        }
    }
    w.seek(b, charStrings);
    programs.charStrings = w.index(b);
    if (w.bad || w.indexCount(programs.charStrings) < numGlyphs) return false;
    CharStringRun run{w, programs, clamped};
    for (uint32_t g = 0; g < numGlyphs; ++g) {
        if (!run.glyph(g)) return false;
    }
    return true;
}

} // namespace textgeom
