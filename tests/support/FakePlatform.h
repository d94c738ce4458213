// A platform whose answers are the test's: random source, fork notice, and the file system of the log.
#pragma once

#include "platform/Platform.h"
#include "support/Vectors.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace krTest::fakePlatform {

inline bool hasRandom = true;
inline bool noticesForks = true;
inline std::vector<std::uint32_t> drawn; ///< the lengths asked of the random source
inline bool forked = false;              ///< since the lock was last taken

/// What the random source gave at its @p call-th draw, counted from 1.
Bytes systemBytes(std::size_t call);

/// What stands at a path.
struct Entry : krOpenSSL::platform::Entry {
  std::uint64_t size = 0;
};

inline std::string programData = "/data";
inline std::optional<std::string> logSize; ///< the text in the registry
inline std::map<std::string, Entry> entries;
inline auto opening = krOpenSSL::platform::AppendFile::Outcome::opened; ///< of a file that is safe
inline std::string written;
inline std::vector<std::string> calls; ///< each with the last name of its path
inline std::set<std::string> failing;  ///< calls, without a path, that fail

} // namespace krTest::fakePlatform
