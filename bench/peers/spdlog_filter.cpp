#include "bench/peers/spdlog_filter.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

peer_spdlog_logger::peer_spdlog_logger()
    : logger_(std::make_shared<spdlog::logger>("peer",
                                               std::make_shared<spdlog::sinks::null_sink_st>())) {
  logger_->set_level(spdlog::level::info);
}

peer_spdlog_logger::~peer_spdlog_logger() = default;

void peer_spdlog_logger::log_below_level() const {
  logger_->log(spdlog::level::debug, "an event");
}

void peer_spdlog_logger::log_above_level() const {
  logger_->log(spdlog::level::warn, "an event");
}
