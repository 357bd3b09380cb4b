# kplog_version: that of include/kp_LOG_version.h.
set(kplog_version "")
foreach(part MAJOR MINOR PATCH)
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../include/kp_LOG_version.h line
       REGEX "^#define KP_LOG_VERSION_${part} [0-9]+$")
  string(REGEX MATCH "[0-9]+$" number "${line}")
  list(APPEND kplog_version ${number})
endforeach()
list(JOIN kplog_version . kplog_version)
