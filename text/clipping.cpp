#include "text/clipping.h"

#include <cmath>
#include <exception>

namespace textgeom {

namespace {

bool inRange(const Paths64& paths) {
    for (const Path64& path : paths)
        for (const Point64& p : path)
            if (p.X < -kMaxCoord || p.X > kMaxCoord || p.Y < -kMaxCoord || p.Y > kMaxCoord)
                return false;
    return true;
}

// The settings every run uses: collinear points kept, the solution in its
// natural orientation (outer rings positive).
void configure(ClipperLib::Clipper& clipper) {
    clipper.PreserveCollinear(true);
    clipper.ReverseSolution(false);
    clipper.StrictlySimple(false);
}

} // namespace

int64_t roundToCoord(double v) {
    // The bound is checked on the double, before any conversion can overflow.
    if (!(std::fabs(v) <= static_cast<double>(kMaxCoord))) return kNoCoord;
    return std::llround(v);
}

int64_t truncateToCoord(float v) {
    if (!(std::fabs(v) <= static_cast<float>(kMaxCoord))) return kNoCoord;
    return static_cast<int64_t>(v);
}

bool unionEvenOdd(const Paths64& subjects, PolyTree64& tree) {
    tree.Clear();
    if (!inRange(subjects)) return false;
    try {
        ClipperLib::Clipper clipper;
        configure(clipper);
        clipper.AddPaths(subjects, ClipperLib::ptSubject, true);
        if (clipper.Execute(ClipperLib::ctUnion, tree, ClipperLib::pftEvenOdd,
                            ClipperLib::pftEvenOdd))
            return true;
    } catch (const std::exception&) {
        // The clipper reports bad input by throwing; that is a failed run.
    }
    tree.Clear();
    return false;
}

Paths64 differencePaths(const Paths64& subject, const Paths64& clip) {
    Paths64 solution;
    if (!inRange(subject) || !inRange(clip)) return solution;
    try {
        ClipperLib::Clipper clipper;
        configure(clipper);
        clipper.AddPaths(subject, ClipperLib::ptSubject, true);
        clipper.AddPaths(clip, ClipperLib::ptClip, true);
        if (clipper.Execute(ClipperLib::ctDifference, solution, ClipperLib::pftNonZero,
                            ClipperLib::pftNonZero))
            return solution;
    } catch (const std::exception&) {
    }
    return Paths64();
}

int nodeLevel(const PolyPath64& node) {
    int level = 0;
    for (const PolyPath64* p = node.Parent; p; p = p->Parent) ++level;
    return level;
}

} // namespace textgeom
