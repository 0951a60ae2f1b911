// A tiny sfnt writer and byte helpers for the font tests: small TrueType and
// CFF fonts with chosen glyphs, and the whole-file checksum set right again
// after damage, so that only the structural checks can refuse a file.
#pragma once

#include <algorithm>
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

// Big-endian reads and writes of n bytes at offset o.
inline uint32_t getN(const Bytes& b, size_t o, int n) {
    uint32_t v = 0;
    for (int k = 0; k < n; ++k) v = v << 8 | b[o + size_t(k)];
    return v;
}
inline void setN(Bytes& b, size_t o, uint32_t v, int n) {
    for (int k = n - 1; k >= 0; --k, v >>= 8) b[o + size_t(k)] = uint8_t(v);
}
inline const auto get16 = [](const Bytes& b, size_t o) { return uint16_t(getN(b, o, 2)); };
inline const auto get32 = [](const Bytes& b, size_t o) { return getN(b, o, 4); };
inline const auto set16 = [](Bytes& b, size_t o, uint32_t v) { setN(b, o, v, 2); };
inline const auto set32 = [](Bytes& b, size_t o, uint32_t v) { setN(b, o, v, 4); };
inline void put16(Bytes& b, std::initializer_list<int> values) {
    for (int v : values) b.push_back(uint8_t(unsigned(v) >> 8)), b.push_back(uint8_t(v));
}
inline const auto put32 = [](Bytes& b, uint32_t v) { put16(b, {int(v >> 16), int(v & 0xFFFF)}); };

struct TableEntry {
    std::string tag;
    size_t directoryEntry = 0; // where the entry sits in the table directory
    uint32_t offset = 0, length = 0;
};

inline std::vector<TableEntry> tableDirectory(const Bytes& font) {
    std::vector<TableEntry> tables;
    const size_t end =
        font.size() < 12 ? 0 : std::min(font.size(), 12 + 16 * size_t(get16(font, 4)));
    for (size_t e = 12; e + 16 <= end; e += 16)
        tables.push_back({std::string(font.begin() + long(e), font.begin() + long(e) + 4), e,
                          get32(font, e + 8), get32(font, e + 12)});
    return tables;
}

inline TableEntry findTable(const Bytes& font, const std::string& tag) {
    for (const TableEntry& t : tableDirectory(font))
        if (t.tag == tag) return t;
    return {};
}

inline uint32_t wordSum(const Bytes& b) {
    uint32_t sum = 0;
    for (size_t i = 0; i < b.size(); ++i) sum += uint32_t(b[i]) << (24 - 8 * (i % 4));
    return sum;
}

// Sets head.checkSumAdjustment so that the whole file sums to 0xB1B0AFBA.
inline void fixChecksum(Bytes& font) {
    const TableEntry head = findTable(font, "head");
    if (head.tag.empty() || head.offset + 12 > font.size()) return;
    set32(font, head.offset + 8, 0);
    set32(font, head.offset + 8, 0xB1B0AFBAu - wordSum(font));
}

inline Bytes buildFont(uint32_t version, const std::map<std::string, Bytes>& tables) {
    Bytes font;
    put32(font, version);
    put16(font, {int(tables.size()), 0, 0, 0});
    size_t offset = 12 + 16 * tables.size();
    for (const auto& [tag, data] : tables) {
        font.insert(font.end(), tag.begin(), tag.end());
        put32(font, wordSum(data));
        put32(font, uint32_t(offset));
        put32(font, uint32_t(data.size()));
        offset += (data.size() + 3) & ~size_t(3);
    }
    for (const auto& entry : tables) {
        font.insert(font.end(), entry.second.begin(), entry.second.end());
        font.resize((font.size() + 3) & ~size_t(3));
    }
    fixChecksum(font);
    return font;
}

