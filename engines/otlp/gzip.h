// Compression as HTTP has it.
#ifndef ENGINES_OTLP_GZIP_H
#define ENGINES_OTLP_GZIP_H

#include <string>
#include <string_view>

// One member of gzip.
std::string gzip_of(std::string_view bytes);

#endif
