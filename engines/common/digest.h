// The hash that content is known by.
#ifndef ENGINES_COMMON_DIGEST_H
#define ENGINES_COMMON_DIGEST_H

#include <string>
#include <string_view>

// SHA-256, as 64 hexadecimal digits in lower case.
std::string content_hash(std::string_view bytes);

#endif
