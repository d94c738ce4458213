// The way from a file to a key, in two layers as libcrypto's own: from PEM to DER, from DER to the key.
#include "Algorithms.h"

#include <openssl/core_names.h>
#include <openssl/core_object.h>
#include <openssl/err.h>
#include <openssl/params.h>
#include <openssl/pem.h>

#include <optional>

namespace krProvider {

namespace {

constexpr std::size_t kMaxReferenceBytes = 65536;

// The errors of reading what turns out to be somebody else's.
class ErrorMark {
public:
  ErrorMark() noexcept { ERR_set_mark(); }
  ~ErrorMark() { ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark &) = delete;
  ErrorMark &operator=(const ErrorMark &) = delete;
};

BioPtr openInput(const Provider &provider, OSSL_CORE_BIO *input) {
  BioPtr bio(BIO_new_from_core_bio(provider.library(), input));
  return bio ? std::move(bio) : throw Raised();
}

krHolder::Reference readReference(krHolder::View der) {
  try {
    return krHolder::decodeReference(der);
  } catch (const krHolder::BadReference &bad) {
    throw Failure(Reason::reference, bad.what());
  }
}

// Whether the next block of a PEM file has our label, the rest of it being damaged.
bool isOursDamaged(BIO *input) noexcept {
  constexpr std::string_view kBegin = "-----BEGIN ";
  char line[256];
  while (BIO_gets(input, line, sizeof line) > 0) {
    const std::string_view text = line;
    if (text.starts_with(kBegin)) {
      return text.substr(kBegin.size()).starts_with(krHolder::kReferenceLabel);
    }
  }
  return false;
}

// One block of a PEM file; wiped, for it may be anybody's private key.
class Block {
public:
  explicit Block(BIO *input) {
    const ErrorMark mark;
    const auto start = BIO_tell(input);
    if (PEM_read_bio(input, &label_, &header_, &data_, &length_) != 1 && BIO_seek(input, start) >= 0 &&
        isOursDamaged(input)) {
      throw Failure(Reason::reference, "its base64 is damaged");
    }
  }
  ~Block() {
    OPENSSL_free(label_);
    OPENSSL_free(header_);
    OPENSSL_clear_free(data_, der().size());
  }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;

  std::string_view label() const { return label_ != nullptr ? label_ : ""; }
  krHolder::View der() const { return {data_, static_cast<std::size_t>(length_)}; }

private:
  char *label_ = nullptr;
  char *header_ = nullptr;
  unsigned char *data_ = nullptr;
  long length_ = 0;
};

OSSL_PARAM text(const char *name, const char *value) {
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char *>(value), 0);
}

// Takes whichever block comes, so that libcrypto goes on to the next one. With ours, everything that can be wrong with
// it is told here: further on only libcrypto's own "unsupported" would be.
int decodePem(Provider &provider, OSSL_CORE_BIO *input, OSSL_CALLBACK *take, void *argument) {
  const BioPtr bio = openInput(provider, input);
  const Block block(bio.get());
  if (block.label() != krHolder::kReferenceLabel) {
    return 1;
  }
  const Key key(provider, readReference(block.der()));
  int type = OSSL_OBJECT_PKEY;
  const OSSL_PARAM params[] = {
      text(OSSL_OBJECT_PARAM_DATA_TYPE, nameOf(key.kind())), text(OSSL_OBJECT_PARAM_DATA_STRUCTURE, kStructure),
      OSSL_PARAM_construct_octet_string(OSSL_OBJECT_PARAM_DATA, const_cast<unsigned char *>(block.der().data()),
                                        block.der().size()),
      OSSL_PARAM_construct_int(OSSL_OBJECT_PARAM_TYPE, &type), OSSL_PARAM_construct_end()};
  return take(params, argument);
}

krHolder::Bytes readAll(BIO *bio) {
  krHolder::Bytes bytes(kMaxReferenceBytes);
  std::size_t length = 0;
  std::size_t more = 0;
  while (length < bytes.size() && BIO_read_ex(bio, bytes.data() + length, bytes.size() - length, &more) == 1) {
    length += more;
  }
  bytes.resize(length);
  return bytes;
}

std::optional<krHolder::Reference> ifReference(krHolder::View der) {
  try {
    return krHolder::decodeReference(der);
  } catch (const krHolder::BadReference &) {
    return {};
  }
}

int decodeDer(Provider &provider, Kind kind, OSSL_CORE_BIO *input, OSSL_CALLBACK *take, void *argument) {
  const auto reference = ifReference(readAll(openInput(provider, input).get()));
  if (!reference) {
    return 1;
  }
  auto key = std::make_shared<const Key>(provider, *reference);
  if (key->kind() != kind) {
    return 1;
  }
  auto share = std::make_unique<Share>(std::move(key));
  Share *place = share.release();
  int type = OSSL_OBJECT_PKEY;
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_int(OSSL_OBJECT_PARAM_TYPE, &type),
                               text(OSSL_OBJECT_PARAM_DATA_TYPE, nameOf(kind)),
                               OSSL_PARAM_construct_octet_string(OSSL_OBJECT_PARAM_REFERENCE, &place, sizeof(void *)),
                               OSSL_PARAM_construct_end()};
  const int result = take(params, argument);
  delete place; // unless it was taken out
  return result;
}

