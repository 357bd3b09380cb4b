# kplog_add_definitions(NAME SOURCES SOURCE... [STD FILE] [NAMESPACE NAME] [ONLY ids]
#                       [TRANSLATIONS FILE.po...] [EMBED] [INSTALL FOLDER])
#
# Compiles definition sources with the kplog command to NAME.ldf in the current build folder, and
# writes the C++ header NAME.h beside it; all that is made is made anew when a source or the command
# changes. NAME is an interface library: what links it is compiled after that, finds the headers,
# and is compiled as C++20. With STD, an STD set, the sources are those of an AUX set. Without
# NAMESPACE everything in the headers stands in the namespace NAME. With ONLY ids, NAME.h holds the
# constants alone.
#
# TRANSLATIONS makes the message catalog NAME_catalog, a folder beside NAME.ldf, of these files and
# the sources. EMBED writes the header NAME_file.h, which holds the bytes of NAME.ldf as the array
# `definition_file`. INSTALL installs NAME.ldf and NAME_catalog into FOLDER.
#
# KPLOG_COMMAND, where it is set, is the command to use: in a build for another kind of machine, one
# that runs on this one.
function(kplog_add_definitions name)
  if(KPLOG_COMMAND)
    set(command ${KPLOG_COMMAND})
    set(command_file ${KPLOG_COMMAND})
  elseif(TARGET kplog::command)
    set(command kplog::command)
    set(command_file $<TARGET_FILE:kplog::command>)
  else()
    message(FATAL_ERROR "kplog_add_definitions needs the kplog command: build it with "
                        "-DKPLOG_TOOLS=ON, or set(KPLOG_TOOLS ON) before kplog's sources are added, "
                        "or set KPLOG_COMMAND to the path of one")
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg "EMBED" "STD;NAMESPACE;ONLY;INSTALL" "SOURCES;TRANSLATIONS")
  if(NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(
      FATAL_ERROR
        "kplog_add_definitions(NAME SOURCES SOURCE... [STD FILE] [NAMESPACE NAME] [ONLY ids] "
        "[TRANSLATIONS FILE.po...] [EMBED] [INSTALL FOLDER])"
    )
  endif()
  _kplog_absolute(inputs ${arg_SOURCES})
  set(options --quiet)
  set(depends ${inputs} ${command_file})
  if(DEFINED arg_STD)
    _kplog_absolute(standard ${arg_STD})
    list(APPEND options --std ${standard})
    list(APPEND depends ${standard})
  endif()
  set(compiled ${CMAKE_CURRENT_BINARY_DIR}/${name}.ldf)
  set(header ${CMAKE_CURRENT_BINARY_DIR}/${name}.h)
  set(made ${compiled} ${header})
  add_custom_command(
    OUTPUT ${compiled}
    COMMAND ${command} compile ${options} ${inputs} -o ${compiled}
    DEPENDS ${depends}
    VERBATIM)
  set(header_options ${options})
  if(DEFINED arg_NAMESPACE)
    list(APPEND header_options --namespace ${arg_NAMESPACE})
  endif()
  if(DEFINED arg_ONLY)
    list(APPEND header_options --only ${arg_ONLY})
  endif()
  add_custom_command(
    OUTPUT ${header}
    COMMAND ${command} header ${header_options} ${inputs} -o ${header}
    DEPENDS ${depends}
    VERBATIM)
  if(DEFINED arg_TRANSLATIONS)
    _kplog_absolute(translations ${arg_TRANSLATIONS})
    list(TRANSFORM translations PREPEND "--po=" OUTPUT_VARIABLE po_options)
    set(catalog ${CMAKE_CURRENT_BINARY_DIR}/${name}_catalog)
    # What the locales are is in the files of translations; root.res is there for every set. The
    # folder goes first, with the bundles of languages that are not among them any more.
    add_custom_command(
      OUTPUT ${catalog}/root.res
      COMMAND ${CMAKE_COMMAND} -E rm -rf ${catalog}
      COMMAND ${command} catalog build ${options} ${inputs} ${po_options} -o ${catalog}
      DEPENDS ${depends} ${translations}
      VERBATIM)
    list(APPEND made ${catalog}/root.res)
  endif()
  if(arg_EMBED)
    set(bytes ${CMAKE_CURRENT_BINARY_DIR}/${name}_file.h)
    set(embed ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/kplogEmbed.cmake)
    add_custom_command(
      OUTPUT ${bytes}
      COMMAND ${CMAKE_COMMAND} -DCOMPILED=${compiled} -DHEADER=${header} -DOUTPUT=${bytes} -P
              ${embed}
      DEPENDS ${compiled} ${header} ${embed}
      VERBATIM)
    list(APPEND made ${bytes})
  endif()
  add_custom_target(${name}_files ALL DEPENDS ${made})
  add_library(${name} INTERFACE)
  add_dependencies(${name} ${name}_files)
  target_include_directories(${name} INTERFACE ${CMAKE_CURRENT_BINARY_DIR})
  target_compile_features(${name} INTERFACE cxx_std_20)
  if(DEFINED arg_INSTALL)
    install(FILES ${compiled} DESTINATION ${arg_INSTALL})
    if(DEFINED arg_TRANSLATIONS)
      install(DIRECTORY ${catalog} DESTINATION ${arg_INSTALL})
    endif()
  endif()
endfunction()

# The files as absolute paths, in the variable `result`; relative ones are of the caller's folder.
function(_kplog_absolute result)
  set(paths)
  foreach(path ${ARGN})
    cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND paths ${path})
  endforeach()
  set(${result} ${paths} PARENT_SCOPE)
endfunction()
