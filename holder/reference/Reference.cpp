// The reference: README.md beside this file, in code. DER by hand, so that programs of any OpenSSL, or none, can use
// it.
#include "Reference.h"

#include "wire/Message.h"

#include <algorithm>

namespace krHolder {

namespace {

// X.690, 8.1.2: identifier octets.
constexpr unsigned char kInteger = 0x02;
constexpr unsigned char kUtf8String = 0x0c;
constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kContext0 = 0x80;

constexpr unsigned char kVersion1 = 1;
constexpr std::size_t kMaxSocketBytes = 107; // sockaddr_un holds no more, with the zero at its end

void append(Bytes &to, View bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }
View viewOf(std::string_view text) { return {reinterpret_cast<const unsigned char *>(text.data()), text.size()}; }
std::string textOf(View view) { return {view.begin(), view.end()}; }

// X.690, 10.1: the shortest form of a length.
void append(Bytes &to, unsigned char tag, View content) {
  to.push_back(tag);
  const std::size_t length = content.size();
  if (length > 0xffff) {
    throw BadReference("it is too long");
  }
  if (length > 0xff) {
    append(to, Bytes{0x82, static_cast<unsigned char>(length >> 8U)});
  } else if (length > 0x7f) {
    to.push_back(0x81);
  }
  to.push_back(static_cast<unsigned char>(length));
  append(to, content);
}

class Elements {
public:
  explicit Elements(View der) : rest_(der) {}

  bool ended() const { return rest_.empty(); }

  // The content of the next element, which has this tag.
  View next(unsigned char tag) {
    if (take(1)[0] != tag) {
      throw BadReference("its structure is none of a reference's");
    }
    return take(length());
  }

private:
  View take(std::size_t count) {
    if (count > rest_.size()) {
      throw BadReference("it ends too early");
    }
    const View taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  std::size_t length() {
    const unsigned first = take(1)[0];
    if (first < 0x80) {
      return first;
    }
    std::size_t value = 0;
    for (const unsigned char byte : take(first == 0x81 || first == 0x82 ? first - 0x80 : 0)) {
      value = value << 8U | byte;
    }
    if (value < (first == 0x82 ? 0x100U : 0x80U)) {
      throw BadReference("a length in it is not DER");
    }
    return value;
  }

  View rest_;
};

void check(const Reference &reference) {
  if (!reference.name.empty() && !isName(reference.name)) {
    throw BadReference("its name is none that a key can have");
  }
  if (!reference.socket.empty() && !isSocket(reference.socket)) {
    throw BadReference("its socket is not an absolute path of at most 107 bytes");
  }
}

} // namespace

bool isSocket(std::string_view path) {
  const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  return path.starts_with('/') && path.size() <= kMaxSocketBytes && std::ranges::none_of(path, control);
}

Bytes encode(const Reference &reference) {
  check(reference);
  Elements publicKey(reference.publicKey);
  publicKey.next(kSequence);
  if (!publicKey.ended()) {
    throw BadReference("bytes follow its public key");
  }
  Bytes content;
  append(content, kInteger, View(&kVersion1, 1));
  append(content, kUtf8String, viewOf(reference.name));
  append(content, reference.publicKey);
  if (!reference.socket.empty()) {
    append(content, kContext0, viewOf(reference.socket));
  }
  Bytes der;
  append(der, kSequence, content);
  return der;
}

Reference decodeReference(View der) {
  Elements outer(der);
  Elements inner(outer.next(kSequence));
  if (!outer.ended()) {
    throw BadReference("bytes follow it");
  }
  if (const View version = inner.next(kInteger); version.size() != 1 || version[0] != kVersion1) {
    throw BadReference("its version is not 1");
  }
  Reference reference;
  reference.name = textOf(inner.next(kUtf8String));
  append(reference.publicKey, kSequence, inner.next(kSequence)); // the bytes it had: DER has one form
  if (!inner.ended()) {
    reference.socket = textOf(inner.next(kContext0));
    if (!inner.ended() || reference.socket.empty()) {
      throw BadReference("its end is none of a reference's");
    }
  }
  check(reference);
  return reference;
}

} // namespace krHolder
