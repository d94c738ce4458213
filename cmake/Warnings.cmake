# The warnings every target of this project is built with, all of them errors.
add_library(krWarnings INTERFACE)
if(MSVC)
  target_compile_options(krWarnings INTERFACE /W4 /WX)
else()
  target_compile_options(krWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror)
endif()
