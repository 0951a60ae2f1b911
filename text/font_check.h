// Checks a font file before stb_truetype sees it. stb_truetype follows the
// offsets of a file without bounds checks, so every structure it will read is
// walked here first, the way it will read it, against the real lengths.
// Internal to the library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace textgeom {

// The largest font file accepted (stb_truetype's offsets are ints).
constexpr size_t kMaxFontFileSize = size_t(1) << 28;

struct FontCheck {
    bool usable = false;
    // Where the CFF table lies (both 0 for TrueType outlines). stb_truetype
    // takes a CFF table to be 512 MiB long; the reader cuts its view back to
    // this length after stbtt_InitFont.
    uint32_t cffOffset = 0;
    uint32_t cffLength = 0;
};

// True (`usable`) when `data` holds one font (TrueType 1.0, "true" or "OTTO";
// no collections) whose table directory, head, hhea, maxp, hmtx, cmap (the
// subtable stb_truetype picks),
// loca and every glyf glyph (contours, flags, coordinates, composite
// references without cycles, a depth of at most 16 and coordinates that stay
// in 16 bits), or the CFF header, INDEXes, dictionaries, private dictionaries
// and FDSelect, lie inside their tables and the file. Ascent must differ from
// descent, which the scale divides by. Damage that keeps every read inside
// the file (a wrong checksum, a changed coordinate) is not looked for.
FontCheck checkFontData(const unsigned char* data, size_t size);

// The CFF table of `length` bytes at `table`, for a font of `numGlyphs`
// glyphs: header, INDEXes, top, private and font dictionaries, FDSelect, and
// a dry run of every glyph program (steps bounded, coordinates in range).
bool checkCffTable(const unsigned char* table, uint64_t length, uint32_t numGlyphs);

} // namespace textgeom
