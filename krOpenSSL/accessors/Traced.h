// The three orders in which an accessor writes its pair of trace lines around its work.
#pragma once

#include "accessors/krTraceLog.h"

#include <utility>

namespace krOpenSSL {

inline void traceStart(const char *accessor) noexcept { traceStep("Start", accessor); }
inline void traceEnd(const char *accessor) noexcept { traceStep("End", accessor); }

/// Forwarding with a result: both lines first, then the call.
template <class Function, class... Arguments>
decltype(auto) tracedBefore(const char *accessor, Function &&call, Arguments... arguments) noexcept {
  traceSteps(accessor);
  return std::forward<Function>(call)(arguments...);
}

/// Forwarding without a result: the call between the lines.
template <class Function, class... Arguments>
void tracedAround(const char *accessor, Function &&call, Arguments... arguments) noexcept {
  traceStart(accessor);
  std::forward<Function>(call)(arguments...);
  traceEnd(accessor);
}

/// Work of its own: the work between the lines, then its result.
template <class Work> auto tracedWork(const char *accessor, Work &&work) noexcept {
  traceStart(accessor);
  auto result = std::forward<Work>(work)();
  traceEnd(accessor);
  return result;
}

} // namespace krOpenSSL
