// The trace, by POSIX.
#include "Trace.h"

#include <cstdlib>

void krseal::silenceTrace() { setenv("KR_TRACE", "off", 1); } // NOLINT(concurrency-mt-unsafe): one thread
