#include "recording/records/definition_version.h"

definition_version::definition_version(const event_set_options& options) {
  const kp_log_own_settings::scope within(settings_);
  events_ = std::make_unique<event_set>(options);
}

definition_version::~definition_version() {
  const kp_log_own_settings::scope within(settings_);
  events_.reset();
}
