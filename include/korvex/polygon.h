// Tests of points, rectangles and segments against closed planar polygons.
#pragma once

#include <korvex/records.h>
