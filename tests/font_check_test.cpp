// Fonts are untrusted input: truncated, garbage and surgically damaged files
// must all be refused (false, output untouched) without a read outside the
// buffer, while damage that stb_truetype reads safely is read. Run under
// AddressSanitizer to mean it.
#include "font_builder.h"

#include <korvex/font.h>

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <set>

namespace {

using namespace fonttest;
using Rings = std::vector<std::vector<vec2>>;

const std::string kText = "Hä? Ö 9 \xE2\x82\xAC";

::testing::AssertionResult refused(const std::string& path) {
    const Rings sentinel{{vec2(1, 1), vec2(2, 1), vec2(2, 2)}};
    Rings rings = sentinel;
    if (GenerateContoursFromFontFile(path, kText, 24.0f, 0.01f, rings))
        return ::testing::AssertionFailure() << "accepted";
    if (rings != sentinel) return ::testing::AssertionFailure() << "output changed";
    return ::testing::AssertionSuccess();
}

bool accepted(const std::string& path, const std::string& text = kText) {
    Rings rings;
    return GenerateContoursFromFontFile(path, text, 24.0f, 0.01f, rings) && !rings.empty();
}

class FontCheck : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_GT(font.size(), 100000u) << "default font missing"; }
    size_t directoryEnd() const { return 12 + 16 * size_t(get16(font, 4)); }
    const Bytes font = readFile("../content/Fonts/uk.ttf");
    ScratchDir dir{"korvex-font-check"};
};

// Only damage that would lead stb_truetype astray is refused: an edit that keeps every read
// inside the file is read as stb_truetype reads it, whether or not the checksum was set anew,
// and so is a font whose ascent lies below its descent (drawn upside down).
TEST_F(FontCheck, SoundEditsPassWithOrWithoutTheirChecksum) {
    const auto hhea = findTable(font, "hhea");
    Bytes cosmetic = font;
    cosmetic[findTable(cosmetic, "name").offset + 40] ^= 0x20;
    Bytes checksumOff = font;
    checksumOff[findTable(checksumOff, "head").offset + 8] ^= 0x01; // checkSumAdjustment
    Bytes flipped = font;
    set16(flipped, hhea.offset + 4, get16(font, hhea.offset + 6));
    set16(flipped, hhea.offset + 6, get16(font, hhea.offset + 4));
    for (const Bytes* edited : {&cosmetic, &checksumOff, &flipped}) {
        writeFile(dir.file("edited.ttf"), *edited);
        EXPECT_TRUE(accepted(dir.file("edited.ttf"))) << edited - &cosmetic;
    }
    Bytes fixed = cosmetic;
    fixChecksum(fixed);
    writeFile(dir.file("edited.ttf"), fixed);
    EXPECT_TRUE(accepted(dir.file("edited.ttf")));
}

TEST_F(FontCheck, TruncationAtEveryTableBoundaryIsRefused) {
    std::set<size_t, std::greater<size_t>> lengths{
        0, 1, 4, 11, 12, 13, font.size() - 1, directoryEnd() - 1, directoryEnd()};
    for (const auto& t : tableDirectory(font))
        for (size_t cut : {t.offset, t.offset + 1, t.offset + t.length / 2, t.offset + t.length - 1,
                           t.offset + t.length})
            if (cut < font.size()) lengths.insert(cut);
    const auto path = dir.file("cut.ttf");
    writeFile(path, font);
    for (size_t length : lengths) { // longest first: each cut shortens the file
        std::filesystem::resize_file(path, length);
        EXPECT_TRUE(refused(path)) << "cut at " << length;
    }
}

// A flipped bit either leaves a font stb_truetype reads safely (under AddressSanitizer this
// test means it) or is refused with the output untouched; flips in the directory and the tables
// that steer the parser are mostly of the second kind.
TEST_F(FontCheck, RandomBitFlipsAreRefusedOrReadSafely) {
    std::mt19937 random(20240611);
    std::vector<size_t> positions;
    for (int i = 0; i < 150; ++i) positions.push_back(random() % font.size());
    // Most of the file is glyph data: the directory and the tables that
    // steer the parser get flips of their own.
    for (size_t p = 0; p < directoryEnd(); p += 7) positions.push_back(p);
    for (const char* tag : {"head", "hhea", "maxp", "cmap", "loca", "hmtx"}) {
        const auto t = findTable(font, tag);
        for (int i = 0; i < 12; ++i) positions.push_back(t.offset + random() % t.length);
    }
    const auto path = dir.file("flipped.ttf");
    writeFile(path, font);
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    size_t read = 0;
    for (size_t position : positions) {
        const int bit = 1 << (random() % 8);
        const char flipped = char(font[position] ^ bit), original = char(font[position]);
        file.seekp(std::streamoff(position)).write(&flipped, 1).flush();
        const Rings sentinel{{vec2(1, 1), vec2(2, 1), vec2(2, 2)}};
        Rings rings = sentinel;
        if (GenerateContoursFromFontFile(path, kText, 24.0f, 0.01f, rings))
            ++read;
        else
            EXPECT_EQ(rings, sentinel) << "bit " << bit << " at " << position;
        file.seekp(std::streamoff(position)).write(&original, 1).flush();
    }
    EXPECT_GT(read, 0u);
    EXPECT_LT(read, positions.size());
    EXPECT_TRUE(accepted(path)); // restored
}

