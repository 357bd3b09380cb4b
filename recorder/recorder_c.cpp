// The recorder for C: options and records as JSON.
#include "kp_LOG_RecorderC.h"

#include <simdjson.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "kp_LOG_errors.h"
#include "logging/logentry_i.h"
#include "recorder/recorder_state.h"
#include "recorder/room.h"
#include "recording/records/entry.h"
#include "recording/records/parser.h"
#include "recording/text/json_text.h"
#include "recording/text/words.h"

struct kp_LOG_recorder {
  explicit kp_LOG_recorder(const kp_LOG_RecorderOptions& options) : recorder(options) {}

  kp_LOG_Recorder recorder;
};

// Of the thread's last call.
static thread_local std::string last_error;

static void note_error(const char* text) noexcept {
  try {
    last_error = text;
  } catch (const std::bad_alloc&) {
    last_error.clear();
  }
}

const char* kp_LOG_recorder_error() {
  return last_error.c_str();
}

// ---- options ----

using json_value = simdjson::dom::element;

[[noreturn]] static void refuse_option(const std::string& text) {
  throw KPX_logging_illegal_argument(("kp_LOG_recorder_open: " + text).c_str(), 0);
}

template <class Value>
static Value held(const json_value& value, const std::string& name, const char* what) {
  Value held{};
  if (value.get(held) != simdjson::SUCCESS) refuse_option("the option " + name + " is " + what);
  return held;
}

static void set(std::string& option, const std::string& name, const json_value& value) {
  option = held<std::string_view>(value, name, "a text");
}

static void set(uint64_t& option, const std::string& name, const json_value& value) {
  option = held<uint64_t>(value, name, "a whole number from 0");
}

static void set(bool& option, const std::string& name, const json_value& value) {
  option = held<bool>(value, name, "true or false");
}

static void set(std::chrono::milliseconds& option, const std::string& name,
                const json_value& value) {
  uint64_t number = 0;
  set(number, name, value);
  static constexpr uint64_t most = uint64_t{86'400'000};
  option = std::chrono::milliseconds(std::min(number, most));
}

static void set(kp_LOG_WhenFull& option, const std::string& name, const json_value& value) {
  static constexpr char what[] = "wait or lose";
  const auto text = held<std::string_view>(value, name, what);
  if (text != "wait" && text != "lose") refuse_option("the option " + name + " is " + what);
  option = text == "wait" ? kp_LOG_WhenFull::wait : kp_LOG_WhenFull::lose;
}

template <class Visitor>
static void visit_options(kp_LOG_RecorderOptions& options, Visitor visit) {
  visit("definitions", options.definitions);
  visit("aux", options.aux);
  visit("catalog", options.catalog);
  visit("locale", options.locale);
  visit("code_page", options.code_page);
  visit("text", options.text);
  visit("json", options.json);
  visit("count", options.count);
  visit("journal", options.journal);
  visit("max_size", options.max_size);
  visit("synced", options.synced);
  visit("settings", options.settings);
  visit("section", options.section);
  visit("ring_folder", options.ring_folder);
  visit("ring_size", options.ring_size);
  visit("when_full", options.when_full);
  visit("wait", options.wait);
}

static kp_LOG_RecorderOptions options_of(const char* text) {
  const std::string_view given_text = text == nullptr ? "" : text;
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  const simdjson::error_code error = parser.parse(given_text.data(), given_text.size()).get(object);
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  if (error != simdjson::SUCCESS) refuse_option("the options are no JSON object");
  kp_LOG_RecorderOptions options;
  std::vector<std::string_view> names;
  visit_options(options, [&](const char* name, auto& option) {
    names.push_back(name);
    json_value given;
    if (object[name].get(given) == simdjson::SUCCESS) set(option, name, given);
  });
  for (const auto& [name, value] : object)
    if (std::find(names.begin(), names.end(), name) == names.end())
      refuse_option("there is no option " + in_quotes(name) + nearest_name_hint(name, names));
  return options;
}

