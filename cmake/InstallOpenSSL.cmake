# Lays down the OpenSSL that the library was built with: its two libraries beside ours, its licence, and what compilers
# need in a folder of its own, where it hides no other OpenSSL.
get_filename_component(_prefix ${OPENSSL_INCLUDE_DIR} DIRECTORY)
set(_own ${CMAKE_INSTALL_LIBDIR}/openssl-1.1)

find_file(KR_OPENSSL_LICENSE NAMES LICENSE copyright PATHS ${_prefix} PATH_SUFFIXES share/doc/openssl NO_DEFAULT_PATH
  DOC "The licence of the OpenSSL that is installed along")
if(NOT KR_OPENSSL_LICENSE)
  message(FATAL_ERROR "KR_INSTALL_OPENSSL lays OpenSSL's licence down too, and found none below ${_prefix}: run "
    "scripts/openssl.sh again, or name the file with KR_OPENSSL_LICENSE.")
endif()
install(FILES ${KR_OPENSSL_LICENSE} DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME LICENSE.OpenSSL)
install(DIRECTORY ${OPENSSL_INCLUDE_DIR}/openssl DESTINATION ${_own}/include)

foreach(_library libssl libcrypto)
  if(WIN32)
    install(FILES ${_prefix}/bin/${_library}-1_1-x64.dll DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${_prefix}/lib/${_library}.dll.a DESTINATION ${_own}/lib)
  else()
    set(_link ${PROJECT_BINARY_DIR}/openssl-1.1/${_library}.so)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/openssl-1.1)
    file(CREATE_LINK ../../${_library}.so.1.1 ${_link} SYMBOLIC)
    install(FILES ${_prefix}/lib/${_library}.so.1.1 DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(FILES ${_link} DESTINATION ${_own}/lib)
  endif()
endforeach()
