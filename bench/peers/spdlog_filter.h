// A logger of spdlog's with a level and a sink that writes nothing.
#ifndef BENCH_PEERS_SPDLOG_FILTER_H
#define BENCH_PEERS_SPDLOG_FILTER_H

#include <memory>

namespace spdlog {
class logger;
}

class peer_spdlog_logger {
 public:
  peer_spdlog_logger();
  ~peer_spdlog_logger();

  // Log a fixed text, unformatted, below and above the logger's level.
  void log_below_level() const;
  void log_above_level() const;

 private:
  std::shared_ptr<spdlog::logger> logger_;
};

#endif
