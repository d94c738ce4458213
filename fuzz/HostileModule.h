// A FIPS module that takes whatever it is given, fails, leaves errors, and claims any length for what it wrote. It
// writes down what passes.
#pragma once

#include "Fuzz.h"

#include "fipsbridge/FipsModule.h"

#include <optional>

namespace krFuzz::hostileModule {

using Length = krOpenSSL::FipsModule::Length;
using Number = std::optional<Bytes>; // none where there is no number

extern const krOpenSSL::FipsModule table;

/// What the module wrote, as large as the room it was told of, and the length that it claims.
struct Given {
  Bytes room;
  Length claim;

  bool isPossible() const { return claim >= 0 && claim <= static_cast<Length>(room.size()); }
};

inline std::optional<FuzzedDataProvider> input; ///< what it writes, claims and answers

inline std::vector<Number> loaded; ///< by the last load
inline std::vector<Given> given;
inline int steps = 0; ///< calls of what comes after a load
inline bool failed = false;

/// Forgets what has passed.
void startOver();

} // namespace krFuzz::hostileModule
