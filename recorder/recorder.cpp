// The recorder as programs see it: its options, and its life.
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "kp_LOG_Recorder.h"
#include "kp_LOG_errors.h"
#include "recorder/fork_delay.h"
#include "recorder/process_mark.h"
#include "recorder/recorder_state.h"
#include "recording/files/path.h"
#include "recording/ring/recovery.h"
#include "recording/sinks/counter_writer.h"

[[noreturn]] static void refuse(const std::string& text) {
  throw KPX_logging_illegal_argument(("kp_LOG_Recorder: " + text).c_str(), 0);
}

// ---- options ----

static void check_options(const kp_LOG_RecorderOptions& options) {
  if (options.definitions.empty()) refuse("the option definitions is missing");
  if (options.text.empty() && options.json.empty() && options.count.empty() &&
      options.journal.empty())
    refuse("an output is missing: one of the options text, json, count and journal");
  if (options.ring_size < ring_file::least_size || options.ring_size > ring_file::most_size)
    refuse("the option ring_size is " + std::to_string(options.ring_size) +
           "; it is a number of bytes from " + std::to_string(ring_file::least_size) + " to " +
           std::to_string(ring_file::most_size));
  if (options.wait < options.wait.zero()) refuse("the option wait is negative");
  if (!options.section.empty() && options.settings.empty())
    refuse("the option section needs the option settings");
  if (options.max_size != 0 && options.text.empty())
    refuse("the option max_size needs the option text");
  for (const std::string* path :
       {&options.definitions, &options.aux, &options.catalog, &options.text, &options.json,
        &options.count, &options.journal, &options.settings, &options.ring_folder})
    if (path->find('\0') != std::string::npos) refuse("a path has a NUL");
  if (place_of(options.text).name.find(',') != std::string::npos)
    refuse("the option text has a comma in its prefix");
}

static void check_outputs(const kp_LOG_RecorderOptions& options) {
  if (!options.json.empty() && !options.count.empty() &&
      options.json == counter_place_of(options.count).path)
    refuse("the options json and count name one file");
}

// The program may change its working directory afterwards.
static kp_LOG_RecorderOptions with_absolute_paths(kp_LOG_RecorderOptions options) {
  options.wait = bounded_wait(options.wait);
  for (std::string* path :
       {&options.definitions, &options.aux, &options.catalog, &options.text, &options.json,
        &options.count, &options.journal, &options.settings, &options.ring_folder})
    *path = absolute_path(*path);
  return options;
}

// ---- opening ----

static void open_gate(recorder_gate& gate, const kp_LOG_RecorderOptions& options) {
  check_options(options);
  fork_delay::prepare();
  gate.options = with_absolute_paths(options);
  check_outputs(gate.options);
  gate.process.store(process_mark());
  gate.state = std::make_shared<recorder_state>(gate, true);
  gate.incarnation.store(gate.state->incarnation());
}

// Every failure as what programs are told of the library's.
static std::unique_ptr<recorder_gate> opened(const kp_LOG_RecorderOptions& options) {
  try {
    auto gate = std::make_unique<recorder_gate>();
    open_gate(*gate, options);
    return gate;
  } catch (const std::invalid_argument& error) {
    refuse(error.what());
  } catch (const damaged_definitions& error) {
    throw KPX_logging_invalid_definition(
        ("kp_LOG_Recorder: " + options.definitions + ": " + error.what()).c_str(), 0);
  } catch (const file_error& error) {
    throw KPX_logging_misc((std::string("kp_LOG_Recorder: ") + error.what()).c_str(), 0);
  } catch (const std::system_error& error) {  // no thread, no working folder
    throw KPX_logging_misc((std::string("kp_LOG_Recorder: ") + error.what()).c_str(), 0);
  } catch (const std::runtime_error& error) {  // as event_set raises it
    throw KPX_logging_invalid_definition((std::string("kp_LOG_Recorder: ") + error.what()).c_str(),
                                         0);
  }
}

// Gates of recorders that were closed stay where they are, in case somebody calls yet.
static void keep(recorder_gate& gate) noexcept {
  static std::atomic<recorder_gate*> kept = nullptr;
  gate.next_kept = kept.load();
  while (!kept.compare_exchange_weak(gate.next_kept, &gate)) {
  }
}

kp_LOG_Recorder::kp_LOG_Recorder(const kp_LOG_RecorderOptions& options) : gate_(nullptr) {
  if (!has_process_page())
    throw KPX_logging_misc("kp_LOG_Recorder: the system cannot tell children of fork apart", 0);
  try {
    gate_ = opened(options).release();
  } catch (const std::bad_alloc&) {
    KP_raise_memory_alloc();
  }
  keep(whole(*gate_));
}

// ---- closing ----

kp_LOG_Recorder::~kp_LOG_Recorder() {
  recorder_gate& gate = whole(*gate_);
  gate.accepted.store(~uint64_t{0});  // whoever calls yet hears that it is closed
  gate.incarnation.store(0);
  if (!is_this_process(gate.process.load())) return;  // the parent's
  std::shared_ptr<recorder_state> state;
  {
    const std::lock_guard hold(gate.mutex);
    state = std::move(gate.state);
  }
  if (state != nullptr) state->close();
}

// ---- asking ----

static std::shared_ptr<recorder_state> open_state(_kp_LOG_recorder_gate& gate) {
  recorder_gate& own = whole(gate);
  if (!is_this_process(own.process.load())) return nullptr;
  const std::lock_guard hold(own.mutex);
  return own.state;
}

bool kp_LOG_Recorder::Flush(std::chrono::milliseconds patience) noexcept {
  const std::shared_ptr<recorder_state> state = open_state(*gate_);
  return state == nullptr || state->flush(patience);
}

kp_LOG_RecorderStatistics kp_LOG_Recorder::Statistics() const noexcept {
  const std::shared_ptr<recorder_state> state = open_state(*gate_);
  return state == nullptr ? kp_LOG_RecorderStatistics() : state->statistics();
}
