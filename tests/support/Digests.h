// The seven digest classes as one table.
#pragma once

#include "support/Vectors.h"

#include <krOpenSSL/kroHMAC.h>
#include <krOpenSSL/kroHash.h>

#include <openssl/evp.h>

#include <cstddef>

namespace krTest {

template <class T> struct DigestRow {
  const char *name; ///< as in the vector files
  const EVP_MD *algorithm;
  std::size_t size;
  bool inFipsMode;
};

/// Calls @p use with the row of each digest.
template <class Use> void forEachDigest(Use use) {
  use(DigestRow<kroMD4>{"MD4", EVP_md4(), 16, false});
  use(DigestRow<kroMD5>{"MD5", EVP_md5(), 16, false});
  use(DigestRow<kroSHA1>{"SHA1", EVP_sha1(), 20, true});
  use(DigestRow<kroSHA224>{"SHA224", EVP_sha224(), 28, true});
  use(DigestRow<kroSHA256>{"SHA256", EVP_sha256(), 32, true});
  use(DigestRow<kroSHA384>{"SHA384", EVP_sha384(), 48, true});
  use(DigestRow<kroSHA512>{"SHA512", EVP_sha512(), 64, true});
}

const Bytes kUntouched(65, 0xEE);

template <class Object> void update(Object &object, const Bytes &data) { object.Update(data.data(), data.size()); }

/// What Final writes, and the bytes after it.
template <class Object> Bytes finish(Object &object) {
  Bytes out = kUntouched;
  object.Final(out.data());
  return out;
}

} // namespace krTest
