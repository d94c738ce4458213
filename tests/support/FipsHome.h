// A place of the test's own for the log, and the stand-in for wolfEngine where the library looks for it.
#pragma once

#include "support/WolfEngineStandIn.h"

#include <filesystem>
#include <string>
#include <vector>

namespace krTest {

class FipsHome {
public:
  /// @param failing  the step at which the stand-in fails, see kStandInFails
  explicit FipsHome(const std::string &failing = "");
  ~FipsHome();
  FipsHome(const FipsHome &) = delete;
  FipsHome &operator=(const FipsHome &) = delete;

  /// The lines that came since the last call, of wolfEngine's loader as "number message", of wolfEngine itself as
  /// "level component message".
  std::vector<std::string> newLogLines();

  /// What the loaded stand-in has recorded.
  static WolfEngineRecord &record();

private:
  static inline std::filesystem::path modules;

  std::filesystem::path folder_;
  std::size_t seen_ = 0;
};

} // namespace krTest
