// Bounding volume hierarchy over free-standing triangles, with ray traversal.
#pragma once

#include <korvex/records.h>
