// How engines wait: never longer than whoever wants them to end.
#ifndef ENGINES_COMMON_WAITING_H
#define ENGINES_COMMON_WAITING_H

#include <chrono>
#include <string>

#include "tools/ship/engine.h"

// How often is_to_end is asked.
inline constexpr std::chrono::milliseconds waiting_step(100);

// Raises engine_error, which begins with the address, where it is to end.
void require_going_on(const engine_options& options, const std::string& address);

// Lets the time pass. Raises engine_error likewise.
void wait_at_engine(std::chrono::milliseconds time, const engine_options& options,
                    const std::string& address);

#endif
