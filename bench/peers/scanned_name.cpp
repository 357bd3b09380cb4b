#include "bench/peers/scanned_name.h"

#include <cstdio>
#include <cstring>

bool peer_scan_log_name(const char* name, const char* prefix, unsigned short (&numbers)[4]) {
  const size_t prefix_length = std::strlen(prefix);
  const char* const suffix = name + prefix_length;
  return std::strncmp(name, prefix, prefix_length) == 0 && std::strlen(suffix) == 14 &&
         std::sscanf(suffix, ".%4hu%2hu%2hu.%4hu", &numbers[0], &numbers[1], &numbers[2],
                     &numbers[3]) == 4;
}
