// Font outlines: UTF-8 decoding, curve flattening, the font-free boxes and
// contours from the real default font (DejaVu Sans at ../content/Fonts/uk.ttf,
// tests run from bin/) and from tiny fonts built here.
#include "font_builder.h"

#include <korvex/font.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

namespace {

using Rings = std::vector<std::vector<vec2>>;

const char* const kFont = "../content/Fonts/uk.ttf";
// DejaVu Sans: ascent 1901, descent -483, space advance 651, H spans x 201 to
// 1339 and y 0 to 1493, font units.
constexpr float kSpan = 1901.0f + 483.0f;

double signedArea2(const std::vector<vec2>& ring) {
    double sum = 0;
    for (size_t i = 0; i < ring.size(); ++i) {
        const vec2& a = ring[i];
        const vec2& b = ring[(i + 1) % ring.size()];
        sum += double(a.x) * b.y - double(a.y) * b.x;
    }
    return sum;
}

float minX(const Rings& rings) {
    float m = std::numeric_limits<float>::max();
    for (const auto& r : rings)
        for (const vec2& p : r) m = std::min(m, p.x);
    return m;
}

TEST(Utf8, DecodesLenientlyByTheLeadByte) {
    using V = std::vector<unsigned>;
    EXPECT_EQ(utf8_to_codepoints(""), V{});
    EXPECT_EQ(utf8_to_codepoints("Az~"), (V{'A', 'z', '~'}));
    EXPECT_EQ(utf8_to_codepoints("\xC3\xA9"), V{0xE9});
    EXPECT_EQ(utf8_to_codepoints("\xE2\x82\xAC"), V{0x20AC});
    EXPECT_EQ(utf8_to_codepoints("\xF0\x9F\x98\x80"), V{0x1F600});
    // Continuation bytes are not tested: C3 41 is C1.
    EXPECT_EQ(utf8_to_codepoints("\xC3\x41"), V{0xC1});
    // Truncated sequences at the end cost one byte each and give nothing.
    EXPECT_EQ(utf8_to_codepoints("a\xC3"), V{'a'});
    EXPECT_EQ(utf8_to_codepoints("\xE2\x82"), V{});
    EXPECT_EQ(utf8_to_codepoints("\xF0\x9F\x98"), V{});
    // ...and each later byte is looked at again as a lead byte: "\xE2" is
    // skipped, then "A" decodes.
    EXPECT_EQ(utf8_to_codepoints("\xE2"
                                 "A"),
              V{'A'});
    // Stray continuations and bytes from F8 up are skipped alone.
    EXPECT_EQ(utf8_to_codepoints("\x80\xBF"
                                 "b\xF8\xFF"
                                 "c"),
              (V{'b', 'c'}));
    // Overlong forms, surrogates and values past U+10FFFF pass as computed.
    EXPECT_EQ(utf8_to_codepoints("\xC0\x80"), V{0});
    EXPECT_EQ(utf8_to_codepoints("\xED\xA0\x80"), V{0xD800});
    EXPECT_EQ(utf8_to_codepoints("\xF7\xBF\xBF\xBF"), V{0x1FFFFF});
    // A string with an embedded zero byte keeps it.
    EXPECT_EQ(utf8_to_codepoints(std::string("a\0b", 3)), (V{'a', 0, 'b'}));
}

TEST(QuadFlattening, FollowsTheToleranceRuleExactly) {
    // Appends after what is there, never the start point.
    std::vector<vec2> ring{vec2(-5, -5)};
    addQuadAdaptive(ring, vec2(0, 0), vec2(1, 0), vec2(2, 0), 0.0f);
    EXPECT_EQ(ring, (std::vector<vec2>{vec2(-5, -5), vec2(2, 0)}));

    // Deviation (0, 2): squared 4. Equality is flat; just below is not.
    ring.clear();
    addQuadAdaptive(ring, vec2(0, 0), vec2(2, 2), vec2(4, 0), 4.0f);
    EXPECT_EQ(ring, std::vector<vec2>{vec2(4, 0)});
    ring.clear();
    addQuadAdaptive(ring, vec2(0, 0), vec2(2, 2), vec2(4, 0), std::nextafter(4.0f, 0.0f));
    // One split: each half deviates by a quarter (squared 0.25).
    EXPECT_EQ(ring, (std::vector<vec2>{vec2(2, 1), vec2(4, 0)}));

    // Each level divides the squared deviation by 16: 4 / 16^3 < 0.002 needs
    // three levels, 8 segments, in curve order, on the curve.
    ring.clear();
    addQuadAdaptive(ring, vec2(0, 0), vec2(2, 2), vec2(4, 0), 0.002f);
    ASSERT_EQ(ring.size(), 8u);
    for (size_t k = 0; k < ring.size(); ++k) {
        const float t = float(k + 1) / 8.0f;
        const vec2 expected =
            (1 - t) * (1 - t) * vec2(0, 0) + 2 * t * (1 - t) * vec2(2, 2) + t * t * vec2(4, 0);
        EXPECT_NEAR(ring[k].x, expected.x, 1e-6f);
        EXPECT_NEAR(ring[k].y, expected.y, 1e-6f);
    }
}

TEST(QuadFlattening, IsBoundedForToleranceAndPointsThatCannotBeMet) {
    const vec2 p0(0, 0), c(500, 1000), p1(1000, 0);
    for (float tolerance : {0.0f, -1.0f, -std::numeric_limits<float>::infinity()}) {
        std::vector<vec2> ring;
        addQuadAdaptive(ring, p0, c, p1, tolerance);
        EXPECT_EQ(ring.size(), 4096u) << tolerance; // 12 levels, then it stops
        EXPECT_EQ(ring.back(), p1);
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<vec2> ring;
    addQuadAdaptive(ring, p0, c, p1, nan);
    EXPECT_EQ(ring.size(), 1u);
    ring.clear();
    addQuadAdaptive(ring, p0, vec2(nan, 0), p1, 0.1f);
    ASSERT_EQ(ring.size(), 1u);
    EXPECT_EQ(ring[0], p1);
    ring.clear();
    addQuadAdaptive(ring, vec2(inf, 0), c, p1, 0.1f);
    EXPECT_EQ(ring.size(), 1u);
    // Huge but finite coordinates whose square overflows are not refined
    // either.
    ring.clear();
    addQuadAdaptive(ring, p0, vec2(1e30f, 1e30f), p1, 0.1f);
    EXPECT_EQ(ring.size(), 1u);
}

TEST(CubicFlattening, MatchesTheQuadraticItWasRaisedFrom) {
    const vec2 p0(0, 0), q(30, 80), p1(100, 10);
    const vec2 c1 = p0 + (q - p0) * (2.0f / 3.0f);
    const vec2 c2 = p1 + (q - p1) * (2.0f / 3.0f);
    for (float tolerance : {100.0f, 1.0f, 0.01f}) {
        std::vector<vec2> quad, cubic;
        addQuadAdaptive(quad, p0, q, p1, tolerance);
        addCubicAdaptive(cubic, p0, c1, c2, p1, tolerance);
        ASSERT_EQ(quad.size(), cubic.size()) << tolerance;
        for (size_t k = 0; k < quad.size(); ++k) {
            EXPECT_NEAR(quad[k].x, cubic[k].x, 1e-3f);
            EXPECT_NEAR(quad[k].y, cubic[k].y, 1e-3f);
        }
    }
    // An S curve, which no quadratic can stand for, lies on the cubic.
    const vec2 s0(0, 0), s1(0, 100), s2(100, -100), s3(100, 0);
    std::vector<vec2> ring;
    addCubicAdaptive(ring, s0, s1, s2, s3, 0.5f);
    ASSERT_GT(ring.size(), 4u);
    EXPECT_EQ(ring.back(), s3);
    // Splits are at t = 1/2, 1/4, ...: every point is the curve at some
    // j / 4096, and t grows along the ring.
    auto at = [&](float t) {
        const float u = 1 - t;
        return u * u * u * s0 + 3 * u * u * t * s1 + 3 * u * t * t * s2 + t * t * t * s3;
    };
    int previous = 0;
    for (const vec2& p : ring) {
        int found = -1;
        for (int j = previous + 1; j <= 4096 && found < 0; ++j) {
            if (glm::length(at(float(j) / 4096.0f) - p) < 1e-3f) found = j;
        }
        ASSERT_GT(found, previous) << p.x << ", " << p.y;
        previous = found;
    }
    EXPECT_EQ(previous, 4096);
    // A straight cubic is one segment even at tolerance 0; bounds as for
    // quadratics.
    ring.clear();
    addCubicAdaptive(ring, vec2(0, 0), vec2(1, 1), vec2(2, 2), vec2(3, 3), 0.0f);
    EXPECT_EQ(ring.size(), 1u);
    ring.clear();
    addCubicAdaptive(ring, s0, s1, s2, s3, -1.0f);
    EXPECT_EQ(ring.size(), 4096u);
    ring.clear();
    addCubicAdaptive(ring, s0, s1, vec2(std::nanf(""), 0), s3, 0.5f);
    EXPECT_EQ(ring.size(), 1u);
}

TEST(TextBoxes, OneRectanglePerByteWithBlanksKeepingTheirPitch) {
    Rings rings{{vec2(9, 9)}};
    generateTextContoursOnly("a b", 10.0f, 123.0f, rings);
    ASSERT_EQ(rings.size(), 2u);
    EXPECT_EQ(rings[0], (std::vector<vec2>{vec2(0, 0), vec2(6, 0), vec2(6, 10), vec2(0, 10)}));
    EXPECT_EQ(rings[1], (std::vector<vec2>{vec2(16, 0), vec2(22, 0), vec2(22, 10), vec2(16, 10)}));
    EXPECT_GT(signedArea2(rings[0]), 0.0);
    // Every byte of a multi-byte sequence is a box.
    generateTextContoursOnly("\xC3\xA9", 10.0f, 0.0f, rings);
    EXPECT_EQ(rings.size(), 2u);
    generateTextContoursOnly("", 10.0f, 0.0f, rings);
    EXPECT_TRUE(rings.empty());
}

TEST(FontContours, EmptyTextAndUnreadableFonts) {
    Rings rings{{vec2(1, 2), vec2(3, 4), vec2(5, 6)}};
    const Rings before = rings;
    EXPECT_FALSE(GenerateContoursFromFontFile("no/such/font.ttf", "A", 10, 0.01f, rings));
    EXPECT_EQ(rings, before);
    EXPECT_FALSE(GenerateContoursFromFontFile(".", "A", 10, 0.01f, rings)); // a directory
    EXPECT_EQ(rings, before);
    fonttest::ScratchDir dir("korvex-font-empty");
    fonttest::writeFile(dir.file("empty.ttf"), {});
    EXPECT_FALSE(GenerateContoursFromFontFile(dir.file("empty.ttf"), "A", 10, 0.01f, rings));
    EXPECT_EQ(rings, before);
    EXPECT_TRUE(GenerateContoursFromTTF("", 10, 0.01f, rings));
    EXPECT_TRUE(rings.empty());
}

TEST(FontContours, CapitalOHasTwoOpposedClosedRingsInPlace) {
    Rings rings;
    ASSERT_TRUE(GenerateContoursFromTTF("O", 100.0f, 0.01f, rings));
    ASSERT_EQ(rings.size(), 2u);
    for (const auto& r : rings) {
        ASSERT_GE(r.size(), 3u);
        EXPECT_EQ(r.front(), r.back()); // stb_truetype closes every outline
    }
    const double a0 = signedArea2(rings[0]), a1 = signedArea2(rings[1]);
    EXPECT_LT(a0 * a1, 0.0);
    // The outer ring is the larger, positive (y flipped from the font's
    // clockwise outer contours).
    EXPECT_GT(std::max(a0, a1), std::fabs(std::min(a0, a1)));
    // Everything lies between the ascent line (0) and the descent line (100).
    for (const auto& r : rings) {
        for (const vec2& p : r) {
            EXPECT_GE(p.y, 0.0f);
            EXPECT_LE(p.y, 100.0f);
            EXPECT_GE(p.x, 0.0f);
        }
    }
}

TEST(FontContours, ScaleBaselineAndPen) {
    Rings h;
    ASSERT_TRUE(GenerateContoursFromTTF("H", kSpan, 0.5f, h)); // one unit per font unit
    ASSERT_EQ(h.size(), 1u);
    float lo = 1e9f, hi = -1e9f, left = 1e9f, right = -1e9f;
    for (const vec2& p : h[0]) {
        lo = std::min(lo, p.y), hi = std::max(hi, p.y);
        left = std::min(left, p.x), right = std::max(right, p.x);
    }
    EXPECT_FLOAT_EQ(hi, 1901.0f);        // baseline = ascent x scale
    EXPECT_FLOAT_EQ(lo, 1901.0f - 1493); // cap height above it, y down
    EXPECT_FLOAT_EQ(left, 201.0f);
    EXPECT_FLOAT_EQ(right, 1339.0f);

    // A blank adds no ring but its advance; a missing code point adds
    // neither (U+E000 is not in DejaVu Sans), nor does a line feed.
    Rings plain, spaced, missing;
    ASSERT_TRUE(GenerateContoursFromTTF("HH", kSpan, 0.5f, plain));
    ASSERT_TRUE(GenerateContoursFromTTF("H H", kSpan, 0.5f, spaced));
    ASSERT_TRUE(GenerateContoursFromTTF("H\xEE\x80\x80\nH", kSpan, 0.5f, missing));
    ASSERT_EQ(spaced.size(), 2u);
    ASSERT_EQ(missing, plain);
    const float secondPlain = minX({plain[1]});
    EXPECT_FLOAT_EQ(secondPlain, 1540.0f + 201.0f);
    EXPECT_FLOAT_EQ(minX({spaced[1]}) - secondPlain, 651.0f);
}

TEST(FontContours, ReadsTrueTypeQuadraticsFromABuiltFont) {
    fonttest::ScratchDir dir("korvex-font-tt");
    // On (0,0), off (100,200), on (200,0): a line-closed arch.
    const auto path = dir.file("arch.ttf");
    fonttest::writeFile(path, fonttest::trueTypeFont(fonttest::simpleGlyph(
                                  {{0, 0, true}, {100, 200, false}, {200, 0, true}})));
    Rings rings;
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "AA", 1000.0f, 10.0f, rings));
    ASSERT_EQ(rings.size(), 2u);
    // Units: height 1000 over ascent 800 - descent -200: one per font unit.
    // The control deviates (0, -200) from the chord: squared 40000, below 10
    // after three levels (40000 / 16^3 = 9.8), so 8 segments.
    ASSERT_EQ(rings[0].size(), 1u + 8u + 1u);
    EXPECT_EQ(rings[0].front(), vec2(0, 800));
    EXPECT_EQ(rings[0][4], vec2(100, 700)); // the apex, at t = 0.5
    EXPECT_EQ(rings[0][8], vec2(200, 800));
    EXPECT_EQ(rings[0].back(), rings[0].front());
    EXPECT_EQ(rings[1][0], vec2(600, 800)); // advance 600
}

