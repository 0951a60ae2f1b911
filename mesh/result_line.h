// The one line that each mesh operation writes to standard output.
#pragma once

#include <cstddef>

namespace meshutils::detail {

// Writes "<tag> Result: V verts, T triangles\n" to std::cout, the numbers as
// unsigned decimals whatever format flags the host has set on the stream, and
// without a flush.
void writeResultLine(const char* tag, size_t vertices, size_t triangles);

} // namespace meshutils::detail
