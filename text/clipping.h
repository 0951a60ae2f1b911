// The one place where the text stages meet the polygon clipper. The clipper
// works on 64-bit integer points; these names follow its newer API so that
// the engine behind them can change here alone. Internal to the library.
#pragma once

#include <polyclipping/clipper.hpp>

#include <cstdint>

namespace textgeom {

using Point64 = ClipperLib::IntPoint;
using Path64 = ClipperLib::Path;
using Paths64 = ClipperLib::Paths;
using PolyTree64 = ClipperLib::PolyTree; // the root: holds no path itself
using PolyPath64 = ClipperLib::PolyNode;

// Largest magnitude of an integer coordinate the clipper is given: products
// of two coordinates and their sums must stay exact inside it.
constexpr int64_t kMaxCoord = INT64_MAX >> 2;
// Stands for a coordinate that has no integer form (not finite, or beyond
// kMaxCoord); any path holding it makes the clipping run fail.
constexpr int64_t kNoCoord = INT64_MIN;

// llround(v), or kNoCoord when v is not finite or too large.
int64_t roundToCoord(double v);
// v truncated toward zero, or kNoCoord when v is not finite or too large.
int64_t truncateToCoord(float v);

// Union of closed `subjects` under the even-odd rule into `tree` (cleared
// first). False, with `tree` left empty, when the run fails: a coordinate out
// of range, or the clipper raising an error.
bool unionEvenOdd(const Paths64& subjects, PolyTree64& tree);

// `subject` minus `clip`, both closed, under the non-zero rule. Outer rings
// come out with positive area, holes with negative. Empty when the run fails.
Paths64 differencePaths(const Paths64& subject, const Paths64& clip);

// Number of ancestors of a node: 0 for the root, 1 for top-level outer rings,
// 2 for their holes, and so on.
int nodeLevel(const PolyPath64& node);

} // namespace textgeom
