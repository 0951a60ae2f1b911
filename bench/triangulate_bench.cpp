// The cap triangulator of text solids on four deterministic ring sets.
// Its peer is earcut's JavaScript version, timed by bench/earcut_peer.js on
// the very same rings: set KORVEX_RINGS_JSON to a path and the rings are
// written there (scripts/bench-earcut.sh runs both).
#include "glyph_rings.h"
#include "text/triangulate.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace {

using Polygon = std::vector<std::vector<vec2>>; // outer ring, then holes

struct RingSet {
    std::string name;
    std::vector<Polygon> polygons;
    size_t points = 0;
};

// A rounded closed curve (superellipse with some noise), the kind of ring a
// glyph's flattened outline is made of.
std::vector<vec2> blob(std::mt19937& rng, vec2 centre, vec2 radius, int count, float exponent,
                       bool ccw) {
    std::uniform_real_distribution<float> noise(0.97f, 1.03f);
    std::vector<vec2> ring;
    for (int i = 0; i < count; ++i) {
        const float a = 6.2831853f * float(ccw ? i : count - i) / float(count);
        const float c = std::cos(a), s = std::sin(a);
        const float x = std::copysign(std::pow(std::fabs(c), 2.0f / exponent), c);
        const float y = std::copysign(std::pow(std::fabs(s), 2.0f / exponent), s);
        const float r = noise(rng);
        ring.emplace_back(centre.x + radius.x * r * x, centre.y + radius.y * r * y);
    }
    return ring;
}

void count(RingSet& set) {
    set.points = 0;
    for (const Polygon& p : set.polygons)
        for (const auto& ring : p) set.points += ring.size();
}

// The caps of a paragraph of real text: DejaVu Sans at a height of 100
// with curves flattened to within 0.1 (tolerance 0.01), through the union.
RingSet glyphs() {
    RingSet set{"glyphs", {}, 0};
    set.polygons =
        bench::glyphCapPolygons("../content/Fonts/uk.ttf", bench::sampleParagraph(), 100.0f, 0.01f);
    count(set);
    return set;
}

// 600 glyph-sized polygons of rough outline (about half the vertices
// reflex): an outer ring of 24 to 160 points with none, one or two counters.
RingSet blobs() {
    RingSet set{"blobs", {}, 0};
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> outerCount(24, 160), holeCount(16, 64), holes(0, 5);
    std::uniform_real_distribution<float> exponent(2.0f, 5.0f);
    for (int g = 0; g < 600; ++g) {
        const vec2 centre(float(g % 40) * 12.0f, float(g / 40) * 16.0f);
        Polygon p{blob(rng, centre, vec2(5, 7), outerCount(rng), exponent(rng), true)};
        const int h = holes(rng); // 0-2: none, 3-4: one, 5: two
        if (h >= 3 && h <= 4)
            p.push_back(blob(rng, centre, vec2(2.5f, 3.5f), holeCount(rng), 2.0f, false));
        if (h == 5) {
            p.push_back(
                blob(rng, centre + vec2(0, 3.3f), vec2(2.5f, 2.0f), holeCount(rng), 2.0f, false));
            p.push_back(
                blob(rng, centre - vec2(0, 3.3f), vec2(2.5f, 2.0f), holeCount(rng), 2.0f, false));
        }
        set.polygons.push_back(std::move(p));
    }
    count(set);
    return set;
}

// One long star-shaped ring of 4000 points with 20 holes: the hashed path.
RingSet star() {
    RingSet set{"star", {}, 0};
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> radius(80.0f, 100.0f);
    Polygon p(1);
    for (int i = 0; i < 4000; ++i) {
        const float a = 6.2831853f * float(i) / 4000.0f;
        const float r = radius(rng);
        p[0].emplace_back(r * std::cos(a), r * std::sin(a));
    }
    for (int h = 0; h < 20; ++h) {
        const float a = 6.2831853f * float(h) / 20.0f;
        p.push_back(blob(rng, vec2(50 * std::cos(a), 50 * std::sin(a)), vec2(6, 6), 40, 2, false));
    }
    set.polygons.push_back(std::move(p));
    count(set);
    return set;
}

// A plate of 500 points with 100 small round holes: bridging dominates.
RingSet perforated() {
    RingSet set{"perforated", {}, 0};
    std::mt19937 rng(99);
    Polygon p{blob(rng, vec2(0, 0), vec2(120, 120), 500, 2.0f, true)};
    for (int y = -4; y <= 5; ++y)
        for (int x = -4; x <= 5; ++x)
            p.push_back(
                blob(rng, vec2(float(x) * 16 - 8, float(y) * 16 - 8), vec2(4, 4), 12, 2.0f, false));
    set.polygons.push_back(std::move(p));
    count(set);
    return set;
}

const std::vector<RingSet>& ringSets() {
    static const std::vector<RingSet> sets{glyphs(), blobs(), star(), perforated()};
    return sets;
}

// {"sets":[{"name":..,"polygons":[[[x,y,x,y,..],[hole..]],..]}]}; floats with
// nine digits, so that the peer reads back the same single-precision values.
void exportRings(const char* path) {
    FILE* out = std::fopen(path, "w");
    if (!out) return;
    std::fprintf(out, "{\"sets\":[");
    for (size_t s = 0; s < ringSets().size(); ++s) {
        const RingSet& set = ringSets()[s];
        std::fprintf(out, "%s{\"name\":\"%s\",\"points\":%zu,\"polygons\":[", s ? "," : "",
                     set.name.c_str(), set.points);
        for (size_t k = 0; k < set.polygons.size(); ++k) {
            std::fprintf(out, "%s[", k ? "," : "");
            for (size_t r = 0; r < set.polygons[k].size(); ++r) {
                std::fprintf(out, "%s[", r ? "," : "");
                const auto& ring = set.polygons[k][r];
                for (size_t i = 0; i < ring.size(); ++i)
                    std::fprintf(out, "%s%.9g,%.9g", i ? "," : "", ring[i].x, ring[i].y);
                std::fprintf(out, "]");
            }
            std::fprintf(out, "]");
        }
        std::fprintf(out, "]}");
    }
    std::fprintf(out, "]}\n");
    std::fclose(out);
}

void BM_TriangulateCaps(benchmark::State& state) {
    static const bool exported = [] {
        if (const char* path = std::getenv("KORVEX_RINGS_JSON")) exportRings(path);
        return true;
    }();
    (void)exported;
    const RingSet& set = ringSets()[size_t(state.range(0))];
    std::vector<uint32_t> triangles;
    size_t made = 0;
    for (auto _ : state) {
        made = 0;
        for (const Polygon& p : set.polygons) {
            textgeom::triangulateRings(p, triangles);
            made += triangles.size() / 3;
        }
        benchmark::DoNotOptimize(triangles.data());
    }
    state.SetLabel(set.name);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(set.points));
    state.counters["points"] = double(set.points);
    state.counters["triangles"] = double(made);
}
BENCHMARK(BM_TriangulateCaps)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

} // namespace
