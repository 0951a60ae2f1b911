// Mesh processing: grid simplification, midpoint subdivision, non-manifold edges.
#pragma once

#include <korvex/records.h>
