// Keeps freed memory in the process heap for the whole benchmark run.
//
// By default glibc serves every block above 32 MB with a fresh mmap and
// returns it on free, so each call that builds a large result touches new
// pages. On the virtual machines the benchmarks run on, a first-touch page
// fault costs about 15-20 us per 4 KB page (a hundred times a bare machine),
// and a 60 MB output list then costs more to fault in than to compute. With
// mmap off and trimming off, blocks are reused from the heap from the second
// iteration on, for the library and for every peer alike, so the figures
// compare the algorithms, as a long-running host with a warm heap sees them.
#include <malloc.h>

namespace {

const bool heapKeptWarm = [] {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 0x7fffffff);
    return true;
}();

} // namespace
