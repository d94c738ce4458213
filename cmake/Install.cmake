# What `cmake --install` lays down: the library, its headers, a CMake package and a pkg-config file, and the OpenSSL
# that scripts/openssl.sh unpacked, which is nowhere else on the machine.
include(CMakePackageConfigHelpers)

set(_package ${CMAKE_INSTALL_LIBDIR}/cmake/krOpenSSL)

install(TARGETS krOpenSSL64 EXPORT krOpenSSLTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(MINGW)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/krOpenSSL64.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/krOpenSSL DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT krOpenSSLTargets NAMESPACE krOpenSSL:: DESTINATION ${_package})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/krOpenSSLConfig.cmake.in
  ${PROJECT_BINARY_DIR}/krOpenSSLConfig.cmake INSTALL_DESTINATION ${_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/krOpenSSLConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/krOpenSSLConfig.cmake ${PROJECT_BINARY_DIR}/krOpenSSLConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/SupportedOpenSSL.cmake
  DESTINATION ${_package})

set(_lay_down ${KR_OPENSSL_UNPACKED})
if(WIN32)
  set(_lay_down OFF) # the one that is unpacked there is for tests
endif()
option(KR_INSTALL_OPENSSL "Install OpenSSL beside the library" ${_lay_down})
set(_openssl_requires "libssl >= 1.1.1, libssl < 3, libcrypto >= 1.1.1, libcrypto < 3")
set(_openssl_cflags " -DOPENSSL_SUPPRESS_DEPRECATED -DKR_OPENSSL_SERIES=${KR_OPENSSL_SERIES}")
if(KR_OPENSSL_SERIES EQUAL 3)
  set(_openssl_requires "libssl >= 3, libssl < 4, libcrypto >= 3, libcrypto < 4")
endif()
if(KR_INSTALL_OPENSSL)
  include(${CMAKE_CURRENT_LIST_DIR}/InstallOpenSSL.cmake)
  set(_openssl_requires)
  set(_openssl_libs " -L\${libdir}/openssl-1.1/lib -lssl -lcrypto")
  string(APPEND _openssl_cflags " -I\${libdir}/openssl-1.1/include")
endif()

file(RELATIVE_PATH _to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" _to_prefix ${_to_prefix})
configure_file(${PROJECT_SOURCE_DIR}/cmake/krOpenSSL64.pc.in ${PROJECT_BINARY_DIR}/krOpenSSL64.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/krOpenSSL64.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
