// The message pattern that ICU makes of a template, with the places of its parts in the template.
#ifndef TOOLS_DEFINITIONS_TEMPLATE_PATTERN_H
#define TOOLS_DEFINITIONS_TEMPLATE_PATTERN_H

#include <unicode/messagepattern.h>
#include <unicode/unistr.h>

#include <string_view>
#include <vector>

#include "recording/definitions/template.h"

class template_pattern {
 public:
  // The template in pieces, none of them a fault.
  explicit template_pattern(const std::vector<template_piece>& pieces);

  // Whether all formats of the pattern end for every value. Adds a problem for each other one.
  bool is_safe(std::vector<template_problem>& problems) const;
  // Adds a problem for each placeholder that stands within quotes.
  void find_quoted(std::vector<template_problem>& problems) const;
  // Whether it has arguments beside those of the placeholders.
  bool has_own_arguments() const { return arguments_ > placeholders_.size(); }
  // Why the library refuses to render the template, which says `refusal`.
  template_problem fault(const std::string& refusal) const;

 private:
  struct placeholder {
    int begin;                    // in the pattern
    const template_piece* piece;  // of the template
  };

  void append_literal(const template_piece& piece);
  void append_placeholder(const template_piece& piece);
  void parse();
  size_t open_argument() const;
  std::optional<template_problem> name_fault() const;
  template_problem syntax_fault() const;
  bool has_formatter(int start_part) const;
  std::optional<template_problem> argument_fault() const;
  size_t own_argument() const;
  size_t offset_of(int index) const;

  const std::vector<template_piece>& pieces_;
  icu::UnicodeString pattern_;
  std::vector<size_t> offsets_;            // in the template, of each unit of the pattern
  std::vector<placeholder> placeholders_;  // that show values
  bool is_deep_ = false;                   // too deep to be parsed
  UErrorCode status_ = U_ZERO_ERROR;
  icu::MessagePattern parsed_{status_};
  UParseError error_{};
  size_t arguments_ = 0;
};

#endif
