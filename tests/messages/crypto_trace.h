// Collects trace lines for the duration of a scope.
#pragma once

#include "common/reference.h"

namespace msgtest {

using ref::TraceCapture;

}  // namespace msgtest
