# Finds OpenSSL 1.1.1: OPENSSL_ROOT_DIR (variable or environment), else what scripts/openssl.sh unpacked, or for
# Windows scripts/openssl-windows.sh. KR_OPENSSL_UNPACKED says that it is the latter.
set(_unpacked "${CMAKE_CURRENT_LIST_DIR}/../.deps/openssl-1.1")
if(WIN32)
  string(APPEND _unpacked -windows)
endif()
set(KR_OPENSSL_UNPACKED OFF)
if(NOT DEFINED OPENSSL_ROOT_DIR AND NOT DEFINED ENV{OPENSSL_ROOT_DIR} AND EXISTS "${_unpacked}")
  get_filename_component(OPENSSL_ROOT_DIR "${_unpacked}" ABSOLUTE)
  set(KR_OPENSSL_UNPACKED ON)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/FindOpenSSL11.cmake)
kr_find_openssl11(_problem)
if(_problem)
  message(FATAL_ERROR "${_problem} Run scripts/openssl.sh to unpack one into .deps, or set OPENSSL_ROOT_DIR to yours.")
endif()

if(WIN32)
  get_filename_component(_prefix ${OPENSSL_INCLUDE_DIR} DIRECTORY)
  file(COPY ${_prefix}/bin/libcrypto-1_1-x64.dll ${_prefix}/bin/libssl-1_1-x64.dll DESTINATION ${PROJECT_BINARY_DIR}/bin)
endif()
