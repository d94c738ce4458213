// A platform whose random source and fork notice are the test's.
#pragma once

#include "support/Vectors.h"

#include <cstdint>

namespace krTest::fakePlatform {

inline bool hasRandom = true;
inline bool noticesForks = true;
inline std::vector<std::uint32_t> drawn; ///< the lengths asked of the random source
inline void (*childHandler)() = nullptr; ///< what is to run in a forked child
inline int watchers = 0;
inline std::int64_t process = 1;

/// What the random source gave at its @p call-th draw, counted from 1.
Bytes systemBytes(std::size_t call);

} // namespace krTest::fakePlatform
