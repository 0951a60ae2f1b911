// Edge sets walked into loops; loop resampling, thinning and ear-clipping triangulation.
#pragma once

#include <korvex/records.h>
