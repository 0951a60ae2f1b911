// Selection of mesh triangles by a polygon on the screen.
#pragma once

#include <korvex/records.h>
