# What `cmake --install` lays down of the key holder and of the provider, where they are built.
if(TARGET krholder)
  install(TARGETS krholder RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT holder)
  install(TARGETS krref RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT holder)
  install(FILES holder/man/krholder.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT manual)
  install(FILES holder/man/krref.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT manual)
endif()
if(TARGET krprovider)
  # Where the system's OpenSSL looks for it, when the prefix is the system's.
  pkg_get_variable(_crypto_prefix libcrypto prefix)
  pkg_get_variable(_modules libcrypto modulesdir)
  file(RELATIVE_PATH _modules ${_crypto_prefix} ${_modules})
  install(TARGETS krprovider LIBRARY DESTINATION ${_modules} COMPONENT provider)
endif()
