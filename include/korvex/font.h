// Text geometry, first stage: a UTF-8 string becomes a contour list, a flat
// list of closed 2D rings taken from a font's glyph outlines.
//
// Ring: a std::vector<vec2> read as a closed polygon, whether or not the first
// point is repeated at the end. Contour list: a flat std::vector of rings with
// no outer/hole tag; the rings of one glyph stand together in the font's
// order, glyphs follow in the order of the text. A counter (the hole of an O)
// is just another ring, running against its outer ring.
//
// Coordinates: x grows along the line from the pen origin 0 of the first
// glyph; y grows downward, with y = 0 on the font's ascent line and the
// descent line at y = height. Units are those of `height`.
#pragma once

#include <korvex/records.h>

#include <string>
#include <vector>

// Outlines of `text` (UTF-8) in the font file "../content/Fonts/uk.ttf",
// relative to the current directory, read anew on every call. Returns false
// when the file cannot be read or is not a usable font; `contours` is then
// left as it was. On success `contours` is replaced.
//
// height:    the span from the font's ascent to its descent, in output units.
// tolerance: the flatness limit of curves, a squared distance in output units
//            (see addQuadAdaptive).
//
// A code point the font has no glyph for adds nothing and does not move the
// pen; a glyph without outline (a blank) adds nothing and moves the pen by its
// advance width. Rings of fewer than 3 points are dropped. Rings keep the
// font's direction mirrored by the flip of y and normally end on a repeat of
// their first point.
KORVEX_API bool GenerateContoursFromTTF(const std::string& text, float height, float tolerance,
                                        std::vector<std::vector<vec2>>& contours);

// The same, with the font read from `fontPath`. TrueType (glyf) and CFF
// (.otf) outlines are both accepted. The file is untrusted input: it is
// checked whole before it is parsed (table directory, every table the
// outlines need, character map, glyph programs and composite glyph
// references), and a file whose parsing would read outside it (truncated,
// corrupted in its structure, hostile) returns false.
KORVEX_API bool GenerateContoursFromFontFile(const std::string& fontPath, const std::string& text,
                                             float height, float tolerance,
                                             std::vector<std::vector<vec2>>& contours);

// A font-free stand-in: one rectangle [x0, x0 + 0.6 height] x [0, height] per
// byte of `text` that is not a blank (0x20), with x0 = i * (0.6 height + 2)
// for byte index i, blanks counted. Rings run with positive signed area and
// have no repeated closing point; y is not mirrored. `unused` has no effect.
// `contours` is replaced.
KORVEX_API void generateTextContoursOnly(const std::string& text, float height, float unused,
                                         std::vector<std::vector<vec2>>& contours);

// Decodes UTF-8 leniently, one entry per code point: continuation bytes are
// not checked (their low six bits are taken), overlong forms and surrogates
// pass as computed; a stray continuation byte, a byte 0xF8 or above, or a lead
// byte without enough bytes behind it produces nothing and costs one byte.
KORVEX_API std::vector<unsigned> utf8_to_codepoints(const std::string& text);

// Flattens the quadratic curve p0, control, p1 into `ring`: appends points
// after the ones already there, never p0 (the caller has put it there), and
// ends with p1. The curve counts as flat when `tolerance` >= |control - (p0 +
// p1) / 2|^2 (equality is flat); otherwise it is split at t = 0.5 and both
// halves are flattened in curve order.
//
// A positive tolerance is split as deep as it takes; where rounding stops the
// points from moving, a half that repeats its whole counts as flat (and 64
// levels and 2^20 splits bound it in any case). A zero or negative tolerance
// stops at 12 levels (4096 segments), the finest flattening rather than a
// hang. A NaN tolerance, or a curve whose deviation is not finite (NaN or
// infinite points), is not refined: p1 alone is appended.
KORVEX_API void addQuadAdaptive(std::vector<vec2>& ring, const vec2& p0, const vec2& control,
                                const vec2& p1, float tolerance);

// The cubic counterpart, for CFF outlines: p0, c1, c2, p1. Flat when
// `tolerance` >= the larger of |1.5 (c1 - (2 p0 + p1) / 3)|^2 and
// |1.5 (c2 - (p0 + 2 p1) / 3)|^2, the measure under which a quadratic raised
// to a cubic flattens to the same points as the quadratic. Same splitting and
// appending rules as addQuadAdaptive, but at most 12 levels for any tolerance:
// the rounded thirds need not settle at the resolution of float.
KORVEX_API void addCubicAdaptive(std::vector<vec2>& ring, const vec2& p0, const vec2& c1,
                                 const vec2& c2, const vec2& p1, float tolerance);
