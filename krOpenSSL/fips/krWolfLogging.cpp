// Switching wolfEngine's and wolfSSL's own logging into the library's log file.
#include "fips/krWolfSSLFIPS.h"

#include "accessors/ErrorQueueScope.h"
#include "engine/EngineList.h"
#include "fips/ActiveEngine.h"
#include "log/krCustomLogger.h"
#include "state/State.h"

#include <krOpenSSL/krFips.h>

#include <array>
#include <cstdio>

using namespace krOpenSSL;

namespace {

constexpr unsigned int kWolfLogLevel = 1;

struct LoggingCommand {
  const char *name;
  long number;
  void (*function)();
  int line;
  const char *failure;
  const char *word;
};

bool sendToActive(const LoggingCommand &command) noexcept {
  const ErrorQueueScope errors;
  ENGINE *engine = activeEngine.load(std::memory_order_acquire);
  if (ENGINE_ctrl_cmd(engine, command.name, command.number, nullptr, command.function, 0) == 1) {
    return true;
  }
  krLogWrite(kWolfSource, command.line, kWolfComponent, command.failure, command.word);
  return false;
}

// ENGINE_ctrl_cmd passes any function as one of this type; wolfEngine casts it back.
template <class Function> void (*asCommandArgument(bool enable, Function *function) noexcept)() {
  return enable ? reinterpret_cast<void (*)()>(function) : nullptr;
}

} // namespace

int krWolfEngineSetLogging(bool enable, unsigned int level) noexcept {
  const long on = enable ? 1 : 0;
  const unsigned int logLevel = enable ? level : 0;
  const char *ability = enable ? "enable" : "disable";
  const char *setting = enable ? "set" : "reset";
  std::array<char, sizeof "4294967295"> number;
  (void)std::snprintf(number.data(), number.size(), "%u", logLevel);

  krLogWrite(kWolfSource, 212, kWolfComponent, "'%s' WolfEngine logging", enable ? "Enabling" : "Disabling");
  const std::array commands{
      LoggingCommand{"enable_debug", on, nullptr, 216, "Failed to %s logging for 'wolfEngine'", ability},
      LoggingCommand{"enable_debug_wolfssl", on, nullptr, 223, "Failed to %s logging for 'wolfSSL'", ability},
      LoggingCommand{"log_level", static_cast<long>(logLevel), nullptr, 229, "Failed to set log_level to '%s'",
                     number.data()},
      LoggingCommand{"set_logging_cb", 0, asCommandArgument(enable, krLogLine), 237,
                     "Failed to %s wolfEngine logging callback", setting},
      LoggingCommand{"set_logging_cb_wolfssl", 0, asCommandArgument(enable, krWolfSSLLogAdapter), 243,
                     "Failed to %s wolfSSL logging callback", setting},
  };
  for (const LoggingCommand &command : commands) {
    if (!sendToActive(command)) {
      return 0;
    }
  }
  return 1;
}

int krSetWolfEngineLogLevel(int level) {
  if (!opensslIsUsable()) {
    return 0;
  }
  const bool enable = krFipsMode() != 0 && level != -1;
  return krWolfEngineSetLogging(enable, enable ? kWolfLogLevel : 0);
}

void krWolfSSLLogAdapter(int level, const char *message) noexcept { krLogLine(level, 0, message); }
