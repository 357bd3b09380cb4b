// Sizes in bytes as people write them in options.
#ifndef RECORDING_TEXT_SIZE_H
#define RECORDING_TEXT_SIZE_H

#include <cstdint>
#include <optional>
#include <string_view>

inline constexpr char size_form[] =
    "a size is a number from 1, with K, M or G behind it or nothing";

// "64M": a whole number from 1, with K, M or G for the powers of 1024; nothing for any other text,
// and for what no file has.
std::optional<uintmax_t> size_of(std::string_view text);

#endif
