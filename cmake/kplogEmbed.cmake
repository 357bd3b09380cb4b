# Writes OUTPUT, a C++ header with the bytes of the compiled definitions COMPILED. The namespace is
# that of HEADER, which kplog wrote of the same definitions, and the guard begins like that one's.
cmake_minimum_required(VERSION 3.25)

file(READ ${HEADER} text)
if(NOT text MATCHES "\n#ifndef ([A-Za-z0-9_]+)\n.*\nnamespace ([^ \n]+) {\n")
  message(FATAL_ERROR "no guard and no namespace in ${HEADER}")
endif()
set(guard ${CMAKE_MATCH_1}_FILE)
set(namespace ${CMAKE_MATCH_2})

file(READ ${COMPILED} bytes HEX)
string(REPEAT "[0-9a-f]" 32 line)
string(REGEX REPLACE "(${line})" "\\1\n" bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")

cmake_path(GET COMPILED FILENAME name)
file(
  WRITE ${OUTPUT}
  "// The bytes of ${name}, for a program that carries its definitions.
#ifndef ${guard}
#define ${guard}

namespace ${namespace} {

inline constexpr unsigned char definition_file[] = {
${bytes}};

}  // namespace ${namespace}

#endif
")
