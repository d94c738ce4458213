// The trace, by Windows.
#include "Trace.h"

#include <cstdlib>

void krseal::silenceTrace() { _putenv_s("KR_TRACE", "off"); }
