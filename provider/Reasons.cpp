// The texts of the reasons, and which cause has which reason.
#include "Reasons.h"

#include <cerrno>

namespace krProvider {

namespace {

OSSL_ITEM item(Reason reason, const char *text) { return {static_cast<unsigned>(reason), const_cast<char *>(text)}; }

} // namespace

const OSSL_ITEM *reasonTexts() noexcept {
  static const OSSL_ITEM texts[] = {
      item(Reason::internal, "internal error of the key holder's provider"),
      item(Reason::memory, "no memory for the key holder's provider"),
      item(Reason::setting, "bad setting of the key holder's provider"),
      item(Reason::reference, "bad key reference"),
      item(Reason::unsupportedKey, "bad key reference: a kind of key that no key holder has"),
      item(Reason::unsupportedDigest, "a digest that no key holder signs"),
      item(Reason::unsupportedPadding, "a padding that no key holder does"),
      item(Reason::digestLength, "the digest has another length than its kind"),
      item(Reason::smallBuffer, "the buffer is too small"),
      item(Reason::answer, "the key holder's answer does not fit the key"),
      item(Reason::noSocket, "key holder unreachable: there is no such socket"),
      item(Reason::noListener, "key holder unreachable: nobody listens at the socket"),
      item(Reason::noPermission, "key holder unreachable: no permission for the socket"),
      item(Reason::noAnswer, "key holder unreachable: no answer in time"),
      item(Reason::closed, "key holder unreachable: it closed the connection"),
      item(Reason::notOfAHolder, "key holder unreachable: the answer is none of a key holder's"),
      item(Reason::unreachable, "key holder unreachable: the connection failed"),
      item(Reason::refused, "key holder refused"),
      item(Reason::noKey, "key holder has no such key"),
      item(Reason::wrongKey, "key holder has another key under this name"),
      item(Reason::badRequest, "key holder cannot do this with the key"),
      item(Reason::busy, "key holder is at its limit"),
      item(Reason::failed, "key holder failed"),
      {0, nullptr},
  };
  return texts;
}

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

} // namespace krProvider
