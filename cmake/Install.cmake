# What `cmake --install` lays down: the library, its headers, a CMake package and a pkg-config file.
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
  DESTINATION ${_package})

configure_file(${PROJECT_SOURCE_DIR}/cmake/krOpenSSL64.pc.in ${PROJECT_BINARY_DIR}/krOpenSSL64.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/krOpenSSL64.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
