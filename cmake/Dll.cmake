# What makes a DLL of krOpenSSL64: its entry, its version resource, and a compiler's run-time inside it, so that
# it imports from OpenSSL and the system only.
set(_windows ${PROJECT_SOURCE_DIR}/krOpenSSL/platform/windows)
enable_language(RC)
configure_file(${_windows}/version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/version.rc @ONLY)
target_sources(krOpenSSL64 PRIVATE ${_windows}/DllEntry.cpp ${CMAKE_CURRENT_BINARY_DIR}/version.rc)
target_include_directories(krOpenSSL64 PRIVATE ${PROJECT_SOURCE_DIR}/krOpenSSL)
set_target_properties(krOpenSSL64 PROPERTIES PREFIX "")

if(MINGW)
  set(_def ${CMAKE_CURRENT_BINARY_DIR}/krOpenSSL64.def)
  target_link_options(krOpenSSL64 PRIVATE LINKER:--output-def,${_def})
  add_custom_command(TARGET krOpenSSL64 POST_BUILD
    COMMAND ${CMAKE_COMMAND} -DDEF=${_def} -DDLL=$<TARGET_FILE_NAME:krOpenSSL64> -P ${CMAKE_CURRENT_LIST_DIR}/def.cmake)
  target_link_libraries(krOpenSSL64 PRIVATE krWarnings)
endif()