kp_LOG_recorder* kp_LOG_recorder_open(const char* options_as_json) {
  try {
    return new kp_LOG_recorder(options_of(options_as_json));
  } catch (const kp_EXCEPTION_base& error) {
    note_error(error.get_message() == nullptr ? "no memory is left" : error.what());
  } catch (const std::bad_alloc&) {
    note_error("no memory is left");
  } catch (const std::exception& error) {
    note_error(error.what());
  }
  return nullptr;
}

// ---- records ----

// What a thread makes entries of records with, for the recorder that it used last.
struct json_recording {
  explicit json_recording(std::shared_ptr<recorder_state> its_state)
      : state(std::move(its_state)), maker(state->events()) {}

  std::shared_ptr<recorder_state> state;
  record_parser parser;
  entry_maker maker;
};

static thread_local std::optional<json_recording> reader;

static kp_LOG_Recorded lost_for(recorder_state& state, const record_error& error) {
  const diagnostic_rule rule = error.rule();
  const bool is_name = rule == "record-event"_rule || rule == "record-attribute"_rule;
  const kp_LOG_Recorded how = is_name ? kp_LOG_Recorded::lost_name : kp_LOG_Recorded::lost_value;
  note_error(error.text().c_str());
  state.lose(how);
  return how;
}

static kp_LOG_Recorded record_line_of(_kp_LOG_recorder_gate& gate,
                                      const std::shared_ptr<recorder_state>& state,
                                      const char* record) {
  const kp_log_own_settings::scope scope(state->settings());
  if (!reader || reader->state != state) reader.emplace(state);
  const parsed_record* const parsed = reader->parser.try_parse(record);
  if (parsed == nullptr) return lost_for(*state, reader->parser.error());
  const made_entry* const made = reader->maker.try_make(*parsed);
  if (made == nullptr) return lost_for(*state, reader->maker.error());
  return record_entry(gate, made->entry, made->message_index);
}

int kp_LOG_recorder_record(kp_LOG_recorder* recorder, const char* record) {
  kp_LOG_Recorded answer = kp_LOG_Recorded::lost_closed;
  if (recorder == nullptr) return static_cast<int>(answer);
  _kp_LOG_recorder_gate& gate = recorder->recorder._gate();
  const std::shared_ptr<recorder_state> state = state_behind(gate, answer);
  if (state == nullptr) return static_cast<int>(answer);
  try {
    return static_cast<int>(record_line_of(gate, state, record == nullptr ? "" : record));
  } catch (const std::exception&) {
    note_error("no memory is left");
  }
  state->lose(kp_LOG_Recorded::lost_memory);
  return static_cast<int>(kp_LOG_Recorded::lost_memory);
}

// ---- the rest ----

int kp_LOG_recorder_flush(kp_LOG_recorder* recorder, unsigned milliseconds) {
  return recorder != nullptr && recorder->recorder.Flush(std::chrono::milliseconds(milliseconds))
             ? 1
             : 0;
}

static std::string text_of(const kp_LOG_RecorderStatistics& told) {
  std::string text;
  json_text json(text);
  json.begin_object();
  json.key("recorded").number(told.recorded).key("rejected").number(told.rejected);
  json.key("lost").begin_object();
  for (uint32_t kind = 0; kind < told.lost.size(); ++kind)
    if (!loss_reason(kind).empty()) json.key(loss_reason(kind)).number(told.lost[kind]);
  json.end_object().key("waiting").number(told.waiting).key("bytes").number(told.bytes);
  json.end_object();
  return text;
}

int kp_LOG_recorder_statistics(kp_LOG_recorder* recorder, char* buffer, size_t size) {
  if (recorder == nullptr) return -1;
  try {
    const std::string text = text_of(recorder->recorder.Statistics());
    if (buffer != nullptr && size != 0) {
      const size_t kept = std::min(text.size(), size - 1);
      std::memcpy(buffer, text.data(), kept);
      buffer[kept] = '\0';
    }
    return static_cast<int>(text.size());
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

void kp_LOG_recorder_close(kp_LOG_recorder* recorder) {
  delete recorder;
}
