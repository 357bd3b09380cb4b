# The installed package. <prefix>/include/kplog is its include folder: the headers of include/ stand
# in it flat, those of logging/ and base/ under their folders' names.
include(CMakePackageConfigHelpers)

set(kplog_libraries kpbase kpintl kplog)
if(TARGET kplogrecord)
  list(APPEND kplog_libraries kplogrecord)
  set_target_properties(kplogrecord PROPERTIES EXPORT_NAME recorder)
endif()
# What a program that links static libraries has to find; shared ones have it.
set(kplog_dependencies "")
if(kplog_library_kind STREQUAL STATIC)
  set(kplog_dependencies "find_dependency(ICU COMPONENTS uc i18n)")
  if(TARGET kplogrecord)
    string(APPEND kplog_dependencies "\nfind_dependency(simdjson)")
  endif()
endif()
install(
  TARGETS ${kplog_libraries}
  EXPORT kplogTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kplog FILES_MATCHING
        PATTERN "*.h")
install(DIRECTORY base DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kplog FILES_MATCHING PATTERN "*.h")

# What callers may include from logging/; the other headers there are the library's own.
set(kplog_installed_logging_headers
    logging/logentry_i.h
    logging/def_read.h
    logging/ldf_format.h
    logging/log_definition.h
    logging/ldf_load.h
    logging/attr_value.h
    logging/attribute_store.h
    logging/ustring.h
    logging/hash_tbl.h
    logging/hashed_name.h
    logging/log_util_identity.h
    logging/logcfg_file.h
    logging/logmsg.h
    logging/logmsg_token.h)
install(FILES ${kplog_installed_logging_headers}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kplog/logging)

set(kplog_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kplog)
install(EXPORT kplogTargets NAMESPACE kplog:: DESTINATION ${kplog_cmake_dir})
configure_package_config_file(cmake/kplogConfig.cmake.in kplogConfig.cmake
                              INSTALL_DESTINATION ${kplog_cmake_dir})
write_basic_package_version_file(kplogConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kplogConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/kplogConfigVersion.cmake cmake/kplogDefinitions.cmake
              cmake/kplogEmbed.cmake
        DESTINATION ${kplog_cmake_dir})

# kplog_install_pc(NAME LIBRARY DESCRIPTION REQUIRES PRIVATE...): NAME.pc, which names its prefix by
# the way there, so that the installation can be moved. PRIVATE is what a static library needs.
function(kplog_install_pc name library description requires)
  list(JOIN ARGN " " private)
  set(folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH kplog_pc_to_prefix ${folder} ${CMAKE_INSTALL_PREFIX})
  foreach(kind libdir includedir)
    string(TOUPPER ${kind} upper)
    set(kplog_pc_${kind} "\${prefix}/${CMAKE_INSTALL_${upper}}")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${upper}}")
      set(kplog_pc_${kind} ${CMAKE_INSTALL_${upper}})
    endif()
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kplog.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
set(kplog_icu_flags -licui18n -licuuc -licudata)
kplog_install_pc(kplog-base kpbase "Strings, time and locks beneath kplog" "" -lstdc++ -pthread)
kplog_install_pc(kplog-intl kpintl "The current locale, beneath kplog" "kplog-base"
                 ${kplog_icu_flags})
kplog_install_pc(kplog kplog "Structured event logging" "kplog-intl, kplog-base"
                 ${kplog_icu_flags})
if(TARGET kplogrecord)
  kplog_install_pc(kplog-recorder kplogrecord "Records the events of a program" "kplog"
                   -lsimdjson -lzstd)
endif()
