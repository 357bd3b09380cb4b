# kplog_add_definitions(NAME SOURCES SOURCE... [STD FILE] [NAMESPACE NAME])
#
# Compiles definition sources with the kplog command to NAME.ldf in the current build folder, and
# writes the C++ header NAME.h beside it; both are made anew when a source or the command changes.
# NAME is an interface library: what links it is compiled after that, finds the header, and is
# compiled as C++20. With STD, an STD set, the sources are those of an AUX set. Without NAMESPACE
# everything in the header stands in the namespace NAME.
function(kplog_add_definitions name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "STD;NAMESPACE" "SOURCES")
  if(NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "kplog_add_definitions(NAME SOURCES SOURCE... [STD FILE] [NAMESPACE NAME])")
  endif()
  set(options --quiet)
  set(inputs)
  foreach(source ${arg_SOURCES})
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND inputs ${source})
  endforeach()
  set(depends ${inputs} $<TARGET_FILE:kplog::command>)
  if(DEFINED arg_STD)
    cmake_path(ABSOLUTE_PATH arg_STD BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND options --std ${arg_STD})
    list(APPEND depends ${arg_STD})
  endif()
  set(compiled ${CMAKE_CURRENT_BINARY_DIR}/${name}.ldf)
  set(header ${CMAKE_CURRENT_BINARY_DIR}/${name}.h)
  add_custom_command(
    OUTPUT ${compiled}
    COMMAND kplog::command compile ${options} ${inputs} -o ${compiled}
    DEPENDS ${depends}
    VERBATIM)
  if(DEFINED arg_NAMESPACE)
    list(APPEND options --namespace ${arg_NAMESPACE})
  endif()
  add_custom_command(
    OUTPUT ${header}
    COMMAND kplog::command header ${options} ${inputs} -o ${header}
    DEPENDS ${depends}
    VERBATIM)
  add_custom_target(${name}_files ALL DEPENDS ${compiled} ${header})
  add_library(${name} INTERFACE)
  add_dependencies(${name} ${name}_files)
  target_include_directories(${name} INTERFACE ${CMAKE_CURRENT_BINARY_DIR})
  target_compile_features(${name} INTERFACE cxx_std_20)
endfunction()
