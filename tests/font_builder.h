// Test helpers that build, read and alter sfnt font files byte by byte: tiny
// TrueType and CFF fonts with chosen glyphs, and surgical damage to a real
// font with its checksum set right again, so that the structural checks are
// what refuses it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

namespace fonttest {

using Bytes = std::vector<uint8_t>;

inline uint16_t get16(const Bytes& b, size_t o) {
    return uint16_t(b[o] << 8 | b[o + 1]);
}
inline uint32_t get32(const Bytes& b, size_t o) {
    return uint32_t(b[o]) << 24 | uint32_t(b[o + 1]) << 16 | uint32_t(b[o + 2]) << 8 | b[o + 3];
}
inline void set16(Bytes& b, size_t o, uint16_t v) {
    b[o] = uint8_t(v >> 8);
    b[o + 1] = uint8_t(v);
}
inline void set32(Bytes& b, size_t o, uint32_t v) {
    set16(b, o, uint16_t(v >> 16));
    set16(b, o + 2, uint16_t(v));
}
inline void push16(Bytes& b, uint16_t v) {
    b.push_back(uint8_t(v >> 8));
    b.push_back(uint8_t(v));
}
inline void push32(Bytes& b, uint32_t v) {
    push16(b, uint16_t(v >> 16));
    push16(b, uint16_t(v));
}

struct TableEntry {
    std::string tag;
    size_t directoryEntry = 0; // offset of the entry in the table directory
    uint32_t offset = 0;
    uint32_t length = 0;
};

inline std::vector<TableEntry> tableDirectory(const Bytes& font) {
    std::vector<TableEntry> tables;
    const uint16_t count = font.size() >= 12 ? get16(font, 4) : 0;
    for (uint16_t i = 0; i < count && 12 + 16 * size_t(i) + 16 <= font.size(); ++i) {
        const size_t entry = 12 + 16 * size_t(i);
        tables.push_back({std::string(font.begin() + long(entry), font.begin() + long(entry) + 4),
                          entry, get32(font, entry + 8), get32(font, entry + 12)});
    }
    return tables;
}

inline TableEntry findTable(const Bytes& font, const std::string& tag) {
    for (const TableEntry& t : tableDirectory(font))
        if (t.tag == tag) return t;
    return {};
}

inline uint32_t wordSum(const Bytes& b, size_t from, size_t length) {
    uint32_t sum = 0;
    for (size_t i = 0; i < length; i += 4) {
        uint32_t word = 0;
        for (size_t k = 0; k < 4; ++k) word = word << 8 | (i + k < length ? b[from + i + k] : 0u);
        sum += word;
    }
    return sum;
}

// Sets head.checkSumAdjustment so that the whole file sums to 0xB1B0AFBA.
inline void fixChecksum(Bytes& font) {
    const TableEntry head = findTable(font, "head");
    if (head.tag.empty() || head.offset + 12 > font.size()) return;
    set32(font, head.offset + 8, 0);
    set32(font, head.offset + 8, 0xB1B0AFBAu - wordSum(font, 0, font.size()));
}

// A font file of these tables, in tag order, 4-byte aligned, with table
// checksums and the whole-file checksum set.
inline Bytes buildFont(uint32_t version, const std::map<std::string, Bytes>& tables) {
    Bytes font;
    push32(font, version);
    push16(font, uint16_t(tables.size()));
    push16(font, 0);
    push16(font, 0);
    push16(font, 0);
    size_t offset = 12 + 16 * tables.size();
    for (const auto& [tag, data] : tables) {
        for (char c : tag) font.push_back(uint8_t(c));
        push32(font, wordSum(data, 0, data.size()));
        push32(font, uint32_t(offset));
        push32(font, uint32_t(data.size()));
        offset += (data.size() + 3) & ~size_t(3);
    }
    for (const auto& entry : tables) {
        font.insert(font.end(), entry.second.begin(), entry.second.end());
        while (font.size() % 4) font.push_back(0);
    }
    if (tables.count("head")) fixChecksum(font);
    return font;
}

// The tables every tiny test font shares: glyph 1 is mapped from 'A', glyph 0
// is .notdef. Ascent 800, descent -200, advances 500 and 600.
inline std::map<std::string, Bytes> commonTables(uint16_t numGlyphs = 2) {
    Bytes head(54, 0);
    set32(head, 0, 0x00010000);
    set32(head, 12, 0x5F0F3CF5);
    set16(head, 18, 1000); // units per em
    set16(head, 50, 0);    // short loca offsets
    Bytes hhea(36, 0);
    set32(hhea, 0, 0x00010000);
    set16(hhea, 4, 800);
    set16(hhea, 6, uint16_t(-200));
    set16(hhea, 34, 2);
    Bytes maxp(6, 0);
    set32(maxp, 0, 0x00005000);
    set16(maxp, 4, numGlyphs);
    Bytes hmtx;
    push16(hmtx, 500);
    push16(hmtx, 0);
    push16(hmtx, 600);
    push16(hmtx, 0);
    for (uint16_t g = 2; g < numGlyphs; ++g) push16(hmtx, 0);
    // cmap: one Windows Unicode record, format 4 with 'A' -> 1 and the end
    // segment.
    Bytes cmap;
    push16(cmap, 0);
    push16(cmap, 1);
    push16(cmap, 3);
    push16(cmap, 1);
    push32(cmap, 12);
    push16(cmap, 4);  // format
    push16(cmap, 32); // length
    push16(cmap, 0);  // language
    push16(cmap, 4);  // 2 x segments
    push16(cmap, 4);  // search range
    push16(cmap, 1);  // entry selector
    push16(cmap, 0);  // range shift
    push16(cmap, 'A');
    push16(cmap, 0xFFFF);
    push16(cmap, 0);
    push16(cmap, 'A');
    push16(cmap, 0xFFFF);
    push16(cmap, uint16_t(1 - 'A'));
    push16(cmap, 1);
    push16(cmap, 0);
    push16(cmap, 0);
    return {{"head", head}, {"hhea", hhea}, {"maxp", maxp}, {"hmtx", hmtx}, {"cmap", cmap}};
}

// A TrueType font whose glyphs 1, 2, ... are `glyphs` (raw glyf bytes);
// glyph 0 is empty and 'A' maps to glyph 1.
inline Bytes trueTypeFont(const std::vector<Bytes>& glyphs) {
    auto tables = commonTables(uint16_t(glyphs.size() + 1));
    Bytes glyf, loca;
    push16(loca, 0);
    for (const Bytes& g : glyphs) {
        push16(loca, uint16_t(glyf.size() / 2));
        glyf.insert(glyf.end(), g.begin(), g.end());
        while (glyf.size() % 2) glyf.push_back(0);
    }
    push16(loca, uint16_t(glyf.size() / 2));
    tables["glyf"] = glyf;
    tables["loca"] = loca;
    return buildFont(0x00010000, tables);
}
inline Bytes trueTypeFont(const Bytes& glyph) {
    return trueTypeFont(std::vector<Bytes>{glyph});
}

// A simple glyph of one contour; `points` are absolute (x, y, onCurve).
struct Point {
    int x, y;
    bool on;
};
inline Bytes simpleGlyph(const std::vector<Point>& points) {
    Bytes g;
    push16(g, 1);
    for (int i = 0; i < 4; ++i) push16(g, 0); // bounding box, unread
    push16(g, uint16_t(points.size() - 1));
    push16(g, 0); // no instructions
    for (const Point& p : points) g.push_back(p.on ? 1 : 0);
    int last = 0;
    for (const Point& p : points) push16(g, uint16_t(p.x - last)), last = p.x;
    last = 0;
    for (const Point& p : points) push16(g, uint16_t(p.y - last)), last = p.y;
    return g;
}

// A composite glyph: each part is placed by an offset and, when `scale` is
// not 1, scaled uniformly (F2Dot14).
struct Part {
    uint16_t glyph;
    int dx, dy;
    float scale = 1.0f;
};
inline Bytes compositeGlyph(const std::vector<Part>& parts) {
    Bytes g;
    push16(g, 0xFFFF); // -1 contours
    for (int i = 0; i < 4; ++i) push16(g, 0);
    for (size_t i = 0; i < parts.size(); ++i) {
        const Part& p = parts[i];
        uint16_t flags = 1 | 2; // word arguments, x/y offsets
        if (p.scale != 1.0f) flags |= 8;
        if (i + 1 < parts.size()) flags |= 32;
        push16(g, flags);
        push16(g, p.glyph);
        push16(g, uint16_t(int16_t(p.dx)));
        push16(g, uint16_t(int16_t(p.dy)));
        if (p.scale != 1.0f) push16(g, uint16_t(int16_t(p.scale * 16384.0f)));
    }
    return g;
}

// Type 2 charstring numbers, all in the 3-byte form.
inline void pushNumber(Bytes& program, int v) {
    program.push_back(28);
    push16(program, uint16_t(int16_t(v)));
}

// A CFF ("OTTO") font whose glyph 1 ('A') runs `program`; glyph 0 is endchar.
// `globalSubrs` are called with their number minus 107 (the bias of small
// sets).
inline Bytes cffFont(const Bytes& program, const std::vector<Bytes>& globalSubrs = {}) {
    Bytes cff = {1, 0, 4, 1};                                          // header
    for (int b : {0, 1, 1, 1, 2, int('T')}) cff.push_back(uint8_t(b)); // name INDEX
    const size_t topDict = cff.size();
    for (uint8_t b : {0, 1, 1, 1, 7}) cff.push_back(b); // top dict INDEX, one 6-byte dict
    cff.push_back(29);
    push32(cff, 0); // CharStrings offset, set below
    cff.push_back(17);
    push16(cff, 0); // string INDEX
    push16(cff, uint16_t(globalSubrs.size()));
    if (!globalSubrs.empty()) {
        cff.push_back(2);
        uint16_t offset = 1;
        push16(cff, offset);
        for (const Bytes& subr : globalSubrs) push16(cff, offset = uint16_t(offset + subr.size()));
        for (const Bytes& subr : globalSubrs) cff.insert(cff.end(), subr.begin(), subr.end());
    }
    set32(cff, topDict + 6, uint32_t(cff.size()));
    push16(cff, 2);
    cff.push_back(1);
    cff.push_back(1);
    cff.push_back(2);
    cff.push_back(uint8_t(2 + program.size()));
    cff.push_back(14); // .notdef: endchar
    cff.insert(cff.end(), program.begin(), program.end());
    auto tables = commonTables();
    tables["CFF "] = cff;
    return buildFont(0x4F54544F, tables);
}

inline Bytes readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// A scratch directory for one test, removed with the object.
struct ScratchDir {
    std::filesystem::path path;
    explicit ScratchDir(const std::string& name)
        : path(std::filesystem::temp_directory_path() / (name + "-" + std::to_string(::getpid()))) {
        std::filesystem::create_directories(path);
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path file(const std::string& name) const { return path / name; }
};

} // namespace fonttest
