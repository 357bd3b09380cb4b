#include "recording/text/summed_json.h"

#include "recording/text/check_sum.h"
#include "recording/text/number.h"

static constexpr std::string_view sum_key = ",\"sum\":\"";
static constexpr std::string_view object_end = "\"}\n";
static constexpr size_t sum_digits = 16;

static std::string end_with_sum(std::string_view open_object) {
  return std::string(sum_key) + hexadecimal(check_sum(open_object), sum_digits) +
         std::string(object_end);
}

std::string summed_object(std::string open_object) {
  const std::string end = end_with_sum(open_object);
  return std::move(open_object += end);
}

std::optional<std::string> unsummed_object(std::string_view line) {
  const size_t behind = sum_key.size() + sum_digits + object_end.size();
  if (line.size() < behind) return std::nullopt;
  const std::string_view object = line.substr(0, line.size() - behind);
  if (line.substr(object.size()) != end_with_sum(object)) return std::nullopt;
  return std::string(object) + "}";
}
