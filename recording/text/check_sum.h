// A sum of 64 bits over bytes, FNV-1a: what differs by accident has another one.
#ifndef RECORDING_TEXT_CHECK_SUM_H
#define RECORDING_TEXT_CHECK_SUM_H

#include <cstdint>
#include <string_view>

inline constexpr uint64_t check_sum_begin = 0xCBF29CE484222325;

// Goes on behind the sum of what stands before.
constexpr uint64_t check_sum(std::string_view bytes, uint64_t sum = check_sum_begin) {
  constexpr uint64_t prime = 0x100000001B3;
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * prime;
  return sum;
}

#endif
