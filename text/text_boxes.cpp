// The font-free contour generator: one box per byte.
#include <korvex/font.h>

void generateTextContoursOnly(const std::string& text, float height, float /*unused*/,
                              std::vector<std::vector<vec2>>& contours) {
    contours.clear();
    const float width = height * 0.6f;
    const float pitch = width + 2.0f;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ') continue; // a blank keeps its pitch: i counts every byte
        const float x0 = static_cast<float>(i) * pitch;
        const float x1 = x0 + width;
        contours.push_back({vec2(x0, 0.0f), vec2(x1, 0.0f), vec2(x1, height), vec2(x0, height)});
    }
}
