// Lenient UTF-8 decoding for text outlines.
#include <korvex/font.h>

std::vector<unsigned> utf8_to_codepoints(const std::string& text) {
    std::vector<unsigned> codepoints;
    codepoints.reserve(text.size());
    const size_t n = text.size();
    auto byte = [&](size_t i) {
        return static_cast<unsigned>(static_cast<unsigned char>(text[i]));
    };
    size_t i = 0;
    while (i < n) {
        const unsigned b0 = byte(i);
        // Continuation bytes are taken as they come: only the lead byte and the
        // count of bytes left decide how much is consumed.
        if (b0 < 0x80) {
            codepoints.push_back(b0);
            i += 1;
        } else if ((b0 & 0xE0) == 0xC0 && i + 1 < n) {
            codepoints.push_back(((b0 & 0x1F) << 6) | (byte(i + 1) & 0x3F));
            i += 2;
        } else if ((b0 & 0xF0) == 0xE0 && i + 2 < n) {
            codepoints.push_back(((b0 & 0x0F) << 12) | ((byte(i + 1) & 0x3F) << 6) |
                                 (byte(i + 2) & 0x3F));
            i += 3;
        } else if ((b0 & 0xF8) == 0xF0 && i + 3 < n) {
            codepoints.push_back(((b0 & 0x07) << 18) | ((byte(i + 1) & 0x3F) << 12) |
                                 ((byte(i + 2) & 0x3F) << 6) | (byte(i + 3) & 0x3F));
            i += 4;
        } else {
            i += 1; // stray continuation, 0xF8 and above, or a truncated sequence
        }
    }
    return codepoints;
}
