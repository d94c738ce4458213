// RSA's paddings, by OpenSSL.
#include "Padding.h"

#include "Failure.h"

#include <openssl/err.h>

namespace krHolder {

Bytes pssBlock(EVP_PKEY *key, const Signing &what) {
  Bytes block(static_cast<std::size_t>(EVP_PKEY_size(key)));
  if (RSA_padding_add_PKCS1_PSS_mgf1(krOpenSSL::keyObject::rsaOf(key), block.data(), what.value.data(), what.digest,
                                     what.maskDigest, what.saltBytes) != 1) {
    ERR_clear_error();
    throw Refusal(Status::badRequest, "the key is too short for the digest and the salt");
  }
  return block;
}

Bytes withoutPadding(EVP_PKEY *key, const Decrypting &what, View block) {
  const int size = EVP_PKEY_size(key);
  if (block.size() != static_cast<std::size_t>(size)) {
    throw std::runtime_error("the block has another length than the key");
  }
  Bytes text(block.size());
  const int length =
      what.padding == RSA_PKCS1_PADDING
          ? RSA_padding_check_PKCS1_type_2(text.data(), size, block.data(), size, size)
          : RSA_padding_check_PKCS1_OAEP_mgf1(text.data(), size, block.data(), size, size, what.label.data(),
                                              static_cast<int>(what.label.size()), what.digest, what.maskDigest);
  ERR_clear_error();
  if (length < 0) {
    throw std::runtime_error("the padding is wrong");
  }
  text.resize(static_cast<std::size_t>(length));
  return text;
}

} // namespace krHolder
