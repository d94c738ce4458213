// What a loaded provider has and how its errors are raised.
#include "Provider.h"

#include "reference/Reference.h"

#include <openssl/crypto.h>
#include <openssl/params.h>

#include <charconv>
#include <cstdarg>
#include <cstdlib>

namespace krProvider {

namespace {

std::string checkedSocket(const char *path) {
  if (!krHolder::isSocket(path)) {
    throw Failure(Reason::setting, std::string("the socket is not an absolute path of at most 107 bytes: ") + path);
  }
  return path;
}

std::chrono::milliseconds checkedDeadline(const char *text) {
  constexpr int kMostMilliseconds = 60'000;
  const char *end = text + std::strlen(text);
  int milliseconds = 0;
  const auto [stopped, error] = std::from_chars(text, end, milliseconds);
  if (error != std::errc() || stopped != end || milliseconds < 1 || milliseconds > kMostMilliseconds) {
    throw Failure(Reason::setting, std::string("the deadline is not a number of milliseconds up to 60000: ") + text);
  }
  return std::chrono::milliseconds(milliseconds);
}

bool checkedFips(const char *text) {
  const std::string_view answer = text;
  if (answer != "yes" && answer != "no") {
    throw Failure(Reason::setting, std::string("fips is neither yes nor no: ") + text);
  }
  return answer == "yes";
}

} // namespace

Provider::Provider(const OSSL_CORE_HANDLE *handle, const OSSL_DISPATCH *in) noexcept : handle_(handle) {
  for (; in->function_id != 0; ++in) {
    switch (in->function_id) {
    case OSSL_FUNC_CORE_GET_PARAMS:
      getParams_ = OSSL_FUNC_core_get_params(in);
      break;
    case OSSL_FUNC_CORE_NEW_ERROR:
      newError_ = OSSL_FUNC_core_new_error(in);
      break;
    case OSSL_FUNC_CORE_VSET_ERROR:
      vsetError_ = OSSL_FUNC_core_vset_error(in);
      break;
    default:
      break;
    }
  }
}

void Provider::start(const OSSL_DISPATCH *in) {
  try {
    readSettings();
  } catch (const Failure &bad) {
    badSetting_ = bad.what();
  }
  library_.reset(OSSL_LIB_CTX_new_child(handle_, in));
  if (!library_) {
    throw Raised();
  }
}

void Provider::readSettings() {
  if (const char *socket = secure_getenv("KRHOLDER_SOCKET")) {
    settings_.socket = checkedSocket(socket);
  }
  char *socket = nullptr;
  char *deadline = nullptr;
  char *fips = nullptr;
  OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_ptr("socket", &socket, 0),
                         OSSL_PARAM_construct_utf8_ptr("deadline", &deadline, 0),
                         OSSL_PARAM_construct_utf8_ptr("fips", &fips, 0), OSSL_PARAM_construct_end()};
  if (getParams_ == nullptr || getParams_(handle_, params) != 1) {
    throw Raised();
  }
  if (socket != nullptr) {
    settings_.socket = checkedSocket(socket);
  }
  if (deadline != nullptr) {
    settings_.deadline = checkedDeadline(deadline);
  }
  settings_.fips = fips != nullptr && checkedFips(fips);
}

std::shared_ptr<krHolder::Client> Provider::client(const std::string &socket) {
  if (!badSetting_.empty()) {
    throw Failure(Reason::setting, badSetting_);
  }
  const std::string &path = socket.empty() ? settings_.socket : socket;
  const std::lock_guard lock(mutex_);
  auto &client = clients_[path];
  if (!client) {
    client = std::make_shared<krHolder::Client>(krHolder::ClientOptions{path, settings_.deadline});
  }
  return client;
}

void Provider::raise(Reason reason, const char *detail) const noexcept {
  if (newError_ != nullptr && vsetError_ != nullptr) {
    newError_(handle_);
    setError(reason, "%s", detail);
  }
}

void Provider::setError(Reason reason, const char *format, ...) const noexcept {
  va_list arguments;
  va_start(arguments, format);
  vsetError_(handle_, static_cast<std::uint32_t>(reason), format, arguments);
  va_end(arguments);
}

void explain(const Provider &provider) noexcept {
  try {
    throw;
  } catch (const Failure &failure) {
    provider.raise(failure.reason(), failure.what());
  } catch (const krHolder::Unreachable &unreachable) {
    provider.raise(reasonOf(unreachable.error()),
                   unreachable.what() + krHolder::kUnreachable.size()); // the reason says it
  } catch (const Raised &) {
    return;
  } catch (const std::bad_alloc &) {
    provider.raise(Reason::memory, "");
  } catch (const std::exception &other) {
    provider.raise(Reason::internal, other.what());
  } catch (...) {
    provider.raise(Reason::internal, "");
  }
}

} // namespace krProvider
