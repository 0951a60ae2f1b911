// Font outlines: UTF-8 decoding, curve flattening, the font-free boxes, and
// contours from the default font (DejaVu Sans, found from bin/) and from tiny
// built fonts.
#include "font_builder.h"
#include "text_mesh_check.h"

#include <korvex/font.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

namespace {

using Ring = std::vector<vec2>;
using Rings = std::vector<Ring>;

const float kNan = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();
// DejaVu Sans: ascent 1901, descent -483, space advance 651, H spans x 201 to
// 1339 and y 0 to 1493. At this height one output unit is one font unit.
constexpr float kSpan = 1901.0f + 483.0f;

void bounds(const Ring& ring, vec2& lo, vec2& hi) {
    lo = vec2(1e30f), hi = vec2(-1e30f);
    for (const vec2& p : ring) lo = glm::min(lo, p), hi = glm::max(hi, p);
}

TEST(Utf8, DecodesLenientlyByTheLeadByte) {
    const std::pair<std::string, std::vector<unsigned>> cases[] = {
        {"", {}},
        {"Az~", {'A', 'z', '~'}},
        {"\xC3\xA9", {0xE9}}, // each length exactly at the end of the text
        {"\xE2\x82\xAC", {0x20AC}},
        {"\xF0\x9F\x98\x80", {0x1F600}},
        {"\xC3\x41", {0xC1}}, // continuation bytes are not tested
        {"a\xC3", {'a'}},     // cut short: one byte skipped, then the next read as a lead
        {"\xE2\x82", {}},
        {"\xF0\x9F\x98", {}},
        {"\xE2\x41", {'A'}},
        {"\x80\xBF\x62\xF8\xFF\x63", {'b', 'c'}}, // stray continuations, F8 and up: alone
        {"\xC0\x80", {0}},                        // overlong, surrogate, past U+10FFFF: as computed
        {"\xED\xA0\x80", {0xD800}},
        {"\xF7\xBF\xBF\xBF", {0x1FFFFF}},
        {std::string("a\0b", 3), {'a', 0, 'b'}}};
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(utf8_to_codepoints(bytes), expected) << testing::PrintToString(bytes);
}

TEST(QuadFlattening, FollowsTheToleranceRuleAndStaysBounded) {
    const vec2 p0(0, 0), c(2, 2), p1(4, 0); // deviation (0, 2), squared 4
    Ring ring{vec2(-5, -5)};                // appended after, never the start point
    addQuadAdaptive(ring, p0, c, p1, 4.0f); // equality is flat
    EXPECT_EQ(ring, (Ring{vec2(-5, -5), p1}));
    ring.clear();
    addQuadAdaptive(ring, p0, c, p1, std::nextafter(4.0f, 0.0f));
    EXPECT_EQ(ring, (Ring{vec2(2, 1), p1}));
    // 4 / 16^3 < 0.002 needs three levels: 8 segments, in order, on the curve.
    ring.clear();
    addQuadAdaptive(ring, p0, c, p1, 0.002f);
    ASSERT_EQ(ring.size(), 8u);
    for (size_t k = 0; k < 8; ++k) {
        const float t = float(k + 1) / 8.0f;
        const vec2 e = (1 - t) * (1 - t) * p0 + 2 * t * (1 - t) * c + t * t * p1;
        EXPECT_NEAR(glm::distance(ring[k], e), 0.0f, 1e-6f);
    }
    // A positive tolerance is split for as long as it is not met, also past 12 levels, where
    // rounding decides; the points keep to the curve's x order.
    ring.clear();
    addQuadAdaptive(ring, vec2(0, 0), vec2(50, 100), vec2(100, 0), 1e-12f);
    EXPECT_GT(ring.size(), 4096u);
    EXPECT_LE(ring.size(), 65536u);
    EXPECT_EQ(ring.back(), vec2(100, 0));
    EXPECT_TRUE(std::is_sorted(ring.begin(), ring.end(),
                               [](const vec2& a, const vec2& b) { return a.x < b.x; }));
    // Tolerances far below what float can resolve end, for quadratics and cubics, on curves of
    // every scale and on degenerate ones.
    for (float scale : {1e-4f, 1.0f, 1e4f})
        for (float tolerance : {1e-30f, std::numeric_limits<float>::denorm_min()}) {
            const vec2 a(0.37f * scale, -0.81f * scale), b(-0.55f * scale, 0.12f * scale),
                e(0.91f * scale, 0.44f * scale);
            Ring deep;
            addQuadAdaptive(deep, a, b, e, tolerance);
            addQuadAdaptive(deep, a, b, a, tolerance);
            addCubicAdaptive(deep, a, b, e + b, e, tolerance);
            addCubicAdaptive(deep, a, a + vec2(std::numeric_limits<float>::denorm_min()), a, a,
                             tolerance);
            EXPECT_LT(deep.size(), size_t(1) << 21) << scale;
        }
    // A tolerance that cannot be met stops at 12 levels; a curve that cannot be measured, or
    // whose square overflows, stays its chord.
    const struct {
        vec2 p0, c;
        float tolerance;
        size_t size;
    } cases[] = {{p0, vec2(2, 0), 0.0f, 1},
                 {p0, c, 0.0f, 4096},
                 {p0, c, -1.0f, 4096},
                 {p0, c, -kInf, 4096},
                 {p0, c, kNan, 1},
                 {p0, vec2(kNan, 0), 0.1f, 1},
                 {vec2(kInf, 0), c, 0.1f, 1},
                 {p0, vec2(1e30f, 1e30f), 0.1f, 1}};
    for (const auto& q : cases) {
        ring.clear();
        addQuadAdaptive(ring, q.p0, q.c, p1, q.tolerance);
        EXPECT_EQ(ring.size(), q.size) << q.tolerance;
        EXPECT_EQ(ring.back(), p1);
    }
}

TEST(CubicFlattening, MatchesTheQuadraticItWasRaisedFrom) {
    const vec2 p0(0, 0), q(30, 80), p1(100, 10);
    for (float tolerance : {100.0f, 1.0f, 0.01f}) {
        Ring quad, cubic;
        addQuadAdaptive(quad, p0, q, p1, tolerance);
        addCubicAdaptive(cubic, p0, p0 + (q - p0) * (2.0f / 3.0f), p1 + (q - p1) * (2.0f / 3.0f),
                         p1, tolerance);
        ASSERT_EQ(quad.size(), cubic.size()) << tolerance;
        for (size_t k = 0; k < quad.size(); ++k)
            EXPECT_NEAR(glm::distance(quad[k], cubic[k]), 0.0f, 1e-3f);
    }
    // Straight with controls on the thirds: one segment even at tolerance 0.
    // Bounds as for quadratics. (A general cubic: the CFF font below.)
    const struct {
        vec2 c1, c2, p1;
        float tolerance;
        size_t size;
    } cases[] = {{vec2(1, 1), vec2(2, 2), vec2(3, 3), 0.0f, 1},
                 {vec2(0, 100), vec2(100, -100), vec2(100, 0), -1.0f, 4096},
                 {vec2(0, 100), vec2(kNan, 0), vec2(100, 0), 0.5f, 1}};
    for (const auto& c : cases) {
        Ring ring;
        addCubicAdaptive(ring, p0, c.c1, c.c2, c.p1, c.tolerance);
        EXPECT_EQ(ring.size(), c.size);
    }
}

TEST(TextBoxes, OneRectanglePerByteWithBlanksKeepingTheirPitch) {
    Rings rings{{vec2(9, 9)}};
    generateTextContoursOnly("a b", 10.0f, 123.0f, rings);
    EXPECT_EQ(rings, (Rings{{vec2(0, 0), vec2(6, 0), vec2(6, 10), vec2(0, 10)},
                            {vec2(16, 0), vec2(22, 0), vec2(22, 10), vec2(16, 10)}}));
    generateTextContoursOnly("\xC3\xA9", 10.0f, 0.0f, rings); // a box per byte
    EXPECT_EQ(rings.size(), 2u);
    generateTextContoursOnly("", 10.0f, 0.0f, rings);
    EXPECT_TRUE(rings.empty());
}

TEST(FontContours, CapitalOHasTwoOpposedClosedRingsInPlace) {
    Rings rings;
    ASSERT_TRUE(GenerateContoursFromTTF("O", 100.0f, 0.01f, rings));
    ASSERT_EQ(rings.size(), 2u);
    for (const Ring& r : rings) {
        ASSERT_GE(r.size(), 3u);
        EXPECT_EQ(r.front(), r.back()); // every outline closed on its start
        vec2 lo, hi;                    // between the ascent line (0) and the descent line (100)
        bounds(r, lo, hi);
        EXPECT_GE(glm::min(lo.x, lo.y), 0.0f);
        EXPECT_LE(hi.y, 100.0f);
    }
    // Opposed, the outer one (the larger) positive: y flipped from the font's
    // clockwise outer contours.
    const double a0 = textcheck::shoelace(rings[0]), a1 = textcheck::shoelace(rings[1]);
    EXPECT_LT(a0 * a1, 0.0);
    EXPECT_GT(std::max(a0, a1), -std::min(a0, a1));
}

TEST(FontContours, ScaleBaselineAndPen) {
    Rings h;
    ASSERT_TRUE(GenerateContoursFromTTF("H", kSpan, 0.5f, h));
    ASSERT_EQ(h.size(), 1u);
    vec2 lo, hi;
    bounds(h[0], lo, hi);
    EXPECT_EQ(lo, vec2(201.0f, 1901.0f - 1493)); // cap height above the baseline, y down
    EXPECT_EQ(hi, vec2(1339.0f, 1901.0f));       // baseline = ascent x scale
    // A blank adds no ring but its advance; a missing code point (U+E000)
    // adds neither, nor does a line feed. No text: no rings.
    Rings plain, spaced, missing;
    ASSERT_TRUE(GenerateContoursFromTTF("HH", kSpan, 0.5f, plain));
    ASSERT_TRUE(GenerateContoursFromTTF("H H", kSpan, 0.5f, spaced));
    ASSERT_TRUE(GenerateContoursFromTTF("H\xEE\x80\x80\nH", kSpan, 0.5f, missing));
    ASSERT_EQ(spaced.size(), 2u);
    EXPECT_EQ(missing, plain);
    bounds(plain[1], lo, hi);
    EXPECT_EQ(lo.x, 1540.0f + 201.0f);
    vec2 spacedLo;
    bounds(spaced[1], spacedLo, hi);
    EXPECT_EQ(spacedLo.x - lo.x, 651.0f);
    EXPECT_TRUE(GenerateContoursFromTTF("", kSpan, 0.5f, spaced));
    EXPECT_TRUE(spaced.empty());
}

// Tiny fonts at 1000 units from ascent 800 to descent -200: one output unit
// per font unit, y = 800 - font y.
TEST(FontContours, CurvesOfBuiltFontsLieOnTheirCurves) {
    fonttest::ScratchDir dir("korvex-font-built");
    const auto path = dir.file("built.ttf");
    // On (0,0), off (100,200), on (200,0): the deviation, squared 40000,
    // falls below 10 after three levels (40000 / 16^3): 8 segments.
    fonttest::writeFile(path, fonttest::trueTypeFont({fonttest::simpleGlyph(
                                  {{0, 0, true}, {100, 200, false}, {200, 0, true}})}));
    Rings rings;
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "AA", 1000.0f, 10.0f, rings));
    ASSERT_EQ(rings.size(), 2u);
    ASSERT_EQ(rings[0].size(), 10u);        // start, 8 segments, closing line
    EXPECT_EQ(rings[0][4], vec2(100, 700)); // the apex, t = 0.5
    EXPECT_EQ(rings[1][0], vec2(600, 800)); // advance 600

    // CFF: move (100,0), line to (100,700), a cubic back down through
    // (400,700) and (400,0).
    fonttest::Bytes program;
    fonttest::op(program, {100, 0}, 21);
    fonttest::op(program, {0, 700}, 5);
    fonttest::op(program, {300, 0, 0, -700, -300, 0}, 8).push_back(14);
    fonttest::writeFile(path, fonttest::cffFont(program));
    Rings coarse;
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "A", 1000.0f, 100.0f, coarse));
    ASSERT_TRUE(GenerateContoursFromFontFile(path, "A", 1000.0f, 0.01f, rings));
    ASSERT_EQ(rings.size(), 1u);
    const Ring& ring = rings[0];
    EXPECT_GT(ring.size(), coarse[0].size());
    EXPECT_EQ(ring[0], vec2(100, 800));
    EXPECT_EQ(ring[1], vec2(100, 100));
    EXPECT_EQ(ring.back(), ring.front());
    const vec2 b0(100, 100), b1(400, 100), b2(400, 800), b3(100, 800);
    const size_t n = ring.size() - 2;
    for (size_t k = 1; k <= n; ++k) { // the curve at t = k / n
        const float t = float(k) / float(n), u = 1 - t;
        const vec2 e = u * u * u * b0 + 3 * u * u * t * b1 + 3 * u * t * t * b2 + t * t * t * b3;
        EXPECT_NEAR(glm::distance(ring[k + 1], e), 0.0f, 1e-2f);
    }
}

// Host threads may read fonts at once: nothing is shared between calls.
TEST(FontContours, ConcurrentCallsAgree) {
    const std::string text = "Quartz glyph jocks vex dwarf: 0123456789";
    Rings expected;
    ASSERT_TRUE(GenerateContoursFromTTF(text, 12.0f, 0.001f, expected));
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int k = 0; k < 3; ++k) {
                Rings rings;
                if (!GenerateContoursFromTTF(text, 12.0f, 0.001f, rings) || rings != expected)
                    ++mismatches[t];
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

} // namespace
