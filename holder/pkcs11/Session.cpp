// PKCS#11's calls on a session.
#include "Session.h"

#include "ReturnValue.h"

namespace krHolder::pkcs11 {
namespace {

constexpr std::size_t kLongestAttributeBytes = 65536;

// The standard's functions take what they only read without const.
CK_BYTE *unconst(View bytes) { return const_cast<CK_BYTE *>(bytes.data()); }

// A token may be on another machine: a length that cannot be is a failure, not a size.
std::size_t atMost(std::size_t room, CK_ULONG length) {
  if (length > room) {
    throw Failure("the token's answer is longer than it can be");
  }
  return length;
}

/// A search ends with its object: a session has one at a time.
class Search {
public:
  Search(const Module &module, CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> attributes)
      : module_(module), session_(session) {
    require(module_->C_FindObjectsInit(session_, attributes.data(), attributes.size()),
            "no object can be searched for");
  }
  ~Search() { module_->C_FindObjectsFinal(session_); }
  Search(const Search &) = delete;
  Search &operator=(const Search &) = delete;

  std::size_t next(std::span<CK_OBJECT_HANDLE> found) const {
    CK_ULONG count = 0;
    require(module_->C_FindObjects(session_, found.data(), found.size(), &count), "the search for an object failed");
    return atMost(found.size(), count);
  }

private:
  const Module &module_;
  CK_SESSION_HANDLE session_;
};

} // namespace

Session::Session(std::shared_ptr<const Module> module, CK_SLOT_ID slot) : module_(std::move(module)) {
  require((*module_)->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &handle_),
          "no session with the token can be opened");
}

Session::~Session() { (*module_)->C_CloseSession(handle_); }

bool Session::loggedIn() const {
  CK_SESSION_INFO info{};
  require((*module_)->C_GetSessionInfo(handle_, &info), "the session's state is unknown");
  return info.state == CKS_RO_USER_FUNCTIONS;
}

CK_RV Session::login(Bytes &pin) const { return (*module_)->C_Login(handle_, CKU_USER, pin.data(), pin.size()); }

std::vector<CK_OBJECT_HANDLE> Session::find(std::span<CK_ATTRIBUTE> attributes, std::size_t limit) const {
  const Search search(*module_, handle_, attributes);
  std::vector<CK_OBJECT_HANDLE> found(limit);
  std::size_t count = 0;
  while (count < limit) {
    const std::size_t more = search.next(std::span(found).subspan(count));
    if (more == 0) {
      break;
    }
    count += more;
  }
  found.resize(count);
  return found;
}

Bytes Session::attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
  CK_ATTRIBUTE attribute{type, nullptr, 0};
  const CK_RV returned = (*module_)->C_GetAttributeValue(handle_, object, &attribute, 1);
  if (returned == CKR_ATTRIBUTE_TYPE_INVALID || attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
    return {};
  }
  require(returned, "an object's attribute cannot be read");
  Bytes value(atMost(kLongestAttributeBytes, attribute.ulValueLen));
  attribute.pValue = value.data();
  require((*module_)->C_GetAttributeValue(handle_, object, &attribute, 1), "an object's attribute cannot be read");
  value.resize(atMost(value.size(), attribute.ulValueLen));
  return value;
}

Bytes Session::sign(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, View data, std::size_t capacity) const {
  require((*module_)->C_SignInit(handle_, &mechanism, key), "the token does not begin a signature");
  Bytes out(capacity);
  CK_ULONG length = out.size();
  require((*module_)->C_Sign(handle_, unconst(data), data.size(), out.data(), &length), "the token does not sign");
  out.resize(atMost(out.size(), length));
  return out;
}

Bytes Session::decrypt(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, View data, std::size_t capacity) const {
  require((*module_)->C_DecryptInit(handle_, &mechanism, key), "the token does not begin a decryption");
  Bytes out(capacity);
  CK_ULONG length = out.size();
  require((*module_)->C_Decrypt(handle_, unconst(data), data.size(), out.data(), &length),
          "the token does not decrypt");
  out.resize(atMost(out.size(), length));
  return out;
}

} // namespace krHolder::pkcs11