TEST(FontContours, ReadsCffCubicsFromABuiltFont) {
    // A D-like outline: move (100,0), line to (100,700), a cubic back down
    // through controls (400,700) and (400,0).
    fonttest::Bytes program;
    for (int v : {100, 0}) fonttest::pushNumber(program, v);
    program.push_back(21); // rmoveto
    for (int v : {0, 700}) fonttest::pushNumber(program, v);
    program.push_back(5); // rlineto
    for (int v : {300, 0, 0, -700, -300, 0}) fonttest::pushNumber(program, v);
    program.push_back(8);  // rrcurveto
    program.push_back(14); // endchar
    fonttest::ScratchDir dir("korvex-font-cff");
    const auto path = dir.file("d.otf");
    fonttest::writeFile(path, fonttest::cffFont(program));

    Rings coarse, fine;
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "A", 1000.0f, 100.0f, coarse));
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "A", 1000.0f, 0.01f, fine));
    ASSERT_EQ(fine.size(), 1u);
    const std::vector<vec2>& ring = fine[0];
    EXPECT_GT(ring.size(), coarse[0].size());
    EXPECT_EQ(ring[0], vec2(100, 800));
    EXPECT_EQ(ring[1], vec2(100, 100));
    EXPECT_EQ(ring.back(), ring.front());
    // Every flattened point lies on the cubic, at t = k / n.
    const vec2 b0(100, 100), b1(400, 100), b2(400, 800), b3(100, 800);
    const size_t n = ring.size() - 2;
    for (size_t k = 1; k <= n; ++k) {
        const float t = float(k) / float(n), u = 1 - t;
        const vec2 e = u * u * u * b0 + 3 * u * u * t * b1 + 3 * u * t * t * b2 + t * t * t * b3;
        EXPECT_NEAR(ring[k + 1].x, e.x, 1e-2f);
        EXPECT_NEAR(ring[k + 1].y, e.y, 1e-2f);
    }
}

} // namespace

namespace {

// Host threads may read fonts at once: nothing is shared between calls.
TEST(FontContours, ConcurrentCallsAgree) {
    const std::string text = "Quartz glyph jocks vex dwarf: 0123456789";
    Rings expected;
    ASSERT_TRUE(GenerateContoursFromTTF(text, 12.0f, 0.001f, expected));
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < 3; ++k) {
                Rings rings;
                if (!GenerateContoursFromTTF(text, 12.0f, 0.001f, rings) || rings != expected)
                    ++mismatches[size_t(t)];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

} // namespace
