// A FIPS module for the tests, built on OpenSSL's own methods. It writes down its calls and fails on demand.
#pragma once

#include "fipsbridge/FipsModule.h"
#include "support/Trace.h"

namespace krTest::referenceModule {

extern const krOpenSSL::FipsModule table;

/// What a failing entry returns.
inline constexpr int kFailure = 7;

/// The entry that fails now, by its name.
inline std::string failing;

/// Whether entries claim to have written more than fits.
inline bool overstates = false;

/// The keys that the module holds.
int liveKeys();

/// The calls since the last time: each entry with its arguments, numbers as they are, pointers by what they
/// are. Entries that do not begin with @p kind are left out.
Lines calls(const std::string &kind = "");

} // namespace krTest::referenceModule
