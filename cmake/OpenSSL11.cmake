# Finds OpenSSL 1.1.1: OPENSSL_ROOT_DIR (variable or environment), else what scripts/openssl.sh unpacked, or for
# Windows scripts/openssl-windows.sh.
set(_unpacked "${CMAKE_CURRENT_LIST_DIR}/../.deps/openssl-1.1")
if(WIN32)
  string(APPEND _unpacked -windows)
endif()
if(NOT DEFINED OPENSSL_ROOT_DIR AND NOT DEFINED ENV{OPENSSL_ROOT_DIR} AND EXISTS "${_unpacked}")
  get_filename_component(OPENSSL_ROOT_DIR "${_unpacked}" ABSOLUTE)
endif()

find_package(OpenSSL REQUIRED COMPONENTS SSL Crypto)

if(WIN32)
  get_filename_component(_prefix ${OPENSSL_INCLUDE_DIR} DIRECTORY)
  file(COPY ${_prefix}/bin/libcrypto-1_1-x64.dll ${_prefix}/bin/libssl-1_1-x64.dll DESTINATION ${PROJECT_BINARY_DIR}/bin)
endif()

if(NOT OPENSSL_VERSION MATCHES "^1\\.1\\.1")
  message(FATAL_ERROR
    "krOpenSSL needs OpenSSL 1.1.1, but found ${OPENSSL_VERSION} (${OPENSSL_INCLUDE_DIR}). "
    "Run scripts/openssl.sh to unpack one into .deps, or set OPENSSL_ROOT_DIR to yours.")
endif()
