# The warnings every target of this project is built with, all of them errors.
add_library(krWarnings INTERFACE)
if(MSVC)
  target_compile_options(krWarnings INTERFACE /W4 /WX /wd5030) # 5030: attributes of other compilers
else()
  target_compile_options(krWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror)
endif()
