// Everything a host needs: every public header of the library and the
// declarations of the engine core it imports.
#pragma once

#include <halvane.h>

#include <korvex/records.h>
#include <korvex/hasher.h>
#include <korvex/plane.h>
#include <korvex/ray.h>
#include <korvex/rings.h>
#include <korvex/gizmo.h>
#include <korvex/camera.h>
#include <korvex/bvh.h>
#include <korvex/octree.h>
#include <korvex/polygon.h>
#include <korvex/selection.h>
#include <korvex/loops.h>
#include <korvex/hull.h>
#include <korvex/mesh.h>
#include <korvex/font.h>
#include <korvex/text.h>
#include <korvex/extrude.h>
#include <korvex/carve.h>
