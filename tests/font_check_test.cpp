// Fonts are untrusted input: truncated, bit-flipped, garbage and surgically
// damaged files must all be refused (false, output untouched) without a
// single read outside the buffer. Run under AddressSanitizer to mean it.
#include "font_builder.h"

#include <korvex/font.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>

namespace {

using fonttest::Bytes;
using Rings = std::vector<std::vector<vec2>>;

const char* const kFont = "../content/Fonts/uk.ttf";
const std::string kText = "Hä? Ö 9 \xE2\x82\xAC";

const Rings& sentinel() {
    static const Rings rings{{vec2(1, 1), vec2(2, 1), vec2(2, 2)}};
    return rings;
}

// False, with the output left exactly as it was.
::testing::AssertionResult refused(const std::string& path) {
    Rings rings = sentinel();
    if (GenerateContoursFromFontFile(path, kText, 24.0f, 0.01f, rings))
        return ::testing::AssertionFailure() << "accepted";
    if (rings != sentinel()) return ::testing::AssertionFailure() << "output changed";
    return ::testing::AssertionSuccess();
}

bool accepted(const std::string& path, const std::string& text = kText) {
    Rings rings;
    return GenerateContoursFromFontFile(path, text, 24.0f, 0.01f, rings) && !rings.empty();
}

class FontCheck : public ::testing::Test {
  protected:
    void SetUp() override {
        font = fonttest::readFile(kFont);
        ASSERT_GT(font.size(), 100000u) << "default font missing";
    }
    Bytes font;
    fonttest::ScratchDir dir{"korvex-font-check"};
};

TEST_F(FontCheck, TheIntactFontAndACosmeticEditPass) {
    const auto path = dir.file("intact.ttf");
    fonttest::writeFile(path, font);
    EXPECT_TRUE(accepted(path));
    // A changed byte in the name table, with the checksum set right again:
    // the structural walk accepts the real font by itself.
    Bytes edited = font;
    edited[fonttest::findTable(edited, "name").offset + 40] ^= 0x20;
    fonttest::fixChecksum(edited);
    fonttest::writeFile(path, edited);
    EXPECT_TRUE(accepted(path));
}

TEST_F(FontCheck, TruncationAtEveryTableBoundaryIsRefused) {
    std::set<size_t, std::greater<size_t>> lengths{0, 1, 4, 11, 12, 13, font.size() - 1};
    const size_t directoryEnd = 12 + 16 * fonttest::get16(font, 4);
    lengths.insert(directoryEnd - 1);
    lengths.insert(directoryEnd);
    for (const auto& t : fonttest::tableDirectory(font)) {
        for (size_t cut : {size_t(t.offset), size_t(t.offset) + 1, size_t(t.offset) + t.length / 2,
                           size_t(t.offset) + t.length - 1, size_t(t.offset) + t.length}) {
            if (cut < font.size()) lengths.insert(cut);
        }
    }
    const auto path = dir.file("cut.ttf");
    fonttest::writeFile(path, font);
    for (size_t length : lengths) { // longest first: each cut shortens the file
        std::filesystem::resize_file(path, length);
        EXPECT_TRUE(refused(path)) << "cut at " << length;
    }
}

TEST_F(FontCheck, EveryRandomBitFlipIsRefused) {
    const auto path = dir.file("flipped.ttf");
    fonttest::writeFile(path, font);
    std::mt19937 random(20240611);
    std::vector<size_t> positions;
    std::uniform_int_distribution<size_t> anywhere(0, font.size() - 1);
    for (int i = 0; i < 150; ++i) positions.push_back(anywhere(random));
    // Most of the file is glyph data; the small tables that steer the
    // parser get flips of their own.
    for (size_t p = 0; p < 12 + 16 * size_t(fonttest::get16(font, 4)); p += 7)
        positions.push_back(p);
    for (const char* tag : {"head", "hhea", "maxp", "cmap", "loca", "hmtx"}) {
        const auto t = fonttest::findTable(font, tag);
        std::uniform_int_distribution<size_t> inside(t.offset, t.offset + t.length - 1);
        for (int i = 0; i < 12; ++i) positions.push_back(inside(random));
    }
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    for (size_t position : positions) {
        const uint8_t bit = uint8_t(1u << (random() % 8));
        const char flipped = char(font[position] ^ bit);
        file.seekp(std::streamoff(position)).write(&flipped, 1).flush();
        EXPECT_TRUE(refused(path)) << "bit " << int(bit) << " at " << position;
        const char original = char(font[position]);
        file.seekp(std::streamoff(position)).write(&original, 1).flush();
    }
    EXPECT_TRUE(accepted(path)); // restored
}

TEST_F(FontCheck, GarbageIsRefused) {
    std::mt19937 random(7);
    const auto path = dir.file("garbage.ttf");
    auto noise = [&](size_t n) {
        Bytes b(n);
        for (auto& v : b) v = uint8_t(random());
        return b;
    };
    std::vector<Bytes> cases{Bytes(1000, 0), Bytes(1000, 0xFF), noise(3),
                             noise(64),      noise(5000),       noise(200000)};
    // Plausible headers over noise, and the real directory over noise.
    for (uint32_t version : {0x00010000u, 0x4F54544Fu, 0x74727565u, 0x74746366u}) {
        Bytes b = noise(4096);
        fonttest::set32(b, 0, version);
        fonttest::set16(b, 4, 6);
        cases.push_back(b);
        fonttest::fixChecksum(b); // no head table: nothing to fix, still refused
        cases.push_back(b);
    }
    Bytes directory = noise(font.size());
    std::copy(font.begin(), font.begin() + 12 + 16 * fonttest::get16(font, 4), directory.begin());
    cases.push_back(directory);
    fonttest::fixChecksum(directory);
    cases.push_back(directory);
    for (size_t i = 0; i < cases.size(); ++i) {
        fonttest::writeFile(path, cases[i]);
        EXPECT_TRUE(refused(path)) << "case " << i;
    }
}

// Damage that keeps the file's checksum right, so that only the structural
// walk can refuse it.
TEST_F(FontCheck, StructuralDamageIsRefusedWithTheChecksumRight) {
    using fonttest::get16;
    using fonttest::get32;
    using fonttest::set16;
    using fonttest::set32;
    const auto head = fonttest::findTable(font, "head");
    const auto hhea = fonttest::findTable(font, "hhea");
    const auto maxp = fonttest::findTable(font, "maxp");
    const auto cmap = fonttest::findTable(font, "cmap");
    const auto loca = fonttest::findTable(font, "loca");
    const auto glyf = fonttest::findTable(font, "glyf");
    const uint16_t numGlyphs = get16(font, maxp.offset + 4);
    ASSERT_EQ(get16(font, head.offset + 50), 1) << "DejaVu Sans has long loca offsets";
    auto glyphAt = [&](uint32_t glyph) {
        return glyf.offset + get32(font, loca.offset + 4 * glyph);
    };
    // Glyph 134 is A-diaeresis, a composite; 43 is H, a simple glyph.
    const size_t composite = glyphAt(134), simple = glyphAt(43);
    ASSERT_LT(int16_t(get16(font, composite)), 0);
    size_t lastPart = composite + 10;
    for (uint16_t flags; (flags = get16(font, lastPart)) & 32;) {
        lastPart += 4 + ((flags & 1) ? 4 : 2) +
                    ((flags & 8)     ? 2
                     : (flags & 64)  ? 4
                     : (flags & 128) ? 8
                                     : 0);
    }
    ASSERT_GT(int16_t(get16(font, simple)), 0);
    // The Unicode subtable stb_truetype picks: the last record, (3, 10).
    const size_t records = get16(font, cmap.offset + 2);
    const size_t lastRecord = cmap.offset + 4 + 8 * (records - 1);
    ASSERT_EQ(get16(font, lastRecord + 2), 10);
    const size_t full = cmap.offset + get32(font, lastRecord + 4);

    const std::vector<std::pair<const char*, std::function<void(Bytes&)>>> damage{
        {"glyf length past the end",
         [&](Bytes& f) { set32(f, glyf.directoryEntry + 12, uint32_t(f.size())); }},
        {"cmap inside the directory", [&](Bytes& f) { set32(f, cmap.directoryEntry + 8, 16); }},
        {"table count past the file", [&](Bytes& f) { set16(f, 4, 0xFFFF); }},
        {"no cmap", [&](Bytes& f) { f[cmap.directoryEntry] = 'x'; }},
        {"loca format 2", [&](Bytes& f) { set16(f, head.offset + 50, 2); }},
        {"short loca for format 0", [&](Bytes& f) { set16(f, head.offset + 50, 0); }},
        {"no long metrics", [&](Bytes& f) { set16(f, hhea.offset + 34, 0); }},
        {"long metrics past hmtx", [&](Bytes& f) { set16(f, hhea.offset + 34, 0xFFFF); }},
        {"ascent equals descent",
         [&](Bytes& f) { set16(f, hhea.offset + 4, get16(f, hhea.offset + 6)); }},
        {"one glyph more than loca holds",
         [&](Bytes& f) { set16(f, maxp.offset + 4, numGlyphs + 1); }},
        {"no glyphs", [&](Bytes& f) { set16(f, maxp.offset + 4, 0); }},
        {"glyph past glyf", [&](Bytes& f) { set32(f, loca.offset + 4 * 101, glyf.length + 2); }},
        {"loca falls back",
         [&](Bytes& f) { set32(f, loca.offset + 4 * 44, get32(f, loca.offset + 4 * 43) - 2); }},
        {"cmap subtable past cmap", [&](Bytes& f) { set32(f, lastRecord + 4, cmap.length - 2); }},
        {"cmap groups past cmap", [&](Bytes& f) { set32(f, full + 12, 0x10000000); }},
        {"cmap format 2", [&](Bytes& f) { set16(f, full, 2); }},
        {"composite refers to itself", [&](Bytes& f) { set16(f, composite + 12, 134); }},
        {"composite refers past the glyphs",
         [&](Bytes& f) { set16(f, composite + 12, numGlyphs); }},
        {"composite runs off its glyph",
         [&](Bytes& f) { set16(f, lastPart, get16(f, lastPart) | 32); }},
        {"points past the glyph",
         [&](Bytes& f) { set16(f, simple + 10 + 2 * (get16(f, simple) - 1), 0xFFFE); }},
        {"instructions past the glyph",
         [&](Bytes& f) { set16(f, simple + 10 + 2 * get16(f, simple), 0xFFFF); }},
    };
    const auto path = dir.file("damaged.ttf");
    for (const auto& [what, apply] : damage) {
        Bytes damaged = font;
        apply(damaged);
        fonttest::fixChecksum(damaged);
        fonttest::writeFile(path, damaged);
        EXPECT_TRUE(refused(path)) << what;
    }
}

TEST_F(FontCheck, GlyphProgramsThatStbTruetypeWouldMisreadAreRefused) {
    using fonttest::Part;
    const Bytes triangle = fonttest::simpleGlyph({{0, 0, true}, {500, 0, true}, {250, 700, true}});
    const auto path = dir.file("built.ttf");
    auto check = [&](const Bytes& fontBytes, bool good, const char* what) {
        fonttest::writeFile(path, fontBytes);
        if (good)
            EXPECT_TRUE(accepted(path, "A")) << what;
        else
            EXPECT_TRUE(refused(path)) << what;
    };
    check(fonttest::trueTypeFont(triangle), true, "triangle");
    // A contour that starts off-curve on the glyph's last point makes
    // stb_truetype look one point past its array.
    check(fonttest::trueTypeFont(fonttest::simpleGlyph({{10, 10, false}})), false,
          "lone off-curve point");
    Bytes twoContours =
        fonttest::simpleGlyph({{0, 0, true}, {500, 0, true}, {250, 700, true}, {100, 100, false}});
    fonttest::set16(twoContours, 0, 2);
    twoContours.insert(twoContours.begin() + 10, {0, 2}); // end points 2, 3
    check(fonttest::trueTypeFont(twoContours), false, "off-curve start at the end");
    Bytes cut = triangle;
    cut.resize(cut.size() - 2);
    check(fonttest::trueTypeFont(cut), false, "coordinates cut short");

    check(fonttest::trueTypeFont({fonttest::compositeGlyph({{2, 100, 0}}), triangle}), true,
          "composite");
    check(fonttest::trueTypeFont({fonttest::compositeGlyph({{2, 0, 0}, {1, 0, 0}}), triangle}),
          false, "composite cycle");
    // Scaled past 16 bits: stb_truetype would convert an out-of-range float.
    check(fonttest::trueTypeFont({fonttest::compositeGlyph({{2, 30000, 0, 1.5f}}), triangle}),
          false, "composite overflow");
    check(fonttest::trueTypeFont({fonttest::compositeGlyph({{2, 20000, 0, 1.5f}}), triangle}), true,
          "composite in range");
    // Nesting: 16 levels pass, 17 do not.
    for (int depth : {16, 17}) {
        std::vector<Bytes> chain;
        for (int level = 1; level <= depth; ++level)
            chain.push_back(fonttest::compositeGlyph({{uint16_t(level + 1), 1, 0}}));
        chain.push_back(triangle);
        check(fonttest::trueTypeFont(chain), depth == 16, "composite chain");
    }

    fonttest::Bytes program;
    for (int v : {0, 0}) fonttest::pushNumber(program, v);
    program.push_back(21);
    for (int v : {500, 0, -250, 700}) fonttest::pushNumber(program, v);
    program.push_back(5);
    program.push_back(14);
    const Bytes otf = fonttest::cffFont(program);
    check(otf, true, "cff");
    const auto cff = fonttest::findTable(otf, "CFF ");
    auto cffDamage = [&](size_t at, uint8_t value, const char* what) {
        Bytes f = otf;
        f[cff.offset + at] = value;
        fonttest::fixChecksum(f);
        check(f, false, what);
    };
    cffDamage(2, 200, "cff header size past the table");
    cffDamage(4 + 2, 5, "cff name INDEX with offset size 5");
    cffDamage(4 + 4, 200, "cff name INDEX ends past the table");
    cffDamage(4 + 6 + 5 + 1, 0x7F, "cff CharStrings offset past the table");
    cffDamage(cff.length - program.size() - 3, 0, "cff CharStrings INDEX with a zero offset");

    // Glyph programs whose subroutines call each other 30 times a level, 8
    // levels deep: stb_truetype would run for hours.
    std::vector<Bytes> explosive;
    for (int level = 0; level < 8; ++level) {
        Bytes subr;
        for (int call = 0; call < 30 && level < 7; ++call) {
            fonttest::pushNumber(subr, level + 1 - 107);
            subr.push_back(29); // callgsubr
        }
        if (level == 7) {
            for (int v : {1, 1}) fonttest::pushNumber(subr, v);
            subr.push_back(5);
        }
        subr.push_back(11); // return
        explosive.push_back(subr);
    }
    Bytes caller;
    for (int v : {0, 0}) fonttest::pushNumber(caller, v);
    caller.push_back(21);
    fonttest::pushNumber(caller, -107);
    caller.push_back(29);
    caller.push_back(14);
    check(fonttest::cffFont(caller, explosive), false, "cff program of 30^7 steps");
    // Few steps, but coordinates past what stb_truetype's (int) casts hold:
    // 40 x 40 calls of 24 moves of 32767 in x and y.
    Bytes far;
    for (int k = 0; k < 48; ++k) fonttest::pushNumber(far, 32767);
    far.push_back(5);
    far.push_back(11);
    Bytes forty;
    for (int call = 0; call < 40; ++call) {
        fonttest::pushNumber(forty, 1 - 107);
        forty.push_back(29);
    }
    forty.push_back(11);
    Bytes outward;
    for (int v : {0, 0}) fonttest::pushNumber(outward, v);
    outward.push_back(21);
    for (int call = 0; call < 40; ++call) {
        fonttest::pushNumber(outward, -107);
        outward.push_back(29);
    }
    outward.push_back(14);
    check(fonttest::cffFont(outward, {forty, far}), false, "cff coordinates past 1e9");
    // The same with 2 calls at the top stays in range and is read.
    Bytes near;
    for (int v : {0, 0}) fonttest::pushNumber(near, v);
    near.push_back(21);
    for (int call = 0; call < 2; ++call) {
        fonttest::pushNumber(near, -107);
        near.push_back(29);
    }
    near.push_back(14);
    check(fonttest::cffFont(near, {forty, far}), true, "cff subroutines in range");
}

} // namespace
