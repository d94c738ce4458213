# `cpack` makes Debian packages: of the library over the system's OpenSSL 3 and its development files, and of the key
# holder and the provider where they are built. What only a package has is below EXCLUDE_FROM_ALL, since it has places of
# its own outside of any prefix: `cmake --install` leaves it alone.
if(NOT KR_OPENSSL_SERIES EQUAL 3 OR KR_INSTALL_OPENSSL)
  message(FATAL_ERROR "Debian packages are made over the system's OpenSSL 3: set KR_OPENSSL_SERIES to 3.")
endif()

set(_debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(_soname_version ${PROJECT_VERSION_MAJOR}-openssl3)
set(KR_PACKAGE_CONTACT "krOpenSSL maintainers <maintainers@kropenssl.example>" CACHE STRING
  "Who answers for the Debian packages: name <address>")

# Manual pages and changelogs are compressed there, with no time in it.
function(kr_compressed file out)
  get_filename_component(_name ${file} NAME)
  configure_file(${file} ${PROJECT_BINARY_DIR}/debian/${_name} @ONLY)
  execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/debian/${_name} COMMAND_ERROR_IS_FATAL ANY)
  set(${out} ${PROJECT_BINARY_DIR}/debian/${_name}.gz PARENT_SCOPE)
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
set(CPACK_PACKAGE_CONTACT ${KR_PACKAGE_CONTACT})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kropenssl)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/krOpenSSL)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkropenssl64-${_soname_version})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "private keys outside of OpenSSL, FIPS mode, crypto classes
The library krOpenSSL64 between programs and OpenSSL 3. Private keys stay in
another process, a token or a service, which makes the signatures of OpenSSL's
connections. It has a FIPS mode by wolfEngine, random numbers by FIPS 186-2,
and classes for digests, HMAC and ciphers.")
# shlibs here and not by CPack, which would ask for the very same version.
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libkrOpenSSL64 ${_soname_version} ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkropenssl64-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libssl-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "private keys outside of OpenSSL - development files
Headers, CMake package and pkg-config file of the library krOpenSSL64 over
OpenSSL 3.")

if(KR_BUILD_HOLDER)
  list(APPEND CPACK_COMPONENTS_ALL holder)
  set(CPACK_DEBIAN_HOLDER_PACKAGE_NAME krholder)
  set(CPACK_DEBIAN_HOLDER_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_HOLDER_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
  set(CPACK_DEBIAN_HOLDER_PACKAGE_SUGGESTS krprovider)
  set(CPACK_COMPONENT_HOLDER_DEPENDS library)
  set(CPACK_COMPONENT_HOLDER_DESCRIPTION "keeps private keys for servers, outside of them
A daemon that has the private keys of servers and signs for them, over a Unix
socket and by a policy for each key. The server's configuration has a reference
in the key's place, which krref makes and checks.")
  set(CPACK_DEBIAN_HOLDER_PACKAGE_CONTROL_EXTRA
    ${_debian}/krholder/postinst ${_debian}/krholder/prerm ${_debian}/krholder/postrm ${_debian}/krholder/conffiles)

  set(_own ${PROJECT_SOURCE_DIR}/packaging/krholder)
  install(FILES ${_own}/krholder.service ${_own}/krholder.socket DESTINATION /lib/systemd/system
    COMPONENT holder EXCLUDE_FROM_ALL)
  install(FILES ${_own}/krholder.conf DESTINATION /usr/lib/sysusers.d COMPONENT holder EXCLUDE_FROM_ALL)
  kr_compressed(${PROJECT_SOURCE_DIR}/holder/man/krholder.8 _krholder)
  kr_compressed(${PROJECT_SOURCE_DIR}/holder/man/krref.1 _krref)
  install(FILES ${_krholder} DESTINATION /usr/share/man/man8 COMPONENT holder EXCLUDE_FROM_ALL)
  install(FILES ${_krref} DESTINATION /usr/share/man/man1 COMPONENT holder EXCLUDE_FROM_ALL)
  install(DIRECTORY DESTINATION /etc/krholder COMPONENT holder EXCLUDE_FROM_ALL
    DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
  install(FILES ${_own}/krholder.toml DESTINATION /etc/krholder COMPONENT holder EXCLUDE_FROM_ALL
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ)
endif()

if(KR_BUILD_PROVIDER)
  list(APPEND CPACK_COMPONENTS_ALL provider)
  set(CPACK_DEBIAN_PROVIDER_PACKAGE_NAME krprovider)
  set(CPACK_DEBIAN_PROVIDER_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PROVIDER_PACKAGE_SUGGESTS krholder)
  set(CPACK_COMPONENT_PROVIDER_DESCRIPTION "private keys at a key holder, for programs of OpenSSL 3
A provider that has unchanged programs of OpenSSL 3 take a reference where they
take a key file, and have their signatures made by krholder. OpenSSL loads it
once its configuration says so.")
  set(CPACK_DEBIAN_PROVIDER_PACKAGE_CONTROL_EXTRA ${_debian}/krprovider/conffiles)
  install(FILES ${PROJECT_SOURCE_DIR}/provider/krprovider.cnf DESTINATION /etc/ssl
    COMPONENT provider EXCLUDE_FROM_ALL)
endif()

# Each package's copyright and changelog, of the day of the release.
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md _release REGEX "^## ${PROJECT_VERSION} - [0-9]")
string(REGEX REPLACE "^.* - " "" _release "${_release}")
execute_process(COMMAND date --utc --rfc-email --date=${_release} OUTPUT_VARIABLE _date OUTPUT_STRIP_TRAILING_WHITESPACE)
kr_compressed(${_debian}/changelog.Debian _changelog)
foreach(_component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${_component} _upper)
  install(FILES ${_debian}/copyright ${_changelog}
    DESTINATION /usr/share/doc/${CPACK_DEBIAN_${_upper}_PACKAGE_NAME} COMPONENT ${_component} EXCLUDE_FROM_ALL)
endforeach()
