# KR_SANITIZE: a list for -fsanitize ("address,undefined" or "thread"), empty for none.
set(KR_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(KR_SANITIZE)
  add_compile_options(-fsanitize=${KR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KR_SANITIZE})
endif()