// A decoder has nothing of its own to remember.
void *newContext(void *provider) noexcept { return provider; }
void freeContext(void * /*context*/) noexcept {}

int doesSelection(void * /*provider*/, int selection) noexcept {
  return selection == 0 || (selection & OSSL_KEYMGMT_SELECT_KEYPAIR) != 0;
}

int pemToDer(void *context, OSSL_CORE_BIO *input, int /*selection*/, OSSL_CALLBACK *take, void *argument,
             OSSL_PASSPHRASE_CALLBACK * /*ask*/, void * /*askArgument*/) noexcept {
  auto &provider = *static_cast<Provider *>(context);
  return guarded(provider, [&] { return decodePem(provider, input, take, argument); });
}

template <Kind kind>
int derToKey(void *context, OSSL_CORE_BIO *input, int /*selection*/, OSSL_CALLBACK *take, void *argument,
             OSSL_PASSPHRASE_CALLBACK * /*ask*/, void * /*askArgument*/) noexcept {
  auto &provider = *static_cast<Provider *>(context);
  return guarded(provider, [&] { return decodeDer(provider, kind, input, take, argument); });
}

using Table = std::array<OSSL_DISPATCH, 5>;
Table table(OSSL_FUNC_decoder_decode_fn *decode) noexcept {
  return {row<OSSL_FUNC_decoder_newctx_fn>(OSSL_FUNC_DECODER_NEWCTX, newContext),
          row<OSSL_FUNC_decoder_freectx_fn>(OSSL_FUNC_DECODER_FREECTX, freeContext),
          row<OSSL_FUNC_decoder_does_selection_fn>(OSSL_FUNC_DECODER_DOES_SELECTION, doesSelection),
          row<OSSL_FUNC_decoder_decode_fn>(OSSL_FUNC_DECODER_DECODE, decode),
          {}};
}

} // namespace

const OSSL_DISPATCH *pemDecoder() noexcept {
  static const Table rows = table(pemToDer);
  return rows.data();
}

const OSSL_DISPATCH *keyDecoder(Kind kind) noexcept {
  static const Table rsa = table(derToKey<Kind::rsa>);
  static const Table rsaPss = table(derToKey<Kind::rsaPss>);
  static const Table ec = table(derToKey<Kind::ec>);
  switch (kind) {
  case Kind::rsa:
    return rsa.data();
  case Kind::rsaPss:
    return rsaPss.data();
  default:
    return ec.data();
  }
}

} // namespace krProvider
