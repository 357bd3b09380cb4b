// A plugin that records, for programs that load and unload it: recorder_plugin_test.
#include "kp_LOG_Recorder.h"

#include <cstdlib>
#include <string>

#include "shop.h"

static kp_LOG_RecorderOptions options_at(const std::string& folder) {
  kp_LOG_RecorderOptions options;
  options.definitions = KPLOG_SHOP_DEFINITIONS;
  options.locale = "en";
  options.text = folder + "/shop";
  options.json = folder + "/shop.jsonl";
  // Code and a text of the plugin's own, which are gone when it is unloaded.
  options.on_fault = [told = std::string(64, 'x')](kp_LOG_RecorderFault, const std::string&) {
    std::abort();
  };
  return options;
}

static const char* folder_of_environment() {
  const char* const folder = std::getenv("KPLOG_PLUGIN_FOLDER");
  return folder == nullptr ? "." : folder;
}

// Is made while the plugin is loaded, and closed while it is unloaded.
static kp_LOG_Recorder log_of_plugin(options_at(folder_of_environment()));

static bool record(kp_LOG_Recorder& log, unsigned number, unsigned thread) {
  return log.Record(shop::STEP{.NUMBER = number, .THREAD = thread}) == kp_LOG_Recorded::recorded;
}

extern "C" KP_API bool plugin_record(unsigned number, unsigned thread) {
  return record(log_of_plugin, number, thread);
}

// A recorder that the plugin forgets when it is unloaded.
extern "C" KP_API void* plugin_open(const char* folder) {
  kp_LOG_RecorderOptions options = options_at(folder);
  options.on_fault = {};
  return new kp_LOG_Recorder(options);
}

extern "C" KP_API bool plugin_record_with(void* log, unsigned number, unsigned thread) {
  return record(*static_cast<kp_LOG_Recorder*>(log), number, thread);
}
