# Finds OpenSSL 1.1.1 for the build, and for programs that use what was installed.

# Leaves in `problem` what is wrong, nothing when 1.1.1 was found. What was found instead is not remembered, so that the
# next run looks again.
macro(kr_find_openssl11 problem)
  find_package(OpenSSL COMPONENTS SSL Crypto)
  set(${problem} "")
  if(NOT OPENSSL_FOUND)
    set(${problem} "krOpenSSL needs OpenSSL 1.1.1, and found no OpenSSL to build with.")
  elseif(NOT OPENSSL_VERSION MATCHES "^1\\.1\\.1")
    set(${problem} "krOpenSSL needs OpenSSL 1.1.1, but found ${OPENSSL_VERSION} (${OPENSSL_INCLUDE_DIR}).")
  endif()
  if(${problem})
    get_cmake_property(_kr_cached CACHE_VARIABLES)
    list(FILTER _kr_cached INCLUDE REGEX
      "^OPENSSL_(ROOT_DIR|INCLUDE_DIR|SSL_LIBRARY|CRYPTO_LIBRARY)$|^OpenSSL_DIR$|^(LIB|SSL)_EAY|_OPENSSL(_|$)")
    foreach(_kr_variable IN LISTS _kr_cached)
      unset(${_kr_variable} CACHE)
    endforeach()
  endif()
endmacro()