TEST_F(FontCheck, GarbageIsRefused) {
    std::mt19937 random(7);
    auto noise = [&](size_t n) {
        Bytes b(n);
        for (auto& v : b) v = uint8_t(random());
        return b;
    };
    std::vector<Bytes> cases{Bytes(1000, 0), Bytes(1000, 0xFF), noise(3), noise(5000)};
    // Plausible headers over noise, and the real directory over noise, each
    // also with the checksum set (nothing to set without a head table).
    for (uint32_t version : {0x00010000u, 0x4F54544Fu, 0x74727565u, 0x74746366u}) {
        cases.push_back(noise(4096));
        set32(cases.back(), 0, version), set16(cases.back(), 4, 6);
    }
    cases.push_back(noise(font.size()));
    std::copy(font.begin(), font.begin() + long(directoryEnd()), cases.back().begin());
    cases.push_back(cases.back());
    fixChecksum(cases.back());
    EXPECT_TRUE(refused("no/such/font.ttf"));
    EXPECT_TRUE(refused(".")); // a directory
    const auto path = dir.file("garbage.ttf");
    for (size_t i = 0; i < cases.size(); ++i) {
        writeFile(path, cases[i]);
        EXPECT_TRUE(refused(path)) << "case " << i;
    }
}

// Damage that would send stb_truetype's reads astray, each with the checksum set right as a
// careful forger would.
TEST_F(FontCheck, StructuralDamageIsRefused) {
    const auto head = findTable(font, "head"), hhea = findTable(font, "hhea");
    const auto maxp = findTable(font, "maxp"), cmap = findTable(font, "cmap");
    const auto loca = findTable(font, "loca"), glyf = findTable(font, "glyf");
    const uint16_t numGlyphs = get16(font, maxp.offset + 4);
    ASSERT_EQ(get16(font, head.offset + 50), 1) << "DejaVu Sans has long loca offsets";
    auto glyphAt = [&](uint32_t g) { return glyf.offset + get32(font, loca.offset + 4 * g); };
    // Glyph 134 is A-diaeresis, a composite; 43 is H, a simple glyph.
    const size_t composite = glyphAt(134), simple = glyphAt(43);
    ASSERT_LT(int16_t(get16(font, composite)), 0);
    ASSERT_GT(int16_t(get16(font, simple)), 0);
    size_t lastPart = composite + 10;
    for (uint16_t flags; (flags = get16(font, lastPart)) & 32;)
        lastPart += 4 + ((flags & 1) ? 4 : 2) +
                    ((flags & 8)     ? 2
                     : (flags & 64)  ? 4
                     : (flags & 128) ? 8
                                     : 0);
    // The Unicode subtable read: the last record, (3, 10).
    const size_t lastRecord = cmap.offset + 4 + 8 * (get16(font, cmap.offset + 2) - 1);
    ASSERT_EQ(get16(font, lastRecord + 2), 10);
    const size_t full = cmap.offset + get32(font, lastRecord + 4);

    const size_t instructions = simple + 10 + 2 * get16(font, simple); // after the end points
    const struct {
        size_t at;
        uint32_t value;
        int bytes;
        const char* what;
    } damage[] = {
        {glyf.directoryEntry + 12, uint32_t(font.size()), 4, "glyf length past the end"},
        {cmap.directoryEntry + 8, 16, 4, "cmap inside the directory"},
        {4, 0xFFFF, 2, "table count past the file"},
        {cmap.directoryEntry, 'x', 1, "no cmap"},
        {head.offset + 50u, 2, 2, "loca format 2"},
        {head.offset + 50u, 0, 2, "short loca for format 0"},
        {hhea.offset + 34u, 0, 2, "no long metrics"},
        {hhea.offset + 34u, 0xFFFF, 2, "long metrics past hmtx"},
        {hhea.offset + 4u, get16(font, hhea.offset + 6), 2, "ascent equals descent"},
        {maxp.offset + 4u, numGlyphs + 1u, 2, "one glyph more than loca holds"},
        {maxp.offset + 4u, 0, 2, "no glyphs"},
        {loca.offset + 4 * 101u, glyf.length + 2, 4, "glyph past glyf"},
        {loca.offset + 4 * 44u, get32(font, loca.offset + 4 * 43) - 2, 4, "loca falls back"},
        {lastRecord + 4, cmap.length - 2, 4, "cmap subtable past cmap"},
        {full + 12, 0x10000000, 4, "cmap groups past cmap"},
        {full, 2, 2, "cmap format 2"},
        {composite + 12, 134, 2, "composite refers to itself"},
        {composite + 12, numGlyphs, 2, "composite refers past the glyphs"},
        {lastPart, get16(font, lastPart) | 32u, 2, "composite runs off its glyph"},
        {instructions - 2, 0xFFFE, 2, "points past the glyph"},
        {instructions, 0xFFFF, 2, "instructions past the glyph"},
    };
    const auto path = dir.file("damaged.ttf");
    for (const auto& d : damage) {
        Bytes damaged = font;
        setN(damaged, d.at, d.value, d.bytes);
        fixChecksum(damaged);
        writeFile(path, damaged);
        EXPECT_TRUE(refused(path)) << d.what;
    }
}

