#include "tools/ship/engine.h"

static std::span<const engine_row> engines_in_use;

void use_engines(std::span<const engine_row> engines) {
  engines_in_use = engines;
}

std::span<const engine_row> engines() {
  return engines_in_use;
}
