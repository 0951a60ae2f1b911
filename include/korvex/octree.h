// Octree over the triangles of an indexed mesh, and its ray, radius, sphere and plane queries.
#pragma once

#include <korvex/records.h>
