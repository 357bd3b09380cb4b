// The version of kplog that a program is compiled with. C and C++; the build reads it from here.
#ifndef KP_LOG_VERSION_H
#define KP_LOG_VERSION_H

#define KP_LOG_VERSION_MAJOR 1
#define KP_LOG_VERSION_MINOR 1
#define KP_LOG_VERSION_PATCH 1

// A version as one number, which is the larger the later it is: each part is below 1000.
//     #if KP_LOG_VERSION >= KP_LOG_VERSION_NUMBER(1, 2, 0)
#define KP_LOG_VERSION_NUMBER(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))

#define KP_LOG_VERSION \
  KP_LOG_VERSION_NUMBER(KP_LOG_VERSION_MAJOR, KP_LOG_VERSION_MINOR, KP_LOG_VERSION_PATCH)

#endif
