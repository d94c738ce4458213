// The tables of functions behind each algorithm.
#pragma once

#include "Key.h"

#include <openssl/core.h>

namespace krProvider {

const OSSL_DISPATCH *keyManagement(Kind kind) noexcept;
const OSSL_DISPATCH *keyDecoder(Kind kind) noexcept;
const OSSL_DISPATCH *pemDecoder() noexcept;
const OSSL_DISPATCH *signature() noexcept;
const OSSL_DISPATCH *cipher() noexcept;

/// The structure that the PEM decoder yields and the key decoders take.
inline constexpr char kStructure[] = "krholder-reference";

} // namespace krProvider