// Tables shared by the tiny fonts: 1000 units per em, ascent 800, descent
// -200, advances 500 (glyph 0) and 600 (the rest), 'A' mapped to glyph 1.
inline std::map<std::string, Bytes> commonTables(int numGlyphs = 2) {
    Bytes head(54, 0), hhea(36, 0), maxp(6, 0), hmtx, cmap;
    set32(head, 0, 0x10000), set32(head, 12, 0x5F0F3CF5), set16(head, 18, 1000);
    set32(hhea, 0, 0x10000), set16(hhea, 4, 800), set16(hhea, 6, uint16_t(-200));
    set16(hhea, 34, 2);
    set32(maxp, 0, 0x5000), set16(maxp, 4, uint16_t(numGlyphs));
    put16(hmtx, {500, 0, 600, 0});
    hmtx.resize(8 + 2 * size_t(numGlyphs - 2));
    // One (3, 1) record, format 4: the segment 'A' -> 1 and the closing one.
    put16(cmap,
          {0, 1, 3, 1, 0, 12, 4, 32, 0, 4, 4, 1, 0, 'A', 0xFFFF, 0, 'A', 0xFFFF, 1 - 'A', 1, 0, 0});
    return {{"head", head}, {"hhea", hhea}, {"maxp", maxp}, {"hmtx", hmtx}, {"cmap", cmap}};
}

// A TrueType font whose glyphs 1, 2, ... are `glyphs` (raw glyf entries).
inline Bytes trueTypeFont(const std::vector<Bytes>& glyphs) {
    auto tables = commonTables(int(glyphs.size()) + 1);
    Bytes& glyf = tables["glyf"];
    Bytes& loca = tables["loca"];
    put16(loca, {0, 0}); // glyph 0 is empty
    for (const Bytes& g : glyphs) {
        glyf.insert(glyf.end(), g.begin(), g.end());
        glyf.resize((glyf.size() + 1) & ~size_t(1));
        put16(loca, {int(glyf.size() / 2)});
    }
    return buildFont(0x00010000, tables);
}

struct Point {
    int x, y;
    bool on;
};
// One contour of absolute points; no instructions.
inline Bytes simpleGlyph(const std::vector<Point>& points) {
    Bytes g;
    put16(g, {1, 0, 0, 0, 0, int(points.size()) - 1, 0});
    for (const Point& p : points) g.push_back(p.on ? 1 : 0);
    int last = 0;
    for (const Point& p : points) put16(g, {p.x - last}), last = p.x;
    last = 0;
    for (const Point& p : points) put16(g, {p.y - last}), last = p.y;
    return g;
}

struct Part {
    int glyph, dx, dy;
    float scale = 1.0f;
};
inline Bytes compositeGlyph(const std::vector<Part>& parts) {
    Bytes g;
    put16(g, {-1, 0, 0, 0, 0});
    for (size_t i = 0; i < parts.size(); ++i) {
        const Part& p = parts[i];
        // Word x/y offsets; a uniform scale; more parts follow.
        const int flags = 3 | (p.scale != 1.0f ? 8 : 0) | (i + 1 < parts.size() ? 32 : 0);
        put16(g, {flags, p.glyph, p.dx, p.dy});
        if (p.scale != 1.0f) put16(g, {int(p.scale * 16384.0f)});
    }
    return g;
}

// Type 2 charstring: `times` over, the numbers in their 3-byte form, then
// the operator.
inline Bytes& op(Bytes& program, const std::vector<int>& numbers, uint8_t code, int times = 1) {
    for (int k = 0; k < times; ++k) {
        for (int v : numbers) program.push_back(28), put16(program, {v});
        program.push_back(code);
    }
    return program;
}

// A CFF font whose glyph 1 ('A') runs `program`; glyph 0 is endchar. Global
// subroutine k is called with k - 107.
inline Bytes cffFont(const Bytes& program, const std::vector<Bytes>& globalSubrs = {}) {
    // Header, name INDEX ("T"), top dict INDEX (CharStrings offset), string INDEX.
    Bytes cff = {1, 0, 4, 1, 0, 1, 1, 1, 2, 'T', 0, 1, 1, 1, 7, 29, 0, 0, 0, 0, 17, 0, 0};
    put16(cff, {int(globalSubrs.size())});
    if (!globalSubrs.empty()) {
        cff.push_back(2);
        int offset = 1;
        put16(cff, {offset});
        for (const Bytes& subr : globalSubrs) put16(cff, {offset += int(subr.size())});
        for (const Bytes& subr : globalSubrs) cff.insert(cff.end(), subr.begin(), subr.end());
    }
    set32(cff, 16, uint32_t(cff.size()));
    put16(cff, {2});
    cff.insert(cff.end(), {1, 1, 2, uint8_t(2 + program.size()), 14});
    cff.insert(cff.end(), program.begin(), program.end());
    auto tables = commonTables();
    tables["CFF "] = cff;
    return buildFont(0x4F54544F, tables);
}

inline Bytes readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// A scratch directory, removed with the object.
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
