// Text geometry: font outlines, ring clean-up and union, extrusion, carving, engraving.
#pragma once

#include <korvex/records.h>
#include <korvex/font.h>
#include <korvex/extrude.h>
#include <korvex/carve.h>
