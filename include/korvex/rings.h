// Rays against flat rings: circle, ring, arc and the flat torus of rotation handles.
#pragma once

#include <korvex/records.h>
