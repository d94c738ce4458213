// A FIPS module for the tests, built on OpenSSL's own methods. It writes down its calls, finds fault with what is the
// same in every call, and fails on demand.
#pragma once

#include "state/FipsModule.h"

#include <string>

namespace krTest::referenceModule {

extern const krOpenSSL::FipsModule table;

/// What a failing entry returns.
inline constexpr int kFailure = 7;

/// What it tells of each group that it generates for DSA.
inline constexpr int kCounter = 105;
inline constexpr std::uint64_t kH = 0x1234000000C0FFEE; // of which a caller of OpenSSL gets 32 bits

/// The state that it is in.
inline int moduleState = 1;

/// The entry that fails now, by its name.
inline std::string failing;

/// What entries do wrong while they succeed: claim to have written more than fits, or fewer bytes than none, write no
/// DER signature, or one that fits only because its numbers are written as negative ones.
enum class Fault { none, overstates, negates, garbles, unpads };
inline Fault fault = Fault::none;

/// The keys that the module holds.
int liveKeys();

/// The entries called since the last time, with blanks between. Those that do not begin with @p kind are left out.
std::string calls(const std::string &kind = "");

} // namespace krTest::referenceModule
