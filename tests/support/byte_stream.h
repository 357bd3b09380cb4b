// Streams of given bytes.
#ifndef TESTS_SUPPORT_BYTE_STREAM_H
#define TESTS_SUPPORT_BYTE_STREAM_H

#include <cstdio>
#include <string>
#include <string_view>

#include "base/kp_clib.h"

// A regular file of these bytes, positioned at its start.
inline kp_file stream_of(std::string_view bytes) {
  kp_file file(std::tmpfile());
  std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  std::rewind(file.get());
  return file;
}

// A stream of these bytes that has no descriptor, hence no size.
inline kp_file sizeless_stream_of(std::string& bytes) {
  return kp_file(fmemopen(bytes.data(), bytes.size(), "rb"));
}

#endif
