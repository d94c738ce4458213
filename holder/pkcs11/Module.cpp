// Loading, initialising, finalising.
#include "Module.h"

#include "ReturnValue.h"

#include <dlfcn.h>

#include <map>

namespace krHolder::pkcs11 {
namespace {

std::string loaderReason() {
  const char *reason = dlerror(); // NOLINT(concurrency-mt-unsafe): the C library keeps one per thread
  return reason != nullptr ? reason : "unknown reason";
}

} // namespace

void SharedLibrary::Unload::operator()(void *library) const noexcept { dlclose(library); }

// RTLD_LOCAL, since modules bring an OpenSSL of their own: its symbols serve the module alone, and carry a version
// that this program's do not have.
SharedLibrary::SharedLibrary(const std::string &path) : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!library_) {
    throw Failure("the PKCS#11 module cannot be loaded: " + loaderReason());
  }
  const auto getFunctions = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_.get(), "C_GetFunctionList"));
  if (getFunctions == nullptr) {
    throw Failure("'" + path + "' is no PKCS#11 module: it has no C_GetFunctionList");
  }
  require(getFunctions(&functions_), "the PKCS#11 module gives no functions");
}

Module::Module(const SharedLibrary &library) : functions_(library.functions()) {
  CK_C_INITIALIZE_ARGS arguments{};
  arguments.flags = CKF_OS_LOCKING_OK;
  require(functions_->C_Initialize(&arguments), "the PKCS#11 module cannot be initialised");
}

Module::~Module() { functions_->C_Finalize(nullptr); }

std::shared_ptr<SharedModule> SharedModule::at(const std::string &path) {
  static std::mutex mutex;
  static std::map<std::string, std::weak_ptr<SharedModule>> modules;
  const std::scoped_lock lock(mutex);
  std::weak_ptr<SharedModule> &known = modules[path];
  std::shared_ptr<SharedModule> module = known.lock();
  if (!module) {
    known = module = std::make_shared<SharedModule>(path);
  }
  return module;
}

void SharedModule::startAnewIfLost() {
  if (lost_ && module_.use_count() <= 1) {
    module_.reset();
  }
}

const std::shared_ptr<const Module> &SharedModule::module() {
  if (!module_) { // its new beginning may have failed
    module_ = std::make_shared<const Module>(library_);
  }
  return module_;
}

} // namespace krHolder::pkcs11
