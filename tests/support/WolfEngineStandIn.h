// What the stand-in for wolfEngine records, exported by its module as "standInRecord".
#pragma once

#include <atomic>
#include <string>
#include <vector>

namespace krTest {

struct WolfEngineRecord {
  std::atomic<int> initialisations{0};
  std::atomic<int> finishes{0};
  std::atomic<int> ownSignatures{0}; ///< by its EVP_PKEY methods, with the key itself
  std::atomic<int> digestsAsked{0};  ///< of its EVP_PKEY method for EC, which does not tell
  const void *rsaSign = nullptr;     ///< the sign of its EVP_PKEY method for RSA
  std::atomic<int> randomRequests{0};
  std::vector<std::string> commands; ///< "name number", and " function" when one came along
};

/// The step that the stand-in fails at, by this variable of the environment: "id" (it has another one),
/// "default" (it is not to be initialised), "init" (the same, without methods that would have been initialised
/// earlier), "methods" (none are exported), or the name of a logging command.
inline constexpr const char *kStandInFails = "KR_STANDIN_FAILS";

} // namespace krTest
