#include "tools/ship/engine.h"

#include "recording/text/number.h"

static std::span<const engine_row> engines_in_use;

void use_engines(std::span<const engine_row> engines) {
  engines_in_use = engines;
}

std::span<const engine_row> engines() {
  return engines_in_use;
}

std::string day_with_dashes(std::string day) {
  return day.insert(6, "-").insert(4, "-");
}

uint32_t event_of_unknown(std::string_view record) {
  static constexpr std::string_view key = R"("event":)";
  const size_t at = record.find(key);
  if (at == record.npos) return 0;
  record.remove_prefix(at + key.size());
  return number_of<uint32_t>(record.substr(0, record.find_first_of(",}"))).value_or(0);
}
