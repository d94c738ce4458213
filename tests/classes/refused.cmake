# What krCrypto.hpp and the classes must not compile: rows of a line that does, and the slip that must not.
# usage: cmake -DCOMPILER=... -DINCLUDES=... -DWORK=... -P refused.cmake
set(rows
  "auto a = encryptCbc<256>(key32, bytes16, \"\")|auto a = encryptCbc<256>(bytes16, key32, \"\")"
  "auto a = encryptCbc<128>(key16, CbcIv(bytes16), \"\")|auto a = encryptCbc<128>(bytes16, key16, \"\")"
  "auto a = encryptCbc<192>(key24, CbcIv(bytes16), \"\")|auto a = encryptCbc<128>(CbcIv(bytes16), CbcIv(key16), \"\")"
  "auto a = decryptCbc<256>(key32, bytes16, \"\")|auto a = decryptCbc<192>(key32, bytes16, \"\")"
  "std::array<unsigned char, 32> a = digest<kroSHA256>(\"\")|std::array<unsigned char, 16> a = digest<kroSHA256>(\"\")"
  "auto a = digest<kroMD5>(\"\")|auto a = digest<kroMD4>(\"\")"
  "auto a = mac<kroSHA256>(key16, text)|auto a = mac<kroSHA256>(pointer, pointer, 16)"
  "(void)unwrapKey(key32, text)|unwrapKey(key32, text)"
  "(void)verifyMac<kroSHA256>(key16, text, text)|verifyMac<kroSHA256>(key16, text, text)"
  "(void)kroAESWrap().Decrypt(pointer, 8, pointer, nullptr)|kroAESWrap().Decrypt(pointer, 8, pointer, nullptr)"
  "auto a = wrapKey(key24, text)|auto a = wrapKey(text, key24)"
  "auto a = SealKeys<128>(SecretArray<48>(text))|auto a = SealKeys<128>(key32)"
  "ByteView a(\"ab\")|char chars[2]{}@ ByteView a(chars)"
  "ByteView a(text)|ByteView a(std::vector<int>{1})"
  "Mac<kroSHA256> a(key16)|Mac<kroSHA256> a(key16)@ Mac<kroSHA256> b(a)"
  "kroMD5 a@ a = kroMD5()|kroMD5 a@ kroHashBase &base = a@ base = kroSHA256()")
list(TRANSFORM INCLUDES PREPEND -I)
file(MAKE_DIRECTORY ${WORK})
set(options -std=c++20 -Werror=unused-result ${INCLUDES})
file(WRITE ${WORK}/headers.h "#include <krOpenSSL/krCrypto.hpp>\n#include <krOpenSSL/krOpenSSL.h>\n")
execute_process(COMMAND ${COMPILER} ${options} -x c++-header ${WORK}/headers.h -o ${WORK}/headers.h.gch
  COMMAND_ERROR_IS_FATAL ANY) # once for all rows
function(compile code result)
  string(REPLACE "@" ";" code "${code}") # a list has no semicolons within
  file(WRITE ${WORK}/row.cpp "#include \"headers.h\"\nusing namespace krOpenSSL;
void row(std::array<unsigned char, 16> key16, std::array<unsigned char, 24> key24, std::array<unsigned char, 32> key32,
         std::array<unsigned char, 16> bytes16, std::string text, unsigned char *pointer) { ${code} }\n")
  execute_process(COMMAND ${COMPILER} ${options} -fsyntax-only ${WORK}/row.cpp
    RESULT_VARIABLE failed ERROR_VARIABLE errors)
  set(${result} ${failed} PARENT_SCOPE)
  set(errors "${errors}" PARENT_SCOPE)
endfunction()
set(all "")
foreach(row IN LISTS rows)
  string(REPLACE "|" ";" parts "${row}")
  list(GET parts 0 good)
  string(APPEND all "{ ${good}; }\n")
endforeach()
compile("${all}" failed)
if(failed)
  message(FATAL_ERROR "what has to compile does not: ${errors}")
endif()
foreach(row IN LISTS rows)
  string(REGEX REPLACE "^[^|]*[|]" "" bad "${row}")
  compile("${bad};" failed)
  if(NOT failed)
    message(SEND_ERROR "compiles: ${bad}")
  endif()
endforeach()
