// A home, and the stand-in for wolfEngine where the library looks for it.
#pragma once

#include "support/Home.h"
#include "support/WolfEngineStandIn.h"

namespace krTest {

struct FipsHome : Home {
  /// @param failing  the step at which the stand-in fails, see kStandInFails
  explicit FipsHome(const std::string &failing = "");

  /// The lines that came since the last call, of wolfEngine's loader as "number message", of wolfEngine itself as
  /// "level component message".
  std::vector<std::string> newLogLines();

  /// What the loaded stand-in has recorded.
  static WolfEngineRecord &record();

private:
  static inline std::filesystem::path modules;

  std::size_t seen_ = 0;
};

} // namespace krTest
