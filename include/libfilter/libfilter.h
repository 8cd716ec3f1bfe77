// The library's C entry points. Include this to drive libfilter as a host does.
#pragma once

#include "libfilter/GController.h"
#include "libfilter/GVideoProcessor.h"

extern "C" {
// Creates the effect with factory id `id`; null (and one report to the error sink) when the
// id names no effect. The host releases the result with its Free.
MediaCore::GVideoProcessor* libfilter_GetFilter(MediaCore::GController* controller, unsigned id);
}
