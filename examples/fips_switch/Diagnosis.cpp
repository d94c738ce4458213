// The steps of bringing in wolfEngine, one by one.
#include "Diagnosis.h"

#include "Module.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/engine.h>
#include <openssl/err.h>

#include <utility>

using krOpenSSL::ENGINEPtr;

namespace fips_switch {
namespace {

std::string finding(const std::string &what, const std::string &hint) {
  return "wolfEngine: " + what + "\n  hint: " + hint + '\n';
}

// OpenSSL's own reasons, and the engine's.
std::string reasons() {
  std::string text;
  ERR_print_errors_cb(
      [](const char *line, std::size_t length, void *all) {
        static_cast<std::string *>(all)->append("\n  ").append(line, length - 1);
        return 1;
      },
      &text);
  return text;
}

// The engine that came out of the file, null with OpenSSL's reasons queued. OpenSSL binds a module once: where the
// library had it listed, it is the last in the list.
ENGINEPtr boundEngine(const std::string &file) {
  ENGINEPtr engine(ENGINE_get_last());
  const std::string last = engine ? ENGINE_get_id(engine.get()) : "dynamic";
  if (last != "dynamic" && last != "qvlib") {
    return engine;
  }
  ERR_clear_error();
  ENGINE_load_dynamic();
  engine.reset(ENGINE_by_id("dynamic"));
  const bool bound = engine && ENGINE_ctrl_cmd_string(engine.get(), "SO_PATH", file.c_str(), 0) != 0 &&
                     ENGINE_ctrl_cmd_string(engine.get(), "LOAD", nullptr, 0) != 0;
  return bound ? std::move(engine) : nullptr;
}

std::string diagnoseMethods(void *module, const std::string &file) {
  for (const char *name : {"we_rsa_method", "we_ec_key_method"}) {
    auto *const *method = static_cast<void **>(moduleObject(module, name));
    if (method == nullptr || *method == nullptr) {
      return finding(std::string(name) + (method == nullptr ? " is not exported" : " is exported, but empty"),
                     "delegated keys need both of its methods; what it exports: nm -D --defined-only " + file);
    }
  }
  return finding("every step succeeds here", "was it chosen, with krFipsUseOpenSSLFIPS(1), before krFipsModeOn?");
}

std::string diagnoseEngine(ENGINE *engine, void *module, const std::string &file) {
  const char *named = ENGINE_get_id(engine);
  const std::string id = named != nullptr ? named : "";
  if (id != "wolfEngine") {
    return finding(
        "the engine calls itself \"" + id + "\", not \"wolfEngine\"",
        "the stock Linux build has that id; it is the exported string wolfengine_id, set where wolfEngine is built");
  }
  ERR_clear_error();
  if (ENGINE_init(engine) == 0) {
    return finding("it refuses to be initialised" + reasons(),
                   "what is behind it may not pass its own tests: openssl engine -t -pre SO_PATH:" + file +
                       " -pre LOAD dynamic");
  }
  ENGINE_finish(engine);
  return diagnoseMethods(module, file);
}

} // namespace

std::string diagnoseWolfEngine() {
  const std::filesystem::path path = wolfEngineFile();
  const std::string file = path.string();
  std::error_code unknown;
  if (!path.is_absolute() || !std::filesystem::exists(path, unknown)) {
    return finding("there is no file " + file + (path.is_absolute() ? "" : ", since its path is not absolute"),
                   "put it there, or name the folder above Corvane with KR_COMMON_PROGRAM_FILES");
  }
  std::string refusal;
  void *module = loadModule(path, refusal);
  if (module == nullptr) {
    return finding("it cannot be loaded: " + refusal,
                   "the libraries it needs, wolfSSL's among them, have to be found: ldd " + file);
  }
  const ENGINEPtr engine = boundEngine(file);
  if (!engine) {
    return finding("OpenSSL does not take it as an engine" + reasons(),
                   "it has to be built as a dynamic engine for OpenSSL 1.1.1: nm -D shows bind_engine and v_check");
  }
  return diagnoseEngine(engine.get(), module, file);
}

} // namespace fips_switch