TEST_F(FontCheck, GlyphProgramsThatStbTruetypeWouldMisreadAreRefused) {
    const auto path = dir.file("built.ttf");
    auto check = [&](const Bytes& bytes, bool good, const char* what) {
        writeFile(path, bytes);
        EXPECT_TRUE(good ? ::testing::AssertionResult(accepted(path, "A")) : refused(path)) << what;
    };
    const Bytes triangle = simpleGlyph({{0, 0, true}, {500, 0, true}, {250, 700, true}});
    check(trueTypeFont({triangle}), true, "triangle");
    // A contour that starts off-curve on the glyph's last point makes
    // stb_truetype look one point past its array.
    check(trueTypeFont({simpleGlyph({{10, 10, false}})}), false, "lone off-curve point");
    Bytes twoContours =
        simpleGlyph({{0, 0, true}, {500, 0, true}, {250, 700, true}, {100, 100, false}});
    set16(twoContours, 0, 2);
    twoContours.insert(twoContours.begin() + 10, {0, 2}); // end points 2, 3
    check(trueTypeFont({twoContours}), false, "off-curve start at the end");
    check(trueTypeFont({Bytes(triangle.begin(), triangle.end() - 2)}), false,
          "coordinates cut short");

    check(trueTypeFont({compositeGlyph({{2, 100, 0}}), triangle}), true, "composite");
    check(trueTypeFont({compositeGlyph({{2, 0, 0}, {1, 0, 0}}), triangle}), false,
          "composite cycle");
    // Scaled past 16 bits: stb_truetype would convert an out-of-range float.
    check(trueTypeFont({compositeGlyph({{2, 30000, 0, 1.5f}}), triangle}), false, "overflow");
    check(trueTypeFont({compositeGlyph({{2, 20000, 0, 1.5f}}), triangle}), true, "in range");
    for (int depth : {16, 17}) { // nesting: 16 levels pass, 17 do not
        std::vector<Bytes> chain;
        for (int level = 1; level <= depth; ++level)
            chain.push_back(compositeGlyph({{level + 1, 1, 0}}));
        chain.push_back(triangle);
        check(trueTypeFont(chain), depth == 16, "composite chain");
    }

    Bytes program;
    op(op(program, {0, 0}, 21), {500, 0, -250, 700}, 5).push_back(14);
    const Bytes otf = cffFont(program);
    check(otf, true, "cff");
    const auto cff = findTable(otf, "CFF ");
    const struct {
        size_t at;
        uint8_t value;
        const char* what;
    } cffDamage[] = {{2, 200, "header size past the table"},
                     {6, 5, "name INDEX with offset size 5"},
                     {8, 200, "name INDEX ends past the table"},
                     {16, 0x7F, "CharStrings offset past the table"},
                     {cff.length - program.size() - 3, 0, "CharStrings INDEX with a zero offset"}};
    for (const auto& d : cffDamage) {
        Bytes f = otf;
        f[cff.offset + d.at] = d.value;
        fixChecksum(f);
        check(f, false, d.what);
    }

    // Subroutines calling each other 30 times a level, 8 levels deep:
    // stb_truetype would run for hours.
    std::vector<Bytes> explosive(8);
    for (int level = 0; level < 7; ++level) op(explosive[size_t(level)], {level + 1 - 107}, 29, 30);
    op(explosive[7], {1, 1}, 5);
    for (Bytes& subr : explosive) subr.push_back(11);
    Bytes caller;
    op(op(caller, {0, 0}, 21), {-107}, 29).push_back(14);
    check(cffFont(caller, explosive), false, "cff program of 30^7 steps");
    // Few steps, but coordinates past what stb_truetype's (int) casts hold:
    // 40 x 40 calls of 24 moves of 32767 in x and y. With 2 calls at the top
    // they stay in range.
    Bytes far, forty;
    op(far, std::vector<int>(48, 32767), 5).push_back(11);
    op(forty, {1 - 107}, 29, 40).push_back(11);
    for (int calls : {40, 2}) {
        Bytes top;
        op(op(top, {0, 0}, 21), {-107}, 29, calls).push_back(14);
        check(cffFont(top, {forty, far}), calls == 2, "cff coordinates");
    }
}

} // namespace
