# The installed package. <prefix>/include/kplog is its include folder: the headers of include/ stand
# in it flat, those of logging/ and base/ under their folders' names.
include(CMakePackageConfigHelpers)

install(TARGETS kpbase kpintl kplog EXPORT kplogTargets LIBRARY DESTINATION
                                                        ${CMAKE_INSTALL_LIBDIR})
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
