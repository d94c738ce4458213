// PKCS#11's calls on a session.
#include "Session.h"

#include "ReturnValue.h"

namespace delegated_tls::pkcs11 {
namespace {

// The standard's functions take what they only read without const.
CK_BYTE *unconst(const Bytes &bytes) { return const_cast<CK_BYTE *>(bytes.data()); }

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
    return count;
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
  Bytes value(attribute.ulValueLen);
  attribute.pValue = value.data();
  require((*module_)->C_GetAttributeValue(handle_, object, &attribute, 1), "an object's attribute cannot be read");
  return value;
}

Bytes Session::sign(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key, const Bytes &data, std::size_t capacity) const {
  CK_MECHANISM chosen{mechanism, nullptr, 0};
  require((*module_)->C_SignInit(handle_, &chosen, key), "the token does not begin a signature");
  Bytes out(capacity);
  CK_ULONG length = out.size();
  require((*module_)->C_Sign(handle_, unconst(data), data.size(), out.data(), &length), "the token does not sign");
  out.resize(length);
  return out;
}

Bytes Session::decrypt(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key, const Bytes &data,
                       std::size_t capacity) const {
  CK_MECHANISM chosen{mechanism, nullptr, 0};
  require((*module_)->C_DecryptInit(handle_, &chosen, key), "the token does not begin a decryption");
  Bytes out(capacity);
  CK_ULONG length = out.size();
  require((*module_)->C_Decrypt(handle_, unconst(data), data.size(), out.data(), &length),
          "the token does not decrypt");
  out.resize(length);
  return out;
}

} // namespace delegated_tls::pkcs11
