#include "mesh/result_line.h"

#include <cstdint>
#include <iostream>
#include <string>

namespace meshutils::detail {

void writeResultLine(const char* tag, size_t vertices, size_t triangles) {
    // Built as text first and written unformatted, so a host that left
    // std::hex or a field width on std::cout still gets plain decimals.
    std::string line(tag);
    line += " Result: ";
    line += std::to_string(static_cast<uint64_t>(vertices));
    line += " verts, ";
    line += std::to_string(static_cast<uint64_t>(triangles));
    line += " triangles\n";
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
}

} // namespace meshutils::detail
