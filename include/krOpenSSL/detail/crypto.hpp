/// @file
/// How krCrypto.hpp does it. Nothing here is for callers.
#pragma once

#include <krOpenSSL/krCrypto.hpp>
#include <krOpenSSL/krInformation.h>
#include <krOpenSSL/kroAESWrap.h>
#include <krOpenSSL/kroCiphers.h>

#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <new>
#include <system_error>
#include <utility>

namespace krOpenSSL {

namespace detail {

inline constexpr const char *kNotDone = "the library could not do its work";

inline void check(bool condition, const char *failure) {
  if (!condition) {
    throw CryptoError(failure);
  }
}

/// Below 2^31, and whole blocks.
inline constexpr std::size_t kPieceBytes = std::size_t{1} << 30U;

template <class Byte, class Take>
void forEachPiece(std::span<Byte> bytes, Take take, std::size_t pieceBytes = kPieceBytes) {
  for (std::size_t at = 0; at < bytes.size(); at += pieceBytes) {
    const std::size_t left = bytes.size() - at;
    take(bytes.subspan(at, left < pieceBytes ? left : pieceBytes));
  }
}

inline constexpr unsigned char kFill = 0x5A;
inline constexpr unsigned char kOtherFill = 0xA5;

/// Whether the work writes anything else over bytes of one value than these; in the same time for all that it writes.
template <class Work> bool writesOver(unsigned char fill, std::span<unsigned char> out, const Work &work) {
  std::memset(out.data(), fill, out.size());
  work();
  unsigned differing = 0;
  for (const unsigned char byte : out) {
    differing |= byte ^ fill;
  }
  return differing != 0;
}

/// Has the work write, and finds out whether it did: what it writes may be the first value, but not the second, too.
template <class Work> void write(std::span<unsigned char> out, const Work &work) {
  check(writesOver(kFill, out, work) || writesOver(kOtherFill, out, work), kNotDone);
}

} // namespace detail

// Digests.

template <HashClass T> std::array<unsigned char, kDigestBytes<T>> digest(ByteView data) {
  std::array<unsigned char, kDigestBytes<T>> out;
  detail::write(out, [&] {
    T hash;
    hash.Init();
    detail::forEachPiece(std::span(data), [&](auto piece) { hash.Update(piece.data(), piece.size()); });
    hash.Final(out.data());
  });
  return out;
}

template <HashClass T> Digest<T> &Digest<T>::update(ByteView data) {
  life_.go();
  detail::forEachPiece(std::span(data), [&](auto piece) { hash_.Update(piece.data(), piece.size()); });
  return *this;
}

template <HashClass T> std::array<unsigned char, kDigestBytes<T>> Digest<T>::final() {
  life_.end();
  std::array<unsigned char, kDigestBytes<T>> out;
  detail::check(detail::writesOver(detail::kFill, out, [&] { hash_.Final(out.data()); }), detail::kNotDone);
  return out;
}

inline void readInPieces(const std::filesystem::path &file, const std::function<void(ByteView piece)> &take,
                         const Progress &progress) {
  constexpr std::size_t kReadBytes = std::size_t{256} << 10U;
  SecretBytes room(kReadBytes); // outlives the stream, and is wiped, unlike a buffer of the stream's own
  const auto useRoom = [&](std::ifstream &stream) {
    stream.rdbuf()->pubsetbuf(reinterpret_cast<char *>(room.data()), kReadBytes);
  };
  std::ifstream in;
  useRoom(in); // some libraries take it before the file is open, some afterwards
  const auto &name = file.native();
  if (std::ranges::find(name, std::filesystem::path::value_type()) == name.end()) { // the system would read less of it
    in.open(file, std::ios::binary);
  }
  detail::check(in.is_open(), "the file cannot be opened");
  useRoom(in);
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(file, unknown);
  std::uintmax_t done = 0;
  SecretBytes buffer(kReadBytes);
  const auto next = [&] {
    in.read(reinterpret_cast<char *>(buffer.data()), kReadBytes);
    return static_cast<std::size_t>(in.gcount());
  };
  while (const std::size_t count = next()) {
    take(std::span(buffer).first(count));
    done += count;
    if (progress) {
      progress(done, unknown ? 0 : size);
    }
  }
  detail::check(in.eof() && !in.bad(), "the file cannot be read");
}

template <HashClass T>
std::array<unsigned char, kDigestBytes<T>> digestFile(const std::filesystem::path &file, const Progress &progress) {
  Digest<T> digest;
  readInPieces(
      file, [&](ByteView piece) { digest.update(piece); }, progress);
  return digest.final();
}

// MACs.

template <HashClass T> Mac<T>::Mac(ByteView key) {
  constexpr std::size_t kLeastInFipsMode = 14; // modules refuse shorter ones without being heard: see above
  detail::check(key.size() >= (krFipsMode() != 0 ? kLeastInFipsMode : 1) && key.size() <= INT_MAX,
                "this cannot be the key of a MAC");
  hmac_.Init(); // for the external FIPS module
  hmac_.SetKey(key.data(), key.size());
}

template <HashClass T> Mac<T> &Mac<T>::update(ByteView data) {
  life_.go();
  detail::forEachPiece(std::span(data), [&](auto piece) { hmac_.Update(piece.data(), piece.size()); });
  return *this;
}

template <HashClass T> void Mac<T>::finish(std::span<unsigned char, kDigestBytes<T>> out) {
  life_.end();
  detail::check(detail::writesOver(detail::kFill, out, [&] { hmac_.Final(out.data()); }), detail::kNotDone);
}

template <HashClass T> MacTag<T> Mac<T>::final() {
  MacTag<T> tag;
  finish(tag);
  return tag;
}

template <HashClass T> bool Mac<T>::verify(ByteView tag) noexcept {
  try {
    const MacTag<T> own = final();
    return tag.size() == own.size() && CRYPTO_memcmp(own.data(), tag.data(), own.size()) == 0;
  } catch (...) {
    return false;
  }
}

template <HashClass T> MacTag<T> mac(ByteView key, ByteView data) { return Mac<T>(key).update(data).final(); }

template <HashClass T> bool verifyMac(ByteView key, ByteView data, ByteView tag) noexcept {
  try {
    return Mac<T>(key).update(data).verify(tag);
  } catch (...) {
    return false;
  }
}

// Random bytes.

namespace detail {

inline void fillRandom(std::span<unsigned char> out) {
  forEachPiece(out, [](std::span<unsigned char> piece) {
    const bool filled = krFipsMode() != 0 ? RAND_priv_bytes(piece.data(), static_cast<int>(piece.size())) == 1
                                          : krPlatformGetSeed(piece.data(), piece.size()) == 1;
    check(filled, "there are no random bytes");
  });
}

} // namespace detail

inline SecretBytes randomBytes(std::size_t count) {
  SecretBytes bytes;
  if (count > bytes.max_size()) {
    throw std::bad_alloc();
  }
  bytes.resize(count);
  detail::fillRandom(bytes);
  return bytes;
}

template <std::size_t Size> SecretArray<Size> randomBytes() {
  SecretArray<Size> bytes;
  detail::fillRandom(bytes);
  return bytes;
}

// AES-CBC.

namespace detail {

/// Encrypts whole blocks in their place.
/// @return false when the class wrote nothing: what is left is plain text
template <unsigned Bits>
bool encryptInPlace(const SecretArray<Bits / 8> &key, const SecretArray<kAesBlockBytes> &iv,
                    std::span<unsigned char> text, std::size_t pieceBytes) {
  bool done = true;
  const unsigned char *chain = iv.data();
  const auto encrypt = [&](std::span<unsigned char> piece) {
    const auto last = piece.last(kAesBlockBytes);
    SecretArray<kAesBlockBytes> before;
    std::copy(last.begin(), last.end(), before.begin());
    kroAESCipher<Bits>::Encrypt(piece.data(), chain, key.data(), piece.data(), piece.size());
    done = done && CRYPTO_memcmp(last.data(), before.data(), kAesBlockBytes) != 0;
    chain = last.data();
  };
  forEachPiece(text, encrypt, pieceBytes);
  return done;
}

/// Appends the data, padded and encrypted.
template <unsigned Bits>
void appendEncrypted(std::vector<unsigned char> &out, const SecretArray<Bits / 8> &key,
                     const SecretArray<kAesBlockBytes> &iv, ByteView data, std::size_t pieceBytes = kPieceBytes) {
  const std::size_t at = out.size();
  const std::size_t padding = kAesBlockBytes - data.size() % kAesBlockBytes;
  out.reserve(at + data.size() + padding); // or plain text would be left where it was before
  out.insert(out.end(), data.begin(), data.end());
  out.insert(out.end(), padding, static_cast<unsigned char>(padding));
  const auto text = std::span(out).subspan(at);
  if (!encryptInPlace<Bits>(key, iv, text, pieceBytes)) {
    OPENSSL_cleanse(text.data(), text.size());
    throw CryptoError(kNotDone);
  }
}

/// Decrypts whole blocks. They are written from the first to the last, so the last tells of all.
template <unsigned Bits>
void decryptBlocks(const SecretArray<Bits / 8> &key, const SecretArray<kAesBlockBytes> &iv, ByteView in,
                   SecretBytes &out, std::size_t pieceBytes) {
  unsigned char *to = out.data();
  const unsigned char *chain = iv.data();
  const auto decrypt = [&](std::span<const unsigned char> piece) {
    write(std::span(to, piece.size()).last(kAesBlockBytes),
          [&] { kroAESCipher<Bits>::Decrypt(to, chain, key.data(), piece.data(), piece.size()); });
    chain = piece.last(kAesBlockBytes).data();
    to += piece.size();
  };
  forEachPiece(std::span(in), decrypt, pieceBytes);
}

/// The bytes of PKCS#7 padding at the end of the block, in the same time for every block; 0 for what is none.
inline std::size_t paddingOf(std::span<const unsigned char, kAesBlockBytes> block) noexcept {
  const unsigned count = block.back();
  unsigned wrong = ~below(count - 1, kAesBlockBytes);
  for (unsigned i = 0; i < kAesBlockBytes; ++i) {
    wrong |= (block[kAesBlockBytes - 1 - i] ^ count) & below(i, count);
  }
  return wrong == 0 ? count : 0;
}

template <unsigned Bits>
std::optional<SecretBytes> decrypt(const SecretArray<Bits / 8> &key, const SecretArray<kAesBlockBytes> &iv,
                                   ByteView data, std::size_t pieceBytes = kPieceBytes) {
  if (data.empty() || data.size() % kAesBlockBytes != 0) {
    return std::nullopt;
  }
  SecretBytes text(data.size());
  decryptBlocks<Bits>(key, iv, data, text, pieceBytes);
  const std::size_t padding = paddingOf(std::span(text).template last<kAesBlockBytes>());
  if (padding == 0) {
    return std::nullopt;
  }
  text.resize(text.size() - padding);
  return text;
}

} // namespace detail

template <unsigned Bits>
requires AesBits<Bits> std::vector<unsigned char> encryptCbc(const SecretArray<Bits / 8> &key, const CbcIvOf<Bits> &iv,
                                                             ByteView data) {
  std::vector<unsigned char> out;
  detail::appendEncrypted<Bits>(out, key, iv.bytes, data);
  return out;
}

template <unsigned Bits>
requires AesBits<Bits> std::optional<SecretBytes> decryptCbc(const SecretArray<Bits / 8> &key, const CbcIvOf<Bits> &iv,
                                                             ByteView data) {
  return detail::decrypt<Bits>(key, iv.bytes, data);
}

// Sealing.

namespace detail {

inline constexpr unsigned char kSealVersion = 1;
inline constexpr std::size_t kSealHeadBytes = 2 + kAesBlockBytes; // version, key bytes, initial value
inline constexpr std::size_t kSealTagBytes = kDigestBytes<kroSHA256>;

template <unsigned Bits> SecretArray<Bits / 8> encryptionKey(const SealKeys<Bits> &keys) {
  return std::span(keys.bytes()).template first<Bits / 8>();
}

template <unsigned Bits>
MacTag<kroSHA256> sealTag(const SealKeys<Bits> &keys, ByteView head, ByteView associated, ByteView text) {
  std::array<unsigned char, sizeof(std::uint64_t)> length; // or bytes could move between associated data and text
  std::uint64_t rest = associated.size();
  for (std::size_t i = length.size(); i-- > 0; rest >>= 8U) {
    length[i] = static_cast<unsigned char>(rest);
  }
  Mac<kroSHA256> tag(std::span(keys.bytes()).template subspan<Bits / 8>());
  return tag.update(head).update(length).update(associated).update(text).final();
}

} // namespace detail

template <unsigned Bits>
std::vector<unsigned char> seal(const SealKeys<Bits> &keys, ByteView data, ByteView associated) {
  using namespace detail;
  std::vector<unsigned char> out;
  out.reserve(kSealHeadBytes + data.size() + kAesBlockBytes + kSealTagBytes);
  const auto iv = randomBytes<kAesBlockBytes>();
  out.insert(out.end(), {kSealVersion, static_cast<unsigned char>(Bits / 8)});
  out.insert(out.end(), iv.begin(), iv.end());
  appendEncrypted<Bits>(out, encryptionKey(keys), iv, data);
  const auto sealed = std::span(out);
  const auto tag = sealTag(keys, sealed.first(kSealHeadBytes), associated, sealed.subspan(kSealHeadBytes));
  out.insert(out.end(), tag.begin(), tag.end());
  return out;
}

template <unsigned Bits>
std::optional<SecretBytes> open(const SealKeys<Bits> &keys, ByteView sealed, ByteView associated) {
  using namespace detail;
  const std::span all(sealed);
  if (all.size() < kSealHeadBytes + kAesBlockBytes + kSealTagBytes || all[0] != kSealVersion || all[1] != Bits / 8) {
    return std::nullopt;
  }
  const auto head = all.first(kSealHeadBytes);
  const auto text = all.subspan(kSealHeadBytes, all.size() - kSealHeadBytes - kSealTagBytes);
  const auto tag = all.last(kSealTagBytes);
  const auto own = sealTag(keys, head, associated, text);
  if (CRYPTO_memcmp(own.data(), tag.data(), kSealTagBytes) != 0) {
    return std::nullopt;
  }
  return decrypt<Bits>(encryptionKey(keys), head.template last<kAesBlockBytes>(), text);
}

// AES key wrap.

namespace detail {

inline constexpr std::size_t kSemiblockBytes = 8;

inline bool canBeWrapped(std::size_t keyBytes) noexcept {
  return keyBytes >= kSemiblockBytes && keyBytes % kSemiblockBytes == 0 && keyBytes <= INT_MAX - kSemiblockBytes;
}

inline bool wrap(ByteView kek, ByteView key, std::span<unsigned char> out) {
  kroAESWrap wrap;
  wrap.SetEncryptKey(kek.data(), kek.size());
  return wrap.Encrypt(out.data(), key.data(), key.size(), nullptr);
}

/// Whether an object that says no is able to say yes: it is given what is wrapped for the purpose.
inline bool canUnwrap(kroAESWrap &unwrap, ByteView kek) {
  const SecretArray<2 * kSemiblockBytes> any; // RFC 3394 has no less
  std::array<unsigned char, 3 * kSemiblockBytes> wrapped{};
  SecretArray<2 * kSemiblockBytes> out;
  return wrap(kek, any, wrapped) && unwrap.Decrypt(out.data(), out.size(), wrapped.data(), nullptr);
}

} // namespace detail

std::vector<unsigned char> wrapKey(const KeyEncryptionKey auto &kek, ByteView key) {
  detail::check(detail::canBeWrapped(key.size()), "key data to wrap have another length");
  std::vector<unsigned char> wrapped(key.size() + detail::kSemiblockBytes);
  detail::check(detail::wrap(kek, key, wrapped), detail::kNotDone);
  return wrapped;
}

std::optional<SecretBytes> unwrapKey(const KeyEncryptionKey auto &kek, ByteView wrapped) {
  const ByteView kekBytes(kek);
  if (wrapped.size() < detail::kSemiblockBytes || !detail::canBeWrapped(wrapped.size() - detail::kSemiblockBytes)) {
    return std::nullopt;
  }
  SecretBytes key(wrapped.size() - detail::kSemiblockBytes);
  kroAESWrap unwrap;
  unwrap.SetDecryptKey(kekBytes.data(), kekBytes.size());
  const auto unwraps = [&] { return unwrap.Decrypt(key.data(), key.size(), wrapped.data(), nullptr); };
  if (unwraps()) {
    return key;
  }
  // The class answers false for damage, and for what it cannot do. What it could not do then it may do now.
  detail::check(detail::canUnwrap(unwrap, kekBytes), detail::kNotDone);
  return unwraps() ? std::optional(std::move(key)) : std::nullopt;
}

} // namespace krOpenSSL
