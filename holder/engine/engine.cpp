// The holder's client as a dynamic engine for programs of OpenSSL 1.1.1: it loads references as private keys, and has
// no algorithms of its own.
#include "Errors.h"
#include "Load.h"
#include "Methods.h"
#include "Settings.h"

#include <array>
#include <cstdlib>
#include <string_view>

namespace {

using namespace krEngine;

constexpr unsigned kSocket = ENGINE_CMD_BASE;
constexpr unsigned kDeadline = ENGINE_CMD_BASE + 1;
const std::array kCommands{ENGINE_CMD_DEFN{kSocket, "SOCKET", "The key holder's socket, for references that name none",
                                           ENGINE_CMD_FLAG_STRING},
                           ENGINE_CMD_DEFN{kDeadline, "DEADLINE",
                                           "How many milliseconds an answer may take, up to 60000",
                                           ENGINE_CMD_FLAG_STRING},
                           ENGINE_CMD_DEFN{0, nullptr, nullptr, 0}};

int control(ENGINE * /*engine*/, int command, long /*number*/, void *text, void (* /*function*/)()) noexcept {
  return guarded(0, [&] {
    if (text == nullptr || (command != kSocket && command != kDeadline)) {
      throw Failure(Reason::setting);
    }
    (command == kSocket ? setSocket : setDeadline)(static_cast<const char *>(text));
    return 1;
  });
}

EVP_PKEY *load(ENGINE *engine, const char *file, UI_METHOD * /*method*/, void * /*data*/) noexcept {
  return guarded<EVP_PKEY *>(nullptr, [&] {
    if (file == nullptr) {
      throw Failure(Reason::reference, "there is no file name");
    }
    return loadKey(engine, file).release();
  });
}

int bindTo(ENGINE *engine, const char *id) noexcept {
  // The library's trace would stand amid what the program writes; whoever wants it sets KR_TRACE to something else.
  setenv("KR_TRACE", "off", 0);             // NOLINT(concurrency-mt-unsafe): engines are loaded when a program starts
  static constexpr char kId[] = "krholder"; // the engine keeps a pointer
  const bool done =
      (id == nullptr || std::string_view(id) == kId) && ENGINE_set_id(engine, kId) == 1 &&
      ENGINE_set_name(engine, "private keys at a key holder") == 1 &&
      ENGINE_set_flags(engine, ENGINE_FLAGS_NO_REGISTER_ALL) == 1 &&
      ENGINE_set_cmd_defns(engine, kCommands.data()) == 1 && ENGINE_set_ctrl_function(engine, control) == 1 &&
      ENGINE_set_load_privkey_function(engine, load) == 1 && ENGINE_set_pkey_meths(engine, methodFor) == 1;
  return done ? 1 : 0;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {
IMPLEMENT_DYNAMIC_CHECK_FN()
IMPLEMENT_DYNAMIC_BIND_FN(bindTo)
}
#pragma GCC visibility pop
