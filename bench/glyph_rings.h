// Benchmark fixture: the cap polygons that extruding a paragraph of real
// text produces (font outlines of DejaVu Sans, through the ring clean-up and
// union), so that the cap triangulator is timed on the rings it meets.
#pragma once

#include <korvex/records.h>

#include <string>
#include <vector>

namespace bench {

// A paragraph of about 1000 characters of running text.
const std::string& sampleParagraph();

// Outer ring first, then its holes, per polygon; empty when the font at
// `fontPath` cannot be read.
std::vector<std::vector<std::vector<vec2>>> glyphCapPolygons(const std::string& fontPath,
                                                             const std::string& text, float height,
                                                             float tolerance);

} // namespace bench
