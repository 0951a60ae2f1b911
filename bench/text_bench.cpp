// A paragraph of text from string to extruded mesh: the font stage alone and
// the whole road (outlines, union, caps and walls), in characters per second.
// Runs from bin/ of the bench build, where ../content/Fonts/uk.ttf is the
// copied default font.
#include <korvex/text.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

// 1000 characters of ordinary prose: letters, blanks, punctuation, digits.
std::string paragraph() {
    const std::string prose =
        "The quick brown fox jumps over the lazy dog, then naps until 9:45. "
        "Sphinx of black quartz, judge my vow! Pack my box with five dozen liquor jugs; "
        "how vexingly quick daft zebras jump (37 of them, at least). ";
    std::string text;
    while (text.size() < 1000) text += prose;
    text.resize(1000);
    return text;
}

constexpr float kHeight = 10.0f;
constexpr float kTolerance = 0.0001f;

void BM_TextParagraphOutlines(benchmark::State& state) {
    const std::string text = paragraph();
    std::vector<std::vector<vec2>> contours;
    for (auto _ : state) {
        if (!GenerateContoursFromTTF(text, kHeight, kTolerance, contours)) {
            state.SkipWithError("default font not found at ../content/Fonts/uk.ttf");
            return;
        }
        benchmark::DoNotOptimize(contours.data());
    }
    state.counters["rings"] = static_cast<double>(contours.size());
    state.counters["chars/s"] = benchmark::Counter(
        static_cast<double>(text.size() * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TextParagraphOutlines)->Unit(benchmark::kMillisecond);

void BM_TextParagraphToMesh(benchmark::State& state) {
    const std::string text = paragraph();
    const std::function<float(float, float)> flat = [](float, float) { return 0.0f; };
    size_t triangles = 0;
    for (auto _ : state) {
        std::vector<std::vector<vec2>> contours;
        if (!GenerateContoursFromTTF(text, kHeight, kTolerance, contours)) {
            state.SkipWithError("default font not found at ../content/Fonts/uk.ttf");
            return;
        }
        std::vector<kvx::nsVertex> vertices;
        std::vector<unsigned> indices;
        extrudeWithContours(contours, 2.0f, 0.0f, 0.0f, vertices, indices, flat);
        alignTextBottomCenter(vertices);
        triangles = indices.size() / 3;
        benchmark::DoNotOptimize(vertices.data());
    }
    state.counters["triangles"] = static_cast<double>(triangles);
    state.counters["chars/s"] = benchmark::Counter(
        static_cast<double>(text.size() * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TextParagraphToMesh)->Unit(benchmark::kMillisecond);

} // namespace
