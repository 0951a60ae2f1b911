// Which gizmo handle, cube or ring, lies under a picking ray.
#pragma once

#include <korvex/records.h>
