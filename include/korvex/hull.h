// Convex hulls in the plane and of 3D points projected onto a plane.
#pragma once

#include <korvex/records.h>
