#include "engines/common/waiting.h"

#include <algorithm>
#include <thread>

void require_going_on(const engine_options& options, const std::string& address) {
  if (options.is_to_end && options.is_to_end())
    throw engine_error(address + ": given up, because kplog is to end");
}

void wait_at_engine(std::chrono::milliseconds time, const engine_options& options,
                    const std::string& address) {
  using clock = std::chrono::steady_clock;
  for (const auto end = clock::now() + time; clock::now() < end;) {
    require_going_on(options, address);
    std::this_thread::sleep_for(std::min<clock::duration>(waiting_step, end - clock::now()));
  }
}
