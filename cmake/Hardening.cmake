# What makes attacks on the library's code harder, and the library the same in whatever folder it is built.
set(KR_CONTROL_FLOW_PROTECTION OFF)
if(MSVC)
  add_compile_options(/guard:cf)
  add_link_options(/guard:cf)
  return()
endif()

# The build folder comes last, and so is looked at first: it may lie in the source folder.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
if(KR_SANITIZE)
  return() # they bring checks of their own
endif()

add_compile_options(-fstack-protector-strong)
if(WIN32)
  add_link_options(-fstack-protector-strong) # brings the compiler's own support for it, linked in
  return()
endif()

# It needs the optimiser. Undefined first: some compilers come with a definition of their own.
add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(KR_CONTROL_FLOW_PROTECTION ON)
  add_compile_options(-fcf-protection)
endif()
