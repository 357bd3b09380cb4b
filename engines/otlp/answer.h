// What receivers of OTLP answer.
#ifndef ENGINES_OTLP_ANSWER_H
#define ENGINES_OTLP_ANSWER_H

#include <cstdint>
#include <optional>
#include <string>

#include "engines/otlp/http_post.h"

// Of records that were taken, which the protocol calls a success.
struct otlp_success {
  uint64_t rejected = 0;  // so many of them were not; which, nobody says
  std::string message;    // why, or a warning; safe on a terminal, of one line
};

// Nothing for a body that is no answer to logs.
std::optional<otlp_success> otlp_success_of(const http_answer& answer);

// Whether the request is to be sent again later.
bool is_otlp_retried(long status);

inline constexpr long otlp_too_large = 413;

// Whether what is wrong may be one of the records, or how many they are.
bool is_otlp_refusal(long status);

// The status and the receiver's own words, and what would help.
std::string otlp_fault_of(const http_answer& answer);

#endif
