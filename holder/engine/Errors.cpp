// The reasons' texts, and which cause has which reason.
#include "Errors.h"

#include "client/Client.h"
#include "reference/Reference.h"

#include <openssl/err.h>

#include <cerrno>
#include <new>

namespace krEngine {

namespace {

ERR_STRING_DATA text(Reason reason, const char *what) {
  return {ERR_PACK(0, 0, static_cast<unsigned long>(reason)), what};
}

// The number of this library's errors, with the texts loaded: they stay for the life of the process.
int library() {
  static const int number = [] {
    static ERR_STRING_DATA texts[] = {
        text(Reason::internal, "internal error of the key holder's engine"),
        text(Reason::setting, "bad setting of the key holder's engine"),
        text(Reason::reference, "bad key reference"),
        text(Reason::unsupportedDigest, "a digest that no key holder signs"),
        text(Reason::unsupportedPadding, "a padding that no key holder does"),
        text(Reason::smallBuffer, "the buffer is too small"),
        text(Reason::answer, "the key holder's answer does not fit the key"),
        text(Reason::noSocket, "key holder unreachable: there is no such socket"),
        text(Reason::noListener, "key holder unreachable: nobody listens at the socket"),
        text(Reason::noPermission, "key holder unreachable: no permission for the socket"),
        text(Reason::noAnswer, "key holder unreachable: no answer in time"),
        text(Reason::closed, "key holder unreachable: it closed the connection"),
        text(Reason::notOfAHolder, "key holder unreachable: the answer is none of a key holder's"),
        text(Reason::unreachable, "key holder unreachable: the connection failed"),
        text(Reason::refused, "key holder refused"),
        text(Reason::noKey, "key holder has no such key"),
        text(Reason::wrongKey, "key holder has another key under this name"),
        text(Reason::badRequest, "key holder cannot do this with the key"),
        text(Reason::busy, "key holder is at its limit"),
        text(Reason::failed, "key holder failed"),
        {0, nullptr}};
    const int fresh = ERR_get_next_error_library();
    static ERR_STRING_DATA name[] = {{ERR_PACK(static_cast<unsigned long>(fresh), 0, 0), "key holder's engine"},
                                     {0, nullptr}};
    ERR_load_strings(fresh, texts);
    ERR_load_strings(fresh, name);
    return fresh;
  }();
  return number;
}

Reason reasonOf(int error) noexcept {
  switch (error) {
  case ENOENT:
  case ENOTDIR:
    return Reason::noSocket;
  case ECONNREFUSED:
    return Reason::noListener;
  case EACCES:
  case EPERM:
    return Reason::noPermission;
  case ETIMEDOUT:
    return Reason::noAnswer;
  case ECONNRESET:
    return Reason::closed;
  case EPROTO:
    return Reason::notOfAHolder;
  default:
    return Reason::unreachable;
  }
}

void raise(Reason reason, const char *detail) {
  ERR_put_error(library(), 0, static_cast<int>(reason), "key holder", 0);
  if (*detail != '\0') {
    ERR_add_error_data(1, detail);
  }
}

} // namespace

Reason reasonOf(krHolder::Status status) noexcept {
  switch (status) {
  case krHolder::Status::refused:
    return Reason::refused;
  case krHolder::Status::noKey:
    return Reason::noKey;
  case krHolder::Status::wrongKey:
    return Reason::wrongKey;
  case krHolder::Status::badRequest:
    return Reason::badRequest;
  case krHolder::Status::busy:
    return Reason::busy;
  default:
    return Reason::failed;
  }
}

void explain() noexcept {
  try {
    throw;
  } catch (const Failure &failure) {
    raise(failure.reason, failure.what());
  } catch (const krHolder::Unreachable &unreachable) {
    raise(reasonOf(unreachable.error()), unreachable.what() + krHolder::kUnreachable.size()); // the reason says it
  } catch (const krHolder::BadReference &bad) {
    raise(Reason::reference, bad.what());
  } catch (const std::bad_alloc &) {
    ERR_put_error(library(), 0, ERR_R_MALLOC_FAILURE, "key holder", 0);
  } catch (const std::exception &other) {
    raise(Reason::internal, other.what());
  } catch (...) {
    raise(Reason::internal, "");
  }
}

} // namespace krEngine
