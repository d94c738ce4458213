# Chooses the OpenSSL to build with: OPENSSL_ROOT_DIR (variable or environment), else for KR_OPENSSL_SERIES 3 the
# system's, and for 1 what scripts/openssl.sh unpacked, or for Windows scripts/openssl-windows.sh. KR_OPENSSL_UNPACKED
# says that it is the latter.
set(KR_OPENSSL_SERIES 1 CACHE STRING "The OpenSSL to build with: 1 for 1.1.1, 3 for 3.x")
set_property(CACHE KR_OPENSSL_SERIES PROPERTY STRINGS 1 3)

set(_unpacked "${CMAKE_CURRENT_LIST_DIR}/../.deps/openssl-1.1")
if(WIN32)
  string(APPEND _unpacked -windows)
endif()
set(KR_OPENSSL_UNPACKED OFF)
if(KR_OPENSSL_SERIES EQUAL 1 AND NOT DEFINED OPENSSL_ROOT_DIR AND NOT DEFINED ENV{OPENSSL_ROOT_DIR} AND EXISTS "${_unpacked}")
  get_filename_component(OPENSSL_ROOT_DIR "${_unpacked}" ABSOLUTE)
  set(KR_OPENSSL_UNPACKED ON)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/SupportedOpenSSL.cmake)
kr_find_openssl(${KR_OPENSSL_SERIES} _problem)
if(_problem AND KR_OPENSSL_SERIES EQUAL 3)
  message(FATAL_ERROR "${_problem} Install the system's (Debian: libssl-dev), or set OPENSSL_ROOT_DIR to yours.")
elseif(_problem)
  message(FATAL_ERROR "${_problem} Run scripts/openssl.sh to unpack one into .deps, or set OPENSSL_ROOT_DIR to yours; "
    "the presets dev-openssl3 and release-openssl3 build with the system's OpenSSL 3.")
endif()

# In OpenSSL 3 the engines and all that is below EVP are deprecated, and there to its end.
add_compile_definitions(OPENSSL_SUPPRESS_DEPRECATED)

if(WIN32)
  get_filename_component(_prefix ${OPENSSL_INCLUDE_DIR} DIRECTORY)
  file(COPY ${_prefix}/bin/libcrypto-1_1-x64.dll ${_prefix}/bin/libssl-1_1-x64.dll DESTINATION ${PROJECT_BINARY_DIR}/bin)
endif()
