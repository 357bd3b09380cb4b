#include "tools/definitions/template_size.h"

#include <array>

// Bytes of the longest values. A line end in a string becomes two characters.
static constexpr size_t number_size = 64;
static constexpr size_t float_size = 512;  // 1e308 with all its digits and separators
static constexpr size_t time_size = 128;
static constexpr size_t guid_size = 64;
static constexpr size_t bytes_per_char = 2;
static constexpr size_t bytes_per_utf16_unit = 3;

static constexpr std::array<size_t, 6> string_limits = {32, 64, 128, 256, 1024, 2048};

static size_t largest_value_size(kp_AttributeType type) {
  if (type == TypeGUID) return guid_size;
  if (is_string_attribute(type))
    return string_limits[static_cast<size_t>(type - TypeChar32)] * bytes_per_char;
  if (is_unicode_string_attribute(type))
    return string_limits[static_cast<size_t>(type - TypeMBChar32)] * bytes_per_utf16_unit;
  if (is_float_attribute(type)) return float_size;
  return is_time_attribute(type) ? time_size : number_size;
}

size_t largest_rendered_size(const std::vector<template_piece>& pieces,
                             const attribute_type_of& type_of) {
  size_t size = 0;
  for (const template_piece& piece : pieces) {
    if (piece.kind == template_piece::kinds::literal) size += piece.text.size();
    if (piece.kind == template_piece::kinds::percent) ++size;
    if (piece.shows_value()) size += largest_value_size(type_of(piece.text));
  }
  return size;
}
