# Finds the OpenSSL that the library works with, for the build, and for programs that use what was installed: 1.1.1, or
# with a series of 3 any 3.x.

# Leaves in `problem` what is wrong, nothing when one of the series was found. What was found instead is not remembered,
# so that the next run looks again.
macro(kr_find_openssl series problem)
  find_package(OpenSSL COMPONENTS SSL Crypto)
  set(_kr_wanted "1.1.1")
  set(_kr_pattern "^1\\.1\\.1")
  if("${series}" EQUAL 3)
    set(_kr_wanted "3")
    set(_kr_pattern "^3\\.")
  endif()
  set(${problem} "")
  if(NOT OPENSSL_FOUND)
    set(${problem} "This krOpenSSL needs OpenSSL ${_kr_wanted}, and found no OpenSSL to build with.")
  elseif(NOT OPENSSL_VERSION MATCHES "${_kr_pattern}")
    set(${problem} "This krOpenSSL needs OpenSSL ${_kr_wanted}, but found ${OPENSSL_VERSION} (${OPENSSL_INCLUDE_DIR}).")
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
